// The base of exact-match tables. A table belongs to the thread of its agent.
#pragma once

#include "platform/switch/LoamAsicUtils/FlushHelperHolder.h"
#include "platform/switch/LoamAsicUtils/HwBulkDownloadErrReporter.h"
#include "platform/switch/LoamAsicUtils/HwCommonTableBase.h"
#include "platform/switch/LoamAsicUtils/MarkSweepTableSm.h"

namespace LoamAsicUtils {

class HwEmTableBase : public HwCommonShadowTableBase {
 public:
  Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus() const { return mdbStatus_; }
  // The rules that clear the table.
  Dovel::Ptr<FlushHelperHolder const> const& flushHelperHolder() const { return flushHelperHolder_; }
  Dovel::Ptr<HwBulkDownloadErrReporter> const& errReporter() const { return errReporter_; }

  // A shadow whose bulk way fails is downloaded key by key.
  Dovel::Ptr<Sluice::SchanCmds> download(Dovel::String const& fapType,
                                         Sluice::Fapmask const& fapmask) const override;

  // Whether the table can be reconciled by marking and sweeping; one that can't is reconciled by reading it.
  bool hasMarkSweep() const { return hasMarkSweep_; }
  // Null only before the table is initialised.
  Dovel::Ptr<MarkSweepTableSm> const& markSweepTableSm() const { return markSweepTableSm_; }
  void scheduleMarkAndSweep(Sluice::Fapmask const& fapmask) override;
  // The commands that mark, or sweep, on the FAPs of the shadow; null where there is nothing to do.
  virtual Dovel::Ptr<Sluice::SchanCmds> markTableInHw(HwShadowKey key);
  virtual Dovel::Ptr<Sluice::SchanCmds> sweepTableInHw(HwShadowKey key);
  // The same for any kind of pass and just these FAPs.
  Dovel::Ptr<Sluice::SchanCmds> formFlushCmds(Sluice::Fapmask const& fapmask, FlushCmdType type) const;

  void processFapIdDel(Sluice::FapId fap) override;
  // The run is done: the chips of its FAPs hold what the shadow holds, but for what they refused.
  void handleGlobalStatus(MarkSweepRequestKey const& request) override;
  // The last run that was done; number 0 before the first.
  MarkSweepRequestKey const& reconciled() const { return reconciled_; }

  // Who is told of a failed bulk download.
  virtual void addBulkDownloadErrConfig(Dovel::String const& name,
                                        Dovel::Ptr<HwBulkDownloadErrConfig> const& config);
  virtual void deleteBulkDownloadErrConfig(Dovel::String const& name);

 protected:
  HwEmTableBase(Dovel::String const& name, HwTableKey const& key, Dovel::Ptr<TableManager> const& manager,
                Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus);

  void flushHelperHolderIs(Dovel::Ptr<FlushHelperHolder const> const& holder) { flushHelperHolder_ = holder; }
  void hasMarkSweepIs(bool has) { hasMarkSweep_ = has; }
  void markSweepTableSmIs(TableManager const* manager, HwCommonTableBase* table, HwTableStats* stats) {
    markSweepTableSm_ = Dovel::ptrIsImpl<MarkSweepTableSm>(manager, table, stats);
  }

 private:
  Dovel::Ptr<Hardware::Loam::MdbStatus const> mdbStatus_;
  Dovel::Ptr<FlushHelperHolder const> flushHelperHolder_;
  Dovel::Ptr<HwBulkDownloadErrReporter> errReporter_;
  Dovel::Ptr<MarkSweepTableSm> markSweepTableSm_;
  MarkSweepRequestKey reconciled_;
  bool hasMarkSweep_ = false;
};

}  // namespace LoamAsicUtils
