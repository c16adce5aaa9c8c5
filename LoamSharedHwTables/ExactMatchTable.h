// A table that the chip keeps hashed: software gives it keys and results, and the chip finds the places. T is
// the table's class, Unit its generated part.
//
// Writing and commanding are two steps, as in direct tables. Deleting is one of the shadow's states: the
// entry stays until schanCmds() has made the command of its key.
//
// A table belongs to the thread of its agent.
#pragma once

#include "LoamSharedHwTables/ExactMatchFlush.h"
#include "LoamSharedHwTables/ExactMatchShadow.h"
#include "platform/switch/LoamAsicUtils/HwEmTableBase.h"
#include "platform/switch/LoamAsicUtils/TableManager.h"

namespace LoamSharedHwTables {

template <class T, class Unit>
class ExactMatchTable : public Dovel::Tracked<T, LoamAsicUtils::HwEmTableBase>, public Unit {
  using Base = Dovel::Tracked<T, LoamAsicUtils::HwEmTableBase>;
  using Key = LoamAsicUtils::HwShadowKey;
  using Cmds = Dovel::Ptr<Sluice::SchanCmds>;
  using RequiredStatus = Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus>;

 public:
  using Traits = typename Unit::Traits;
  using Entry = typename Unit::Entry;
  using EntryKey = typename Unit::EntryKey;
  using Shadow = ExactMatchShadow<Unit>;
  using TableDescriptor = MemoryTableDescriptor<Unit, LoamAsicUtils::BcmEmTableInfo>;
  using FlushHelperHolder = ExactMatchFlushHelperHolder<Unit>;
  using HwWriterFlushHelperHolder = LoamSharedHwTables::HwWriterFlushHelperHolder<Unit>;

  static Dovel::String tableName() { return Traits::tableName; }
  static Dovel::String tableTypeName() { return Traits::tableTypeName; }
  static Dovel::String bcmAppDbName() { return Traits::description().chipName; }
  static Dovel::String tag() { return Traits::description().tag; }

