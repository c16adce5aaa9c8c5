// The shadow of an exact-match table. A key in it is one that the chip is to hold, or, with the command
// emCommandDelete, one that the chip is to lose and that leaves the store when its command is made. Unit is
// the table's generated part. See HwShadowBase.h for the thread rule.
#pragma once

#include "LoamSharedHwTables/ExactMatchAccessor.h"
#include "LoamSharedHwTables/StoredShadow.h"

namespace LoamSharedHwTables {

template <class Unit>
using ExactMatchShadowOf =
    StoredShadow<ExactMatchShadow<Unit>, Unit,
                 Dovel::Tracked<ExactMatchShadow<Unit>, LoamAsicUtils::HwEmShadowBase>>;

template <class Unit>
class ExactMatchShadow final : public ExactMatchShadowOf<Unit> {
  using Base = ExactMatchShadowOf<Unit>;
  using Cmds = Dovel::Ptr<Sluice::SchanCmds>;
  using ConstAccessor = LoamAsicUtils::ShadowAccessor<ExactMatchShadow const>;

 public:
  using Traits = typename Unit::Traits;
  using typename Base::Entry;
  using typename Base::EntryKey;
  using typename Base::EntryStorage;
  static constexpr auto kTableType = LoamAsicUtils::TableType::exactMatch;

  // Mounts the store and empties it: the content of a new shadow comes from whoever writes it again. Throws
  // what the store throws where it can't be mounted.
  ExactMatchShadow(Dovel::String const& name, LoamAsicUtils::HwShadowKey hwShadowKey,
                   Hardware::Loam::FapRevision const& fapRevision,
                   Dovel::Ptr<LoamAsicUtils::BcmGroupAddrInfo const> const& bcmGroupAddrInfo,
                   Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                   Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& loamCmdletRequiredStatus,
                   Dovel::Ptr<LoamAsicUtils::FlushHelperHolder const> const& flushHelperHolder,
                   Dovel::Ptr<LoamAsicUtils::HwBulkDownloadErrReporter> const& errReporter,
                   Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> const& dmaMemPoolManager,
                   Dovel::Ptr<Statebase::EntityManager> const& entityManager,
                   Dovel::String const& tableTypeName)
      : Base(tableTypeName, name, hwShadowKey, fapRevision, bcmGroupAddrInfo, loamStatus,
             loamCmdletRequiredStatus, flushHelperHolder, errReporter),
        dmaMemPoolManager_(dmaMemPoolManager),
        entityManager_(entityManager) {
    handleInitialized();
  }
  ~ExactMatchShadow() override {
    this->markBeingDestroyed();
    onDelete();
  }

  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> const& dmaMemPoolManager() const {
    return dmaMemPoolManager_;
  }
  Dovel::Ptr<Statebase::EntityManager> const& entityManager() const { return entityManager_; }

  Entry getEntry(EntryKey const& key) const {
    return ConstAccessor(this).template getEntry<Entry, EntryKey>(key);
  }
  // The entry stays, with the command emCommandDelete, until its command is made. Without effect where there
  // is none.
  void deleteEntry(EntryKey const& key);

  // The commands that write the key's entry, or delete the key where the store has none, has one that is to
  // be deleted, which then leaves the store, or isDelete asks for it.
  Cmds schanCmds(Sluice::Fapmask const& fapmask, Hardware::Loam::FapRevision const& fapRevision,
                 EntryKey const& key, bool isDelete,
                 Dovel::Ptr<Asic::LogEntryWrapperBase> const& logEntry) const;

  Cmds download(Dovel::String const& fapType, Hardware::Loam::FapRevision const& fapRevision,
                Sluice::Fapmask const& fapmask) const override;
  Cmds entryByEntryCmds(Hardware::Loam::FapRevision const& fapRevision,
                        Sluice::Fapmask const& fapmask) const override;
  void collCleanup() override { this->entriesDel(); }

 private:
  void handleInitialized() {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "Shadow", "tableName: {} ", this->name());
    this->mountVault();
    collCleanup();
  }
  void onDelete() {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "Shadow", "{}", this->name());
    if (this->bcmGroupAddrInfo() == nullptr) return;
    collCleanup();
    this->unmountVault();
  }

  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> dmaMemPoolManager_;
  Dovel::Ptr<Statebase::EntityManager> entityManager_;
};

