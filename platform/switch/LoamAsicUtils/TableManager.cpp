#include "platform/switch/LoamAsicUtils/TableManager.h"

#include <algorithm>
#include <utility>

namespace LoamAsicUtils {

TableManager::TableManager(
    Dovel::Ptr<Hardware::Loam::Status const> loamStatus,
    Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> loamCmdletRequiredStatus,
    Dovel::Ptr<Statebase::EntityManager> entityManager,
    Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> dmaMemPoolManager,
    Dovel::Ptr<Hardware::Loam::MdbStatus const> mdbStatus,
    Dovel::Ptr<OrloVault::Entity> regShadowEntryStorage)
    : loamStatus_(std::move(loamStatus)),
      loamCmdletRequiredStatus_(std::move(loamCmdletRequiredStatus)),
      entityManager_(std::move(entityManager)),
      dmaMemPoolManager_(std::move(dmaMemPoolManager)),
      mdbStatus_(std::move(mdbStatus)),
      regShadowEntryStorage_(std::move(regShadowEntryStorage)) {}

TableManager::~TableManager() { markBeingDestroyed(); }

Dovel::Ptr<HwCommonTableBase> TableManager::table(HwTableKey const& key) const {
  auto const found = tableColl_.find(key);
  return found == tableColl_.end() ? nullptr : found->second;
}

void TableManager::tableIs(HwTableKey const& key, Dovel::Ptr<HwCommonTableBase> const& table) {
  tableColl_[key] = table;
}

void TableManager::tableDel(HwTableKey const& key) {
  // The table may be the last to hold this manager, which must not go while its map is being changed.
  Dovel::Ptr<TableManager> const self(this);
  auto const taken = tableColl_.extract(key);
}

std::vector<Dovel::Ptr<HwCommonTableBase>> TableManager::tablesByRank() const {
  std::vector<Dovel::Ptr<HwCommonTableBase>> tables;
  for (auto const& [key, table] : tableColl_) tables.push_back(table);
  std::ranges::sort(tables, {},
                    [](auto const& table) { return std::pair(table->tableRank(), table->name().view()); });
  return tables;
}

std::vector<Hardware::Block> TableManager::tableShadowInfo(HwTableKey const& key) const {
  auto const found = shadowInfo_.find(key);
  return found == shadowInfo_.end() ? std::vector<Hardware::Block>() : found->second;
}

void TableManager::tableShadowInfoIs(HwTableKey const& key, Hardware::Block block) {
  shadowInfo_[key].push_back(block);
}

void TableManager::tableShadowInfoDel(HwTableKey const& key) { shadowInfo_.erase(key); }

}  // namespace LoamAsicUtils
