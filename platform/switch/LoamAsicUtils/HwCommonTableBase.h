// The bases of the bundle's tables: what all of them have, what those with shadows have, and what those
// have whose memories are addressed by index. A table belongs to the thread of its agent.
#pragma once

#include <map>

#include "platform/switch/Hardware/FapControlData.h"
#include "platform/switch/LoamAsicUtils/HwShadowBase.h"
#include "platform/switch/LoamAsicUtils/HwTableKey.h"
#include "platform/switch/LoamAsicUtils/HwTableStats.h"
#include "platform/switch/Sluice/HwTableBase.h"

namespace LoamAsicUtils {

class TableManager;
struct MarkSweepRequestKey;

class HwCommonTableBase : public Sluice::HwTableBase {
 public:
  Dovel::String const& name() const { return name_; }
  // Table name and revision; the revision is the one that commands are made for.
  HwTableKey const& hwTableKey() const { return hwTableKey_; }
  Dovel::Ptr<TableManager> const& hwTableManager() const { return hwTableManager_; }
  Dovel::Ptr<HwTableStats> const& hwTableStats() const { return hwTableStats_; }

  // Where the table stands among those that refer to each other: writes go to tables of lower rank first,
  // deletes to those of higher. 0 for a table that refers to none, and is written before all others.
  std::uint32_t tableRank() const { return tableRank_; }
  std::uint32_t tableClass() const { return tableClass_; }
  Dovel::Ptr<BcmGroupAddrInfo> const& bcmGroupAddrInfo() const { return bcmGroupAddrInfo_; }
  std::uint64_t size() const override { return bcmGroupAddrInfo_ ? bcmGroupAddrInfo_->minShadowSize() : 0; }

  // All FAPs of the table.
  Sluice::Fapmask const& fapmask() const { return fapmask_; }

  // Whether a table can only be emptied one entry after the other.
  virtual bool requiresEntryByEntryDeletion() const { return false; }

  // Asks for a reconciliation of the table's FAPs of the mask; nothing for tables that can't be.
  virtual void scheduleMarkAndSweep(Sluice::Fapmask const& /*fapmask*/) {}
  // A reconciliation has come to its good end.
  virtual void handleGlobalStatus(MarkSweepRequestKey const& /*request*/) {}

 protected:
  HwCommonTableBase(Dovel::String const& name, HwTableKey const& key,
                    Dovel::Ptr<TableManager> const& manager);
  ~HwCommonTableBase() override;

  void tableRankIs(std::uint32_t rank) { tableRank_ = rank; }
  void tableClassIs(std::uint32_t tableClass) { tableClass_ = tableClass; }
  void bcmGroupAddrInfoIs(Dovel::Ptr<BcmGroupAddrInfo> const& info) { bcmGroupAddrInfo_ = info; }
  void fapIdIs(Sluice::FapId fap, bool member) { fapmask_.fapIdIs(fap, member); }

  // Tells the table manager in which blocks of the chip the table's shadows have their rows: a call for each
  // block, with the block set before.
  void tableBlocksIs(Hardware::Block block) { tableBlock_ = block; }
  void addHwTableShadowInfo();
  // Withdraws all of them; harmless where there are none.
  void delHwTableShadowInfo();

 private:
  Dovel::String name_;
  HwTableKey hwTableKey_;
  Dovel::Ptr<TableManager> hwTableManager_;
  Sluice::Fapmask fapmask_;
  std::uint32_t tableRank_ = 0;
  Dovel::Ptr<HwTableStats> hwTableStats_;
  std::uint32_t tableClass_ = 0;
  Dovel::Ptr<BcmGroupAddrInfo> bcmGroupAddrInfo_;
  Hardware::Block tableBlock_{};
};

class HwCommonShadowTableBase : public HwCommonTableBase {
 public:
  // Ordered, so that the commands of a table come in the order of its FAPs.
  using HwShadowColl = std::map<HwShadowKey, Dovel::Ptr<HwShadowBase>>;

  HwShadowColl const& hwShadowColl() const { return hwShadowColl_; }
  bool hwShadowCollHas(HwShadowKey key) const { return hwShadowColl_.contains(key); }
  // Null where there is none.
  HwShadowBase* hwShadow(HwShadowKey key) const {
    auto const found = hwShadowColl_.find(key);
    return found == hwShadowColl_.end() ? nullptr : found->second.ptr();
  }

  // Whether one shadow, that of the null FAP, serves all FAPs of the table.
  bool sharedShadow() const { return sharedShadow_; }
  ShadowType shadowMode() const { return shadowMode_; }

