// The commands that reach many entries of an exact-match database at once: bulk writes and passes of the
// flush machine. See Sluice/SchanCmd.h for the thread rule.
#pragma once

#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"
#include "platform/switch/Hardware/ChipType.h"
#include "platform/switch/LoamAsicUtils/BcmGroupAddrInfo.h"
#include "platform/switch/LoamAsicUtils/FlushHelperHolder.h"
#include "platform/switch/LoamAsicUtils/HwBulkDownloadErrReporter.h"
#include "platform/switch/Sluice/SchanCmd.h"

namespace LoamAsicUtils {

// Gives the chip `entries` entries of `words` 32-bit words each, from the buffer's start. Where some FAP of
// the mask doesn't take all of them, the reporter is told under the table's name. The command keeps the
// buffer until it is done with. The memory must have the core as an instance.
Dovel::Ptr<Sluice::SchanCmd> emGenericBulkWriteCommandFactory(
    Sluice::Fapmask const& fapmask, Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
    LoamMdb::PhysicalTableId physicalTableId, Hardware::Loam::CoreInfo coreInfo, unsigned int words,
    Dovel::Ptr<BcmRegMemInfo const> const& memory, unsigned int entries,
    Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> const& buffer, HwShadowKey hwShadowKey,
    Dovel::Ptr<HwBulkDownloadErrReporter> const& errReporter, Dovel::String const& name);

// Has the flush machine run the helper's rule and action.
Dovel::Ptr<Sluice::SchanCmd> emFlushCommandFactory(Sluice::Fapmask const& fapmask,
                                                   BcmInstanceInfo const& instance,
                                                   FlushHelper const& helper);

// A pass that reads what the rule matches into the buffer.
class EmFlushReadCommand : public Sluice::SchanCmdBase {
 public:
  // Of a pass that was answered with ok; 0 otherwise.
  std::uint32_t entries() const { return answer_.entries; }
  // Where another command goes on; 0 at the end of the database.
  std::uint32_t next() const { return answer_.next; }
  Sluice::SchanStatus status() const { return status_; }

 protected:
  Sluice::FlushAnswer answer_{};
  Sluice::SchanStatus status_ = Sluice::SchanStatus::noResponse;
};

// `fapmask` has one FAP; `from` is 0 for a new walk, next() of the command before for its continuation.
Dovel::Ptr<EmFlushReadCommand> emFlushReadCommandFactory(
    Sluice::Fapmask const& fapmask, BcmInstanceInfo const& instance, FlushHelper const& helper,
    Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> const& buffer, std::uint32_t from);

}  // namespace LoamAsicUtils