template <class Unit>
void ExactMatchShadow<Unit>::deleteEntry(EntryKey const& key) {
  ASIC_GRACEFUL_ASSERT(this->entryStorage() != nullptr, "entryStorage", "shadow {} has no store",
                       this->name());
  bool found = false;
  Entry entry = this->entryStorage()->entryColl(key, found);
  if (!found) return;
  entry.commandIs(LoamAsicUtils::emCommandDelete);
  this->entryStorage()->entryCollIs(entry);
}

template <class Unit>
typename ExactMatchShadow<Unit>::Cmds ExactMatchShadow<Unit>::schanCmds(
    Sluice::Fapmask const& fapmask, Hardware::Loam::FapRevision const& fapRevision, EntryKey const& key,
    bool isDelete, Dovel::Ptr<Asic::LogEntryWrapperBase> const& logEntry) const {
  using LoamAsicUtils::emCommandDelete;
  using LoamAsicUtils::emCommandWrite;
  DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "Shadow", " shadowKey: {} entryKey: {} isDelete: {}",
              this->hwShadowKey(), key, isDelete);
  ASIC_GRACEFUL_ASSERT(this->entryStorage() != nullptr, "entryStorage", "shadow {} has no store",
                       this->name());
  Cmds cmds = Sluice::schanCmdsFactory();
  Entry entry(key);
  bool found = false;
  if (Entry const& stored = this->entryStorage()->entryColl(key, found); found) entry = stored;
  bool const isPending = found && entry.command() == emCommandDelete;
  bool const deletes = !found || isPending || isDelete;
  entry.commandIs(deletes ? emCommandDelete : emCommandWrite);
  if (isPending) this->entryStorage()->entryCollDel(key);
  Sluice::Fapmask const fapmaskOut = this->applicableFapmask(fapmask);
  DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "Shadow", " fapmaskOut: {}", fapmaskOut);
  DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "Shadow", " set entry command for : {}", key);
  ConstAccessor(this).forEachPlace(
      [&](Dovel::Ptr<LoamAsicUtils::BcmRegMemInfo> const& memory, Hardware::Loam::CoreInfo core) {
        cmds->cmdEnq(Dovel::ptrIsImpl<typename Unit::WriteCommand>(
            fapmaskOut, this->loamStatus(), ConstAccessor::physicalTableIdOf(*memory), core, logEntry,
            deletes, true, fapRevision, memory, entry));
      });
  return cmds;
}

template <class Unit>
typename ExactMatchShadow<Unit>::Cmds ExactMatchShadow<Unit>::download(
    Dovel::String const& fapType, Hardware::Loam::FapRevision const& fapRevision,
    Sluice::Fapmask const& fapmask) const {
  FASTLOG(FastLog::defaultFastLogHandle, "fapType: {}, fapRevision: {}, downloadFapmask: {}", fapType.view(),
          fapRevision.shortForm().view(), Sluice::valueToStrep(fapmask).view());
  DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "Shadow", "fapType: {}, fapRevision: {}, downloadFapmask: {}",
              fapType, fapRevision, fapmask);
  Sluice::Fapmask const out = this->applicableFapmask(fapmask);
  if (isEq(out, Sluice::Fapmask())) {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "Shadow",
                " hwShadowKey: {} not applicable for downloadFapmask: {}", this->hwShadowKey(), fapmask);
    return nullptr;
  }
  return ConstAccessor(this)
      .template downloadWorkerKeyBasedFullMdbExactMatch<Entry, EntryKey, false, static_cast<int>(kTableType)>(
          fapRevision, out, false);
}

template <class Unit>
typename ExactMatchShadow<Unit>::Cmds ExactMatchShadow<Unit>::entryByEntryCmds(
    Hardware::Loam::FapRevision const& fapRevision, Sluice::Fapmask const& fapmask) const {
  Cmds cmds = Sluice::schanCmdsFactory();
  if (this->entryStorage() == nullptr) return cmds;
  this->entryStorage()->entryCollForEach([&](Entry const& entry) {
    cmds->cmdsEnq(*schanCmds(fapmask, fapRevision, EntryKey(entry.entryKey()), false, nullptr));
  });
  return cmds;
}

}  // namespace LoamSharedHwTables