  // The FAPs that a write for the key goes to: all of the table's where they share a shadow or the key names
  // no FAP, else that one.
  Sluice::Fapmask getFapmask(HwShadowKey key) const;

  // A FAP has come up: it becomes one of the table's, and the shadow that serves it is added, under instance
  // 0. A FAP of another revision than the table's is ignored. Downloads nothing. Returns whether the FAP is
  // one of the table's.
  virtual bool processFapIdAdd(Dovel::Ptr<Hardware::Loam::FapControlData const> const& fap);
  // A FAP has gone. Its shadow goes with it, a shared one with the last FAP.
  virtual void processFapIdDel(Sluice::FapId fap);

  // Adds a shadow, empty, and initialises it; without effect for a key that has one. Always 0.
  virtual int addShadow(HwShadowKey key) = 0;
  // Deletes a shadow and its entries.
  virtual void delShadow(HwShadowKey key);
  // What the table writes into a new shadow by itself.
  virtual void initShadow(HwShadowKey key) = 0;
  // The shadow's name; empty where there is none.
  virtual Dovel::String shadowName(HwShadowKey key) const;

  Dovel::Ptr<Sluice::SchanCmds> download(Dovel::String const& fapType,
                                         Sluice::Fapmask const& fapmask) const override;
  // Empties the shadows that serve the key's FAPs and returns the commands that clear the chip: null where
  // there is nothing to do.
  virtual Dovel::Ptr<Sluice::SchanCmds> clearShadow(HwShadowKey key);
  // Returns the same commands and leaves the shadows as they are.
  virtual Dovel::Ptr<Sluice::SchanCmds> clearTableInHw(HwShadowKey key);
  // Like clearTableInHw(), for just these FAPs.
  Dovel::Ptr<Sluice::SchanCmds> clearFapsInHw(Sluice::Fapmask const& fapmask) const;

  // Bytes and bits of a row, and whether the memory guards its rows with parity or ECC.
  virtual std::uint32_t entryDataMaxSize() const = 0;
  virtual std::uint32_t entryDataMaxSizeBits() const = 0;
  virtual bool hasParitySupport() const { return false; }
  virtual Dovel::String chipName() const = 0;

 protected:
  using HwCommonTableBase::HwCommonTableBase;

  void sharedShadowIs(bool shared) { sharedShadow_ = shared; }
  void shadowModeIs(ShadowType mode) { shadowMode_ = mode; }
  // For a platform that wants other shadow attributes than the table has just set. Ours takes them as they
  // are.
  virtual void overrideShadowAttributes() {}

  // Adds a shadow under its key and tells whoever watches the process's shadows.
  void hwShadowCollIs(Dovel::Ptr<HwShadowBase> const& shadow);

  // The mask cut to the table's FAPs, then call(shadow, mask) for each shadow: the lists joined, null where
  // all are null.
  template <class Call>
  Dovel::Ptr<Sluice::SchanCmds> joined(Sluice::Fapmask const& fapmask, Call&& call) const {
    Sluice::Fapmask mask = fapmask;
    mask &= this->fapmask();
    Dovel::Ptr<Sluice::SchanCmds> all;
    for (auto const& [key, shadow] : hwShadowColl_) {
      Dovel::Ptr<Sluice::SchanCmds> const cmds = call(*shadow, mask);
      if (cmds == nullptr) continue;
      if (all == nullptr) {
        all = cmds;
      } else {
        all->cmdsEnq(*cmds);
      }
    }
    return all;
  }

 private:
  HwShadowKey shadowKeyOf(Sluice::FapId fap) const {
    return {sharedShadow_ ? Sluice::FapId::null() : fap, InstanceId{0}};
  }

  bool sharedShadow_ = false;
  ShadowType shadowMode_ = ShadowType::keyBasedFull;
  HwShadowColl hwShadowColl_;
};

class HwDirectTableBase : public HwCommonShadowTableBase {
 public:
  // Set by the factory of some tables for the platform's writers; ours needs neither.
  bool firstOption() const { return firstOption_; }
  bool secondOption() const { return secondOption_; }

 protected:
  using HwCommonShadowTableBase::HwCommonShadowTableBase;

  void optionsAre(bool first, bool second) {
    firstOption_ = first;
    secondOption_ = second;
  }

 private:
  bool firstOption_ = false;
  bool secondOption_ = false;
};

}  // namespace LoamAsicUtils
