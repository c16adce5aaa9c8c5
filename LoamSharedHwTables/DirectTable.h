// A table of rows that are addressed by index. T is the table's class, Unit its generated part: records,
// constants, and by their presence a preset view and initial contents.
//
// Writing and commanding are two steps: setEntry() changes the shadow's store and publishes the key, and
// sends nothing. Who watches the store asks schanCmds() for the commands of a key, made from what the store
// holds by then, so that a key which was written often costs one command.
//
// A table belongs to the thread of its agent.
#pragma once

#include "LoamSharedHwTables/DirectShadow.h"
#include "LoamSharedHwTables/MemoryTableDescriptor.h"
#include "platform/switch/LoamAsicUtils/TableManager.h"

namespace LoamSharedHwTables {

template <class T, class Unit>
class DirectTable : public Dovel::Tracked<T, LoamAsicUtils::HwDirectTableBase>, public Unit {
  using Base = Dovel::Tracked<T, LoamAsicUtils::HwDirectTableBase>;
  using Key = LoamAsicUtils::HwShadowKey;
  using Cmds = Dovel::Ptr<Sluice::SchanCmds>;

 public:
  using Traits = typename Unit::Traits;
  using Entry = typename Unit::Entry;
  using EntryKey = typename Unit::EntryKey;
  using Shadow = DirectShadow<Unit>;
  using TableDescriptor = MemoryTableDescriptor<Unit, LoamAsicUtils::BcmMemInfo>;

  static Dovel::String tableName() { return Traits::tableName; }
  static Dovel::String tableTypeName() { return Traits::tableTypeName; }
  static Dovel::String bcmMemName() { return Traits::description().chipName; }
  static Dovel::String tag() { return Traits::description().tag; }
  static Dovel::Ptr<TableDescriptor> tableDescriptorFactory() { return TableDescriptor::TableDescriptorIs(); }
  // The arguments are those of the shadow's constructor.
  template <class... Args>
  static Dovel::Ptr<Shadow> shadowFactory(Args const&... args) {
    return Dovel::ptrIsImpl<Shadow>(args...);
  }

  // Stores one entry under the shadow of the key, adding it or replacing what was there. Counts the attempt,
  // then fails in the style of Asic::mode where there is no such shadow.
  void setEntry(Key hwShadowKey, Entry const& entry) {
    this->hwTableStats()->entryAddCntInc(1);
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "DirectTable", " shadowName : {} hwShadowKey {} entry : {}",
                this->shadowName(hwShadowKey), hwShadowKey, entry);
    existing(hwShadowKey).setEntry(entry);
  }
  // What is stored under the key, else an entry of that key with the default payload: a direct table has a
  // value at every index. Fails as setEntry() does.
  Entry getEntry(Key hwShadowKey, EntryKey const& entryKey) const {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "DirectTable", " shadowName : {} hwShadowKey {} entry : {}",
                this->shadowName(hwShadowKey), hwShadowKey, entryKey);
    return existing(hwShadowKey).getEntry(entryKey);
  }
  // Removes an entry; without effect where there is none. On the chip the row gets the default payload.
  void deleteEntry(Key hwShadowKey, EntryKey const& entryKey) {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "DirectTable", " shadowName : {} hwShadowKey {} entry : {}",
                this->shadowName(hwShadowKey), hwShadowKey, entryKey);
    this->hwTableStats()->entryDelCntInc(1);
    existing(hwShadowKey).deleteEntry(entryKey);
  }
  // The commands that bring the chip in line with the store for this key, on the FAPs that a write for the
  // shadow goes to. Fails as setEntry() does.
  Cmds schanCmds(Key hwShadowKey, EntryKey const& entryKey,
                 Dovel::Ptr<Asic::LogEntryWrapperBase> const& logEntry) const {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "DirectTable", " hwShadowKey {} entryKey : {}", hwShadowKey,
                entryKey);
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

  int addShadow(Key hwShadowKey) override;
  void initShadow(Key hwShadowKey) override {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "DirectTable", " hwShadowKey: {}", hwShadowKey);
    if (auto const added = shadow(hwShadowKey)) added->initPresetEntry();
    if constexpr (requires(T& table) { table.userInitHwTable(hwShadowKey); }) {
      static_cast<T*>(this)->userInitHwTable(hwShadowKey);
    }
  }

  std::uint32_t entryDataMaxSize() const override { return Traits::entryDataMaxSize; }
  std::uint32_t entryDataMaxSizeBits() const override { return Traits::entryDataMaxSize * 8; }
  bool hasParitySupport() const override { return Traits::description().hasParitySupport; }
  Dovel::String chipName() const override { return Traits::namespaceName; }

 protected:
  using Base::Base;

  void handleInitialized() {
    this->tableRankIs(Traits::tableRank);
    this->sharedShadowIs(Traits::sharedShadow);
    this->shadowModeIs(Shadow::kShadowType);
    this->overrideShadowAttributes();
    this->bcmGroupAddrInfoIs(tableDescriptorFactory());
    this->tableClassIs(1);
    for (std::uint32_t const block : Traits::blocks) {
      this->tableBlocksIs(Hardware::Block{block});
      this->addHwTableShadowInfo();
    }
  }
  void onDelete() {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "DirectTable", "{}", this->name());
    this->delHwTableShadowInfo();
  }

 private:
  Shadow& existing(Key hwShadowKey) const {
    ASIC_GRACEFUL_ASSERT(this->hwShadowCollHas(hwShadowKey), "hwShadowCollHas( hwShadowKey )",
                         "hwShadowKey {}{}", hwShadowKey, " does not exist in the shadow collection");
    auto* const found = static_cast<Shadow*>(this->hwShadow(hwShadowKey));
    ASIC_GRACEFUL_ASSERT(found != nullptr, "shadow", "No shadow in hwShadowColl for {}", hwShadowKey);
    return *found;
  }
};

template <class T, class Unit>
int DirectTable<T, Unit>::addShadow(Key hwShadowKey) {
  auto const revision = this->hwTableKey().fapRevision();
  DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "DirectTable", " fapId: {} fapRevision: {} tableName: {}",
              hwShadowKey.fapId(), revision, tableName());
  if (!this->hwShadowCollHas(hwShadowKey)) {
    Dovel::String name = revision.shortForm();
    name.append(this->bcmGroupAddrInfo()->firstMemory().name());
    auto const& manager = *this->hwTableManager();
    this->hwShadowCollIs(
        shadowFactory(name, hwShadowKey, revision,
                      Dovel::Ptr<LoamAsicUtils::BcmGroupAddrInfo const>(this->bcmGroupAddrInfo()),
                      manager.loamStatus(), manager.loamCmdletRequiredStatus(), manager.dmaMemPoolManager(),
                      manager.entityManager(), tableTypeName()));
    initShadow(hwShadowKey);
  }
  DOVEL_TRACE(Traits::_defaultTraceHandle(), 3, "DirectTable", " fapId: {} shadowSize {}",
              hwShadowKey.fapId(), this->bcmGroupAddrInfo()->minShadowSize());
  return 0;
}

}  // namespace LoamSharedHwTables
