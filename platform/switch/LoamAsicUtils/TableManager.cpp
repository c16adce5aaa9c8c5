#include "platform/switch/LoamAsicUtils/TableManager.h"

#include <utility>

namespace LoamAsicUtils {

TableManager::TableManager(
    Dovel::Ptr<Hardware::Loam::Status const> loamStatus,
    Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> loamCmdletRequiredStatus,
    Dovel::Ptr<Statebase::EntityManager> entityManager,
    Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> dmaMemPoolManager)
    : loamStatus_(std::move(loamStatus)),
      loamCmdletRequiredStatus_(std::move(loamCmdletRequiredStatus)),
      entityManager_(std::move(entityManager)),
      dmaMemPoolManager_(std::move(dmaMemPoolManager)) {}

TableManager::~TableManager() { markBeingDestroyed(); }

Dovel::Ptr<Dovel::Node> TableManager::table(HwTableKey const& key) const {
  auto const found = tableColl_.find(key);
  return found == tableColl_.end() ? nullptr : found->second;
}

void TableManager::tableIs(HwTableKey const& key, Dovel::Ptr<Dovel::Node> const& table) {
  tableColl_[key] = table;
}

void TableManager::tableDel(HwTableKey const& key) { tableColl_.erase(key); }

}  // namespace LoamAsicUtils
