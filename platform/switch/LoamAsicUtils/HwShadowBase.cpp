#include "platform/switch/LoamAsicUtils/HwShadowBase.h"

#include <cstring>

#include "platform/switch/LoamAsicUtils/DirectShadowBase.h"
#include "platform/switch/LoamAsicUtils/MemoryCommands.h"
#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("HwShadowBase")

}  // namespace

Sluice::Fapmask HwShadowBase::applicableFapmask(Sluice::Fapmask const& fapmask) const {
  if (hwShadowKey_.fapId().isNull()) return fapmask;
  Sluice::Fapmask own;
  own.fapIdIs(hwShadowKey_.fapId(), true);
  return own &= fapmask;
}

void DirectShadowBase::defaultEntryIs(unsigned char const* data) {
  DOVEL_ASSERT(defaultEntry_ != nullptr, "LoamAsicUtils::DirectShadowBase", "{} has no default entry",
               name());
  std::memcpy(defaultEntry_.get(), data, entrySize());
}

Dovel::Ptr<Sluice::SchanCmds> DirectShadowBase::schanCmdsWorker(
    Sluice::Fapmask const& fapmask, Hardware::Loam::FapRevision const& fapRevision, unsigned char arrayIndex,
    unsigned int entryIndex, unsigned char const* data) const {
  auto cmds = Sluice::schanCmdsFactory();
  for (auto const& memory : bcmGroupAddrInfo()->memories()) {
    if (!memory->hasRow(arrayIndex, entryIndex)) {
      DOVEL_TRACE(_defaultTraceHandle(), 8, "DirectShadowBase",
                  "shadow {} revision {}: memory {} has no row {} in array {}", name(), fapRevision,
                  memory->name(), entryIndex, arrayIndex);
      continue;
    }
    forEachInstance(*memory, [&](BcmInstanceInfo const& instance) {
      cmds->cmdEnq(memoryWriteCmdFactory(fapmask, *memory, instance, arrayIndex, entryIndex, data));
    });
  }
  return cmds;
}

}  // namespace LoamAsicUtils
