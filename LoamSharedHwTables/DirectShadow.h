// The shadow of a direct table and the storage of its entries. Unit is the table's generated part. See
// HwShadowBase.h for the thread rule.
#pragma once

#include "LoamSharedHwTables/ShadowAccessor.h"
#include "LoamSharedHwTables/StoredEntry.h"
#include "OrloVault/EntryStorage.h"
#include "runtime/FastLog/FastLog.h"

namespace LoamSharedHwTables {

// The collection `entryColl`, as it is mounted.
template <class Unit>
class DirectEntryStorage final : public OrloVault::EntryStorage<DirectEntryStorage<Unit>, StoredOps<Unit>> {
 public:
  explicit DirectEntryStorage(Dovel::String const& name)
      : OrloVault::EntryStorage<DirectEntryStorage<Unit>, StoredOps<Unit>>(name, typeName()) {}

  static Dovel::String typeName() {
    return Dovel::String(Unit::Traits::tableTypeName).append("::Shadow::EntryStorage");
  }
  static Dovel::Ptr<DirectEntryStorage> EntryStorageIs(Dovel::String const& name) {
    return Dovel::ptrIsImpl<DirectEntryStorage>(name);
  }
};

// Makes the storage known by its type's name to those that mount.
template <class Unit>
class StorageRegistration {
 public:
  StorageRegistration() {
    OrloSharedMem::EntityFactories::factoryIs(
        DirectEntryStorage<Unit>::typeName(),
        [](Dovel::String const& name) { return DirectEntryStorage<Unit>::EntryStorageIs(name); });
  }
};

template <class Unit>
class DirectShadow final
    : public Dovel::Tracked<DirectShadow<Unit>, LoamAsicUtils::DirectKeyBasedShadowBase> {
  using Base = Dovel::Tracked<DirectShadow, LoamAsicUtils::DirectKeyBasedShadowBase>;
  using Cmds = Dovel::Ptr<Sluice::SchanCmds>;
  using Accessor = LoamAsicUtils::ShadowAccessor<DirectShadow>;
  using ConstAccessor = LoamAsicUtils::ShadowAccessor<DirectShadow const>;

 public:
  using Entry = typename Unit::Entry;
  using EntryKey = typename Unit::EntryKey;
  using EntryStorage = DirectEntryStorage<Unit>;

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
      : Base(name, hwShadowKey, fapRevision, bcmGroupAddrInfo, loamStatus, loamCmdletRequiredStatus,
             dmaMemPoolManager, entityManager),
        tableTypeName_(tableTypeName) {
    handleInitialized();
  }
  ~DirectShadow() override {
    this->markBeingDestroyed();
    onDelete();
  }

  static std::string_view typeName() { return Unit::Traits::tableTypeName; }
  Dovel::String const& tableTypeName() const { return tableTypeName_; }
  // Null where something else was mounted in its place.
  Dovel::Ptr<EntryStorage> const& entryStorage() const { return entryStorage_; }

  // Stores one entry, and counts it nowhere but in the store.
  void setEntry(Entry const& entry) {
    ASIC_GRACEFUL_ASSERT(entryStorage_ != nullptr, "entryStorage", "shadow {} has no store", this->name());
    entryStorage_->entryCollIs(entry);
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

  void mountVault() { entryStorage_ = Accessor(this).template mountVault<EntryStorage>(); }
  void unmountVault() { Accessor(this).template unmountVault<EntryStorage>(); }

  // Removes all entries.
  void collCleanup() {
    Dovel::Ptr<EntryStorage> const storage = entryStorage_;
    if (storage != nullptr) storage->entryCollDelAll();
  }

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
    mountVault();
    collCleanup();
    this->initDefaultEntry();
  }
  void onDelete() {
    DOVEL_TRACE(Unit::Traits::_defaultTraceHandle(), 8, "Shadow", "{}", this->name());
    if (this->bcmGroupAddrInfo() == nullptr) return;
    this->cleanupDefaultEntry();
    collCleanup();
    unmountVault();
  }

  Dovel::String tableTypeName_;
  Dovel::Ptr<EntryStorage> entryStorage_;
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
