// Shadows of exact-match databases: the chip places their entries, so they are cleared by rule and downloaded
// by key. See HwShadowBase.h for the thread rule.
#pragma once

#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"
#include "platform/switch/LoamAsicUtils/FlushHelperHolder.h"
#include "platform/switch/LoamAsicUtils/HwBulkDownloadErrReporter.h"
#include "platform/switch/LoamAsicUtils/HwShadowBase.h"

namespace LoamAsicUtils {

// What an entry says that the chip is to do with it.
inline constexpr std::uint32_t emCommandWrite = 288;
inline constexpr std::uint32_t emCommandDelete = 320;

class HwEmShadowBase : public HwShadowBase {
 public:
  // The rules that clear the table.
  Dovel::Ptr<FlushHelperHolder const> const& flushHelperHolder() const { return flushHelperHolder_; }
  Dovel::Ptr<HwBulkDownloadErrReporter> const& errReporter() const { return errReporter_; }

  // Removes all entries, without a command.
  virtual void collCleanup() = 0;
  // The commands of all stored keys, one key after the other: the way of a download that can't go in bulk.
  virtual Dovel::Ptr<Sluice::SchanCmds> entryByEntryCmds(Hardware::Loam::FapRevision const& fapRevision,
                                                         Sluice::Fapmask const& fapmask) const = 0;

  Dovel::Ptr<Sluice::SchanCmds> clearShadow(Hardware::Loam::FapRevision const& fapRevision,
                                            Sluice::Fapmask const& fapmask) override;
  Dovel::Ptr<Sluice::SchanCmds> clearCmds(Hardware::Loam::FapRevision const& fapRevision,
                                          Sluice::Fapmask const& fapmask) const override;
  // A pass for each instance of each memory: clearing by the shadow's own rules, marking and sweeping by
  // those of the table's flush table. Null where the shadow serves none of the FAPs or the table has no such
  // rule.
  Dovel::Ptr<Sluice::SchanCmds> formFlushCmds(Hardware::Loam::FapRevision const& fapRevision,
                                              Sluice::Fapmask const& fapmask,
                                              FlushCmdType type) const override;

  // Nothing could be tried in bulk.
  void reportBulkDownloadFailure(HwShadowKey hwShadowKey) const;

 protected:
  HwEmShadowBase(Dovel::String const& name, HwShadowKey hwShadowKey,
                 Hardware::Loam::FapRevision const& fapRevision,
                 Dovel::Ptr<BcmGroupAddrInfo const> const& bcmGroupAddrInfo,
                 Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                 Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& loamCmdletRequiredStatus,
                 Dovel::Ptr<FlushHelperHolder const> const& flushHelperHolder,
                 Dovel::Ptr<HwBulkDownloadErrReporter> const& errReporter)
      : HwShadowBase(name, hwShadowKey, fapRevision, bcmGroupAddrInfo, loamStatus, loamCmdletRequiredStatus),
        flushHelperHolder_(flushHelperHolder),
        errReporter_(errReporter) {}

 private:
  FlushHelperHolder const* helpersFor(FlushCmdType type) const;

  Dovel::Ptr<FlushHelperHolder const> flushHelperHolder_;
  Dovel::Ptr<HwBulkDownloadErrReporter> errReporter_;
  mutable Dovel::Ptr<MarkSweepTableBase> flushTable_;  // taken from its registry when it is first needed
};

}  // namespace LoamAsicUtils
