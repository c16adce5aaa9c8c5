#include "platform/switch/LoamAsicUtils/HwEmShadowBase.h"

#include "platform/switch/LoamAsicUtils/EmBulkCommands.h"
#include "platform/switch/LoamAsicUtils/HwFlushTableHolderContext.h"

namespace LoamAsicUtils {

using Cmds = Dovel::Ptr<Sluice::SchanCmds>;

Cmds HwEmShadowBase::clearShadow(Hardware::Loam::FapRevision const& fapRevision,
                                 Sluice::Fapmask const& fapmask) {
  Cmds cmds = clearCmds(fapRevision, fapmask);
  if (cmds != nullptr) collCleanup();
  return cmds;
}

Cmds HwEmShadowBase::clearCmds(Hardware::Loam::FapRevision const& fapRevision,
                               Sluice::Fapmask const& fapmask) const {
  return formFlushCmds(fapRevision, fapmask, FlushCmdType::flushCmdClear);
}

Cmds HwEmShadowBase::formFlushCmds(Hardware::Loam::FapRevision const& /*fapRevision*/,
                                   Sluice::Fapmask const& fapmask, FlushCmdType type) const {
  Sluice::Fapmask const applicable = applicableFapmask(fapmask);
  FlushHelperHolder const* const helpers = helpersFor(type);
  if (applicable == Sluice::Fapmask() || helpers == nullptr) return nullptr;
  Cmds cmds;
  for (auto const& memory : bcmGroupAddrInfo()->memories()) {
    auto const table = Dovel::ptrDynamicCast<BcmEmTableInfo>(memory);
    FlushHelper const* const helper =
        helpers->helper(LoamMdb::PhysicalTableId{table->physicalTableId()}, type);
    if (helper == nullptr) continue;
    if (cmds == nullptr) cmds = Sluice::schanCmdsFactory();
    forEachInstance(*memory, [&](BcmInstanceInfo const& instance) {
      cmds->cmdEnq(emFlushCommandFactory(applicable, instance, *helper));
    });
  }
  return cmds;
}

FlushHelperHolder const* HwEmShadowBase::helpersFor(FlushCmdType type) const {
  if (type == FlushCmdType::flushCmdClear) return flushHelperHolder_.ptr();
  if (flushTable_ == nullptr) {
    auto const factory =
        HwFlushTableHolderContext::singleton().hwFlushFactory(HwTableKey(name(), fapRevision()));
    if (!factory) return nullptr;
    flushTable_ = factory(fapRevision(), loamStatus(), flushHelperHolder_->mdbStatus());
  }
  return &flushTable_->flushHelperHolder();
}

void HwEmShadowBase::reportBulkDownloadFailure(HwShadowKey hwShadowKey) const {
  if (errReporter_ != nullptr)
    errReporter_->failureIs({.table = name(), .shadow = hwShadowKey, .entries = {}});
}

}  // namespace LoamAsicUtils
