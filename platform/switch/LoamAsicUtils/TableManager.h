// Owns the live tables of one process and what they share. Belongs to the agent's thread.
#pragma once

#include <unordered_map>

#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"
#include "platform/switch/Hardware/Status.h"
#include "platform/switch/LoamAsicUtils/HwTableKey.h"
#include "platform/switch/Statebase/EntityManager.h"
#include "runtime/Dovel/PtrIs.h"

namespace LoamAsicUtils {

class TableManager : public Dovel::Tracked<TableManager> {
 public:
  // Live tables by their keys.
  using TableColl = std::unordered_map<HwTableKey, Dovel::Ptr<Dovel::Node>, HwTableKeyHash>;

  // Each of them may be null where no table of the process needs it.
  TableManager(Dovel::Ptr<Hardware::Loam::Status const> loamStatus,
               Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> loamCmdletRequiredStatus,
               Dovel::Ptr<Statebase::EntityManager> entityManager,
               Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> dmaMemPoolManager);
  ~TableManager() override;

  Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus() const { return loamStatus_; }
  Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& loamCmdletRequiredStatus() const {
    return loamCmdletRequiredStatus_;
  }
  Dovel::Ptr<Statebase::EntityManager> const& entityManager() const { return entityManager_; }
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> const& dmaMemPoolManager() const {
    return dmaMemPoolManager_;
  }

  TableColl const& tableColl() const { return tableColl_; }
  // Null where there is no such table.
  Dovel::Ptr<Dovel::Node> table(HwTableKey const& key) const;
  // Puts a table in, in the place of another of the same key.
  void tableIs(HwTableKey const& key, Dovel::Ptr<Dovel::Node> const& table);
  void tableDel(HwTableKey const& key);

 private:
  Dovel::Ptr<Hardware::Loam::Status const> loamStatus_;
  Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> loamCmdletRequiredStatus_;
  Dovel::Ptr<Statebase::EntityManager> entityManager_;
  TableColl tableColl_;
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> dmaMemPoolManager_;
};

}  // namespace LoamAsicUtils
