#include "platform/switch/LoamAsicUtils/HwCommonTableBase.h"

#include "platform/switch/LoamAsicUtils/TableManager.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("HwCommonTableBase")

using Cmds = Dovel::Ptr<Sluice::SchanCmds>;

}  // namespace

HwTableStats::~HwTableStats() { markBeingDestroyed(); }

HwCommonTableBase::HwCommonTableBase(Dovel::String const& name, HwTableKey const& key,
                                     Dovel::Ptr<TableManager> const& manager)
    : name_(name),
      hwTableKey_(key),
      hwTableManager_(manager),
      hwTableStats_(Dovel::ptrIsImpl<HwTableStats>()) {}
HwCommonTableBase::~HwCommonTableBase() = default;

void HwCommonTableBase::addHwTableShadowInfo() {
  hwTableManager_->tableShadowInfoIs(hwTableKey_, tableBlock_);
}
void HwCommonTableBase::delHwTableShadowInfo() { hwTableManager_->tableShadowInfoDel(hwTableKey_); }

Sluice::Fapmask HwCommonShadowTableBase::getFapmask(HwShadowKey key) const {
  if (sharedShadow_ || key.fapId().isNull()) return fapmask();
  Sluice::Fapmask one;
  one.fapIdIs(key.fapId(), true);
  return one;
}

bool HwCommonShadowTableBase::processFapIdAdd(Dovel::Ptr<Hardware::Loam::FapControlData const> const& fap) {
  DOVEL_TRACE(_defaultTraceHandle(), 5, "HwCommonShadowTableBase", "table {} FAP {} revision {}", name(),
              fap->fapId(), fap->fapRevision());
  if (fap->fapRevision() != hwTableKey().fapRevision()) return false;
  fapIdIs(fap->fapId(), true);
  addShadow(shadowKeyOf(fap->fapId()));
  return true;
}

void HwCommonShadowTableBase::processFapIdDel(Sluice::FapId fap) {
  DOVEL_TRACE(_defaultTraceHandle(), 5, "HwCommonShadowTableBase", "table {} FAP {}", name(), fap);
  if (!fapmask().fapId(fap)) return;
  fapIdIs(fap, false);
  if (!sharedShadow_ || fapmask() == Sluice::Fapmask()) delShadow(shadowKeyOf(fap));
}

void HwCommonShadowTableBase::delShadow(HwShadowKey key) {
  auto const found = hwShadowColl_.find(key);
  if (found == hwShadowColl_.end()) return;
  // Outlives its place in the collection, so that its end finds the table in order.
  Dovel::Ptr<HwShadowBase> const shadow = found->second;
  if (ShadowWatcher* const watcher = hwTableManager()->shadowWatcher()) watcher->shadowGoes(*this, *shadow);
  hwShadowColl_.erase(key);
}

Dovel::String HwCommonShadowTableBase::shadowName(HwShadowKey key) const {
  HwShadowBase const* const shadow = hwShadow(key);
  return shadow == nullptr ? Dovel::String() : shadow->name();
}

void HwCommonShadowTableBase::hwShadowCollIs(Dovel::Ptr<HwShadowBase> const& shadow) {
  hwShadowColl_[shadow->hwShadowKey()] = shadow;
  if (ShadowWatcher* const watcher = hwTableManager()->shadowWatcher()) watcher->shadowComes(*this, *shadow);
}

Cmds HwCommonShadowTableBase::download(Dovel::String const& fapType, Sluice::Fapmask const& fapmask) const {
  return joined(fapmask, [&](HwShadowBase const& shadow, Sluice::Fapmask const& mask) {
    return shadow.download(fapType, hwTableKey().fapRevision(), mask);
  });
}

Cmds HwCommonShadowTableBase::clearShadow(HwShadowKey key) {
  return joined(getFapmask(key), [&](HwShadowBase& shadow, Sluice::Fapmask const& mask) {
    return shadow.clearShadow(hwTableKey().fapRevision(), mask);
  });
}

Cmds HwCommonShadowTableBase::clearTableInHw(HwShadowKey key) { return clearFapsInHw(getFapmask(key)); }

Cmds HwCommonShadowTableBase::clearFapsInHw(Sluice::Fapmask const& fapmask) const {
  return joined(fapmask, [&](HwShadowBase const& shadow, Sluice::Fapmask const& mask) {
    return shadow.clearCmds(hwTableKey().fapRevision(), mask);
  });
}

}  // namespace LoamAsicUtils
