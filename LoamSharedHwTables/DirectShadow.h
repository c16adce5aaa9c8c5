// The shadow of a direct table. Unit is the table's generated part. See HwShadowBase.h for the thread rule.
#pragma once

#include "LoamSharedHwTables/ShadowAccessor.h"
#include "LoamSharedHwTables/StoredShadow.h"

namespace LoamSharedHwTables {

template <class Unit>
class DirectShadow;

template <class Unit>
using DirectShadowOf =
    StoredShadow<DirectShadow<Unit>, Unit,
                 Dovel::Tracked<DirectShadow<Unit>, LoamAsicUtils::DirectKeyBasedShadowBase>>;

template <class Unit>
class DirectShadow final : public DirectShadowOf<Unit> {
  using Base = DirectShadowOf<Unit>;
  using Cmds = Dovel::Ptr<Sluice::SchanCmds>;
  using Accessor = LoamAsicUtils::ShadowAccessor<DirectShadow>;
  using ConstAccessor = LoamAsicUtils::ShadowAccessor<DirectShadow const>;

 public:
  using typename Base::Entry;
  using typename Base::EntryKey;
  using typename Base::EntryStorage;

  static constexpr auto kShadowType = static_cast<LoamAsicUtils::ShadowType>(Unit::Traits::shadowMode);
  static constexpr auto kTableType = LoamAsicUtils::TableType::memory;

  // Mounts the store and empties it: the content of a new shadow comes from whoever writes it again. Throws
  // what the store throws where it can't be mounted.
  DirectShadow(Dovel::String const& name, LoamAsicUtils::HwShadowKey hwShadowKey,
               Hardware::Loam::FapRevision const& fapRevision,
               Dovel::Ptr<LoamAsicUtils::BcmGroupAddrInfo const> const& bcmGroupAddrInfo,
               Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
               Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& loamCmdletRequiredStatus,
               Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> const& dmaMemPoolManager,
               Dovel::Ptr<Statebase::EntityManager> const& entityManager, Dovel::String const& tableTypeName)
      : Base(tableTypeName, name, hwShadowKey, fapRevision, bcmGroupAddrInfo, loamStatus,
             loamCmdletRequiredStatus, dmaMemPoolManager, entityManager) {
    handleInitialized();
  }
  ~DirectShadow() override {
    this->markBeingDestroyed();
    onDelete();
  }

  Entry getEntry(EntryKey const& key) const {
    return ConstAccessor(this).template getEntry<Entry, EntryKey, kShadowType, kTableType>(key);
  }
  void deleteEntry(EntryKey const& key) {
    Accessor(this).template deleteEntry<Entry, EntryKey, kShadowType>(key);
  }
  Cmds schanCmds(Sluice::Fapmask const& fapmask, Hardware::Loam::FapRevision const& fapRevision,
                 EntryKey const& key, bool isDelete,
                 Dovel::Ptr<Asic::LogEntryWrapperBase> const& logEntry) const {
    return ConstAccessor(this).template schanCmds<EntryKey, kShadowType>(fapmask, fapRevision, key, isDelete,
                                                                         logEntry);
  }

  // Removes all entries.
  void collCleanup() { this->entriesDel(); }

  Cmds clearShadow(Hardware::Loam::FapRevision const& fapRevision, Sluice::Fapmask const& fapmask) override {
    initPresetEntry();
    Cmds cmds = clearCmds(fapRevision, fapmask);
    if (cmds != nullptr) collCleanup();
    return cmds;
  }
  Cmds clearCmds(Hardware::Loam::FapRevision const& fapRevision,
                 Sluice::Fapmask const& fapmask) const override {
    return ConstAccessor(this).template downloadWorker<Entry, EntryKey, kShadowType, kTableType>(
        fapRevision, fapmask, true);
  }
  Cmds download(Dovel::String const& fapType, Hardware::Loam::FapRevision const& fapRevision,
                Sluice::Fapmask const& fapmask) const override;
  std::uint32_t entrySize() const override { return Entry::kDataBytes; }

  // Makes the presets of the table's view, where it has such, the payload of rows without an entry.
  void initPresetEntry() {
    if constexpr (requires { typename Unit::PresetView; })
      this->initShadow(typename Unit::PresetView().dataBytes().data());
  }

 private:
  void handleInitialized() {
    DOVEL_TRACE(Unit::Traits::_defaultTraceHandle(), 8, "Shadow", "tableName: {} ", this->name());
    this->mountVault();
    collCleanup();
    this->initDefaultEntry();
  }
  void onDelete() {
    DOVEL_TRACE(Unit::Traits::_defaultTraceHandle(), 8, "Shadow", "{}", this->name());
    if (this->bcmGroupAddrInfo() == nullptr) return;
    this->cleanupDefaultEntry();
    collCleanup();
    this->unmountVault();
  }
};

template <class Unit>
typename DirectShadow<Unit>::Cmds DirectShadow<Unit>::download(Dovel::String const& fapType,
                                                               Hardware::Loam::FapRevision const& fapRevision,
                                                               Sluice::Fapmask const& fapmask) const {
  FASTLOG(FastLog::defaultFastLogHandle, "fapType: {}, fapRevision: {}, downloadFapmask: {}", fapType.view(),
          fapRevision.shortForm().view(), Sluice::valueToStrep(fapmask).view());
  DOVEL_TRACE(Unit::Traits::_defaultTraceHandle(), 8, "Shadow",
              "fapType: {}, fapRevision: {}, downloadFapmask: {}", fapType, fapRevision, fapmask);
  return ConstAccessor(this).template download<Entry, EntryKey, kShadowType, kTableType>(fapType, fapRevision,
                                                                                         fapmask);
}

}  // namespace LoamSharedHwTables