  // Stores one entry under the shadow of the key, adding it or replacing what was there. Counts the attempt,
  // then fails in the style of Asic::mode where there is no such shadow.
  void setEntry(Key hwShadowKey, Entry const& entry) {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "ExactMatchTable",
                " shadowName : {} hwShadowKey {} entry : {}", this->shadowName(hwShadowKey), hwShadowKey,
                entry);
    this->hwTableStats()->entryAddCntInc(1);
    Shadow& shadow = existing(hwShadowKey);
    traceKey(entry.entryKey());
    shadow.setEntry(entry);
  }
  // What is stored under the key, also when it is to be deleted; else a fresh entry of that key. Fails as
  // setEntry() does.
  Entry getEntry(Key hwShadowKey, EntryKey const& entryKey) const {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "ExactMatchTable",
                " shadowName : {} hwShadowKey {} entry : {}", this->shadowName(hwShadowKey), hwShadowKey,
                entryKey);
    return existing(hwShadowKey).getEntry(entryKey);
  }
  // Has the entry deleted by the next schanCmds() of its key; without effect where there is none. Fails as
  // setEntry() does.
  void deleteEntry(Key hwShadowKey, EntryKey const& entryKey) {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "ExactMatchTable", " shadowName : {} hwShadowKey {}",
                this->shadowName(hwShadowKey), hwShadowKey);
    this->hwTableStats()->entryDelCntInc(1);
    existing(hwShadowKey).deleteEntry(entryKey);
  }
  // The commands that bring the chip in line with the store for this key. An entry that is to be deleted
  // leaves the store, which publishes the key. Fails as setEntry() does.
  Cmds schanCmds(Key hwShadowKey, EntryKey const& entryKey,
                 Dovel::Ptr<Asic::LogEntryWrapperBase> const& logEntry) const {
    Shadow const& shadow = existing(hwShadowKey);
    return shadow.schanCmds(this->getFapmask(hwShadowKey), this->hwTableKey().fapRevision(), entryKey, false,
                            logEntry);
  }

  // Null where there is none.
  Dovel::Ptr<Shadow> shadow(Key hwShadowKey) {
    return Dovel::Ptr<Shadow>(static_cast<Shadow*>(this->hwShadow(hwShadowKey)));
  }
  Dovel::Ptr<Shadow const> shadowConst(Key hwShadowKey) const {
    return Dovel::Ptr<Shadow const>(static_cast<Shadow const*>(this->hwShadow(hwShadowKey)));
  }

  // Made when it is first asked for.
  RequiredStatus const& loamCmdletRequiredStatusIs() {
    if (loamCmdletRequiredStatus_ == nullptr)
      loamCmdletRequiredStatus_ = Dovel::ptrIsImpl<Hardware::Loam::LoamCmdletRequiredStatus>(tableName());
    return loamCmdletRequiredStatus_;
  }
  // Hands it out; the next one is made anew.
  RequiredStatus loamCmdletRequiredStatusDel() { return std::exchange(loamCmdletRequiredStatus_, nullptr); }

  int addShadow(Key hwShadowKey) override;
  void delShadow(Key hwShadowKey) override {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "ExactMatchTable", " shadowKey: {}", hwShadowKey);
    Base::delShadow(hwShadowKey);
  }
  // The table starts empty.
  void initShadow(Key hwShadowKey) override {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "ExactMatchTable", " hwShadowKey: {}", hwShadowKey);
  }

  std::uint32_t entryDataMaxSize() const override { return Traits::entryDataMaxSize; }
  std::uint32_t entryDataMaxSizeBits() const override { return Traits::entryDataMaxSize * 8; }
  Dovel::String chipName() const override { return Traits::namespaceName; }

 protected:
  using Base::Base;

  void handleInitialized() {
    this->shadowModeIs(LoamAsicUtils::ShadowType::exactMatch);
    this->bcmGroupAddrInfoIs(TableDescriptor::TableDescriptorIs());
    this->flushHelperHolderIs(
        Dovel::ptrIsImpl<HwWriterFlushHelperHolder>(this->hwTableManager()->loamStatus(), this->mdbStatus()));
    this->tableClassIs(1);
    for (std::uint32_t const block : Traits::blocks) this->tableBlocksIs(Hardware::Block{block});
    this->sharedShadowIs(Traits::sharedShadow);
    if constexpr (requires(Entry entry) { entry.sweepBit(); }) this->hasMarkSweepIs(true);
    this->markSweepTableSmIs(this->hwTableManager().ptr(), this, this->hwTableStats().ptr());
  }
  void onDelete() { DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "ExactMatchTable", "{}", this->name()); }

 private:
  static void traceKey(EntryKey const& key) {
    if (!Traits::_defaultTraceHandle().isOn(9)) [[likely]]
      return;
    std::size_t at = 0;
    auto const trace = [&](auto const& member) {
      DOVEL_TRACE(Traits::_defaultTraceHandle(), 9, "ExactMatchTable", "{} = {}", EntryKey::memberNames[at++],
                  member);
    };
    std::apply([&](auto const&... member) { (trace(member), ...); }, EntryKey::members(key));
  }
  Shadow& existing(Key hwShadowKey) const {
    ASIC_GRACEFUL_ASSERT(this->hwShadowCollHas(hwShadowKey), "hwShadowCollHas( shadowKey )", "shadowKey {}{}",
                         hwShadowKey, " does not exist in the shadow collection");
    auto* const found = static_cast<Shadow*>(this->hwShadow(hwShadowKey));
    ASIC_GRACEFUL_ASSERT(found != nullptr, "shadow", "No shadow in hwShadowColl for {}", hwShadowKey);
    return *found;
  }

  RequiredStatus loamCmdletRequiredStatus_;
};

template <class T, class Unit>
int ExactMatchTable<T, Unit>::addShadow(Key hwShadowKey) {
  DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "ExactMatchTable", " shadowKey: {}", hwShadowKey);
  if (this->hwShadowCollHas(hwShadowKey)) return 0;
  auto const& manager = *this->hwTableManager();
  this->hwShadowCollIs(Dovel::ptrIsImpl<Shadow>(
      this->name(), hwShadowKey, this->hwTableKey().fapRevision(),
      Dovel::Ptr<LoamAsicUtils::BcmGroupAddrInfo const>(this->bcmGroupAddrInfo()), manager.loamStatus(),
      Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const>(loamCmdletRequiredStatusIs()),
      this->flushHelperHolder(), this->errReporter(), manager.dmaMemPoolManager(), manager.entityManager(),
      tableTypeName()));
  initShadow(hwShadowKey);
  return 0;
}

}  // namespace LoamSharedHwTables
