// Owns the live tables of one process and what they share. Belongs to the agent's thread.
#pragma once

#include <unordered_map>
#include <vector>

#include "OrloVault/Entity.h"
#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"
#include "platform/switch/Hardware/Status.h"
#include "platform/switch/LoamAsicUtils/HwCommonTableBase.h"
#include "platform/switch/Statebase/EntityManager.h"

namespace LoamAsicUtils {

// Learns of the shadows of a manager's tables as they come and go, and of what is to be done with the tables.
class ShadowWatcher {
 public:
  // The shadow stands in its table and has no entries yet: those that the table itself writes come after.
  virtual void shadowComes(HwCommonShadowTableBase& table, HwShadowBase& shadow) = 0;
  // The shadow, still with its entries, is about to go.
  virtual void shadowGoes(HwCommonShadowTableBase& table, HwShadowBase& shadow) = 0;
  // A reconciliation of the table was asked for. Nothing is to be sent in the call.
  virtual void markAndSweepDue(HwCommonTableBase& /*table*/) {}

 protected:
  ~ShadowWatcher() = default;
};

class TableManager : public Dovel::Tracked<TableManager> {
 public:
  // Live tables by their keys.
  using TableColl = std::unordered_map<HwTableKey, Dovel::Ptr<HwCommonTableBase>, HwTableKeyHash>;

  // Each of them may be null where no table of the process needs it.
  TableManager(Dovel::Ptr<Hardware::Loam::Status const> loamStatus,
               Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> loamCmdletRequiredStatus,
               Dovel::Ptr<Statebase::EntityManager> entityManager,
               Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> dmaMemPoolManager,
               Dovel::Ptr<Hardware::Loam::MdbStatus const> mdbStatus = nullptr,
               Dovel::Ptr<OrloVault::Entity> regShadowEntryStorage = nullptr);
  ~TableManager() override;

  Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus() const { return loamStatus_; }
  Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& loamCmdletRequiredStatus() const {
    return loamCmdletRequiredStatus_;
  }
  Dovel::Ptr<Statebase::EntityManager> const& entityManager() const { return entityManager_; }
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> const& dmaMemPoolManager() const {
    return dmaMemPoolManager_;
  }
  Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus() const { return mdbStatus_; }
  // In whose store the process's register tables keep their entries, all of them in one.
  Dovel::Ptr<OrloVault::Entity> const& regShadowEntryStorage() const { return regShadowEntryStorage_; }

  TableColl const& tableColl() const { return tableColl_; }
  // Null where there is no such table.
  Dovel::Ptr<HwCommonTableBase> table(HwTableKey const& key) const;
  // Puts a table in, in the place of another of the same key.
  void tableIs(HwTableKey const& key, Dovel::Ptr<HwCommonTableBase> const& table);
  // A table holds its manager, so each has to be taken out for both to go.
  void tableDel(HwTableKey const& key);

  // The tables in the order in which writes go to them: by ascending rank, those without one first, and by
  // name. Deletes go the other way round.
  std::vector<Dovel::Ptr<HwCommonTableBase>> tablesByRank() const;

  // In which blocks of the chip the shadows of a table have their rows, in the order in which it told them.
  std::vector<Hardware::Block> tableShadowInfo(HwTableKey const& key) const;
  void tableShadowInfoIs(HwTableKey const& key, Hardware::Block block);
  void tableShadowInfoDel(HwTableKey const& key);

  // One for all tables, null for none; it must outlive its being set.
  ShadowWatcher* shadowWatcher() const { return shadowWatcher_; }
  void shadowWatcherIs(ShadowWatcher* watcher) { shadowWatcher_ = watcher; }

 private:
  Dovel::Ptr<Hardware::Loam::Status const> loamStatus_;
  Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> loamCmdletRequiredStatus_;
  Dovel::Ptr<Statebase::EntityManager> entityManager_;
  TableColl tableColl_;
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> dmaMemPoolManager_;
  Dovel::Ptr<Hardware::Loam::MdbStatus const> mdbStatus_;
  Dovel::Ptr<OrloVault::Entity> regShadowEntryStorage_;
  std::unordered_map<HwTableKey, std::vector<Hardware::Block>, HwTableKeyHash> shadowInfo_;
  ShadowWatcher* shadowWatcher_ = nullptr;
};

}  // namespace LoamAsicUtils
