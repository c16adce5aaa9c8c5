#include "platform/switch/LoamAsicUtils/HwEmTableBase.h"

#include "platform/switch/LoamAsicUtils/HwEmShadowBase.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("HwEmTableBase")

using Cmds = Dovel::Ptr<Sluice::SchanCmds>;

}  // namespace

HwEmTableBase::HwEmTableBase(Dovel::String const& name, HwTableKey const& key,
                             Dovel::Ptr<TableManager> const& manager,
                             Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus)
    : HwCommonShadowTableBase(name, key, manager),
      mdbStatus_(mdbStatus),
      errReporter_(Dovel::ptrIsImpl<HwBulkDownloadErrReporter>()) {}

Cmds HwEmTableBase::download(Dovel::String const& fapType, Sluice::Fapmask const& fapmask) const {
  auto const revision = hwTableKey().fapRevision();
  return joined(fapmask, [&](HwShadowBase const& shadow, Sluice::Fapmask const& mask) {
    Cmds bulk = shadow.download(fapType, revision, mask);
    if (bulk != nullptr || shadow.applicableFapmask(mask) == Sluice::Fapmask()) return bulk;
    return static_cast<HwEmShadowBase const&>(shadow).entryByEntryCmds(revision, mask);
  });
}

void HwEmTableBase::scheduleMarkAndSweep(Sluice::Fapmask const& fapmask) {
  Sluice::Fapmask mask = fapmask;
  mask &= this->fapmask();
  if (mask != Sluice::Fapmask()) markSweepTableSm_->requestIs(mask);
}

Cmds HwEmTableBase::markTableInHw(HwShadowKey key) {
  return formFlushCmds(getFapmask(key), FlushCmdType::flushCmdMark);
}
Cmds HwEmTableBase::sweepTableInHw(HwShadowKey key) {
  return formFlushCmds(getFapmask(key), FlushCmdType::flushCmdSweep);
}
Cmds HwEmTableBase::formFlushCmds(Sluice::Fapmask const& fapmask, FlushCmdType type) const {
  return joined(fapmask, [&](HwShadowBase const& shadow, Sluice::Fapmask const& mask) {
    return shadow.formFlushCmds(hwTableKey().fapRevision(), mask, type);
  });
}

void HwEmTableBase::processFapIdDel(Sluice::FapId fap) {
  markSweepTableSm_->fapGone(fap);
  HwCommonShadowTableBase::processFapIdDel(fap);
}

void HwEmTableBase::handleGlobalStatus(MarkSweepRequestKey const& request) {
  DOVEL_TRACE(_defaultTraceHandle(), 5, "HwEmTableBase", "table {} is reconciled on FAPs {}", name(),
              request.fapmask);
  reconciled_ = request;
}

void HwEmTableBase::addBulkDownloadErrConfig(Dovel::String const& name,
                                             Dovel::Ptr<HwBulkDownloadErrConfig> const& config) {
  errReporter_->configIs(name, config);
}
void HwEmTableBase::deleteBulkDownloadErrConfig(Dovel::String const& name) { errReporter_->configDel(name); }

}  // namespace LoamAsicUtils
