// The commands that write memories of the chip. See SchanCmd.h for the thread rule.
#pragma once

#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"
#include "platform/switch/Hardware/Status.h"
#include "platform/switch/LoamAsicUtils/BcmGroupAddrInfo.h"
#include "platform/switch/Sluice/SchanCmd.h"

namespace LoamAsicUtils {

// Writes one row, the memory's entry size of bytes at `data`, which are copied. The row must be one of the
// memory's.
Dovel::Ptr<Sluice::SchanCmd> memoryWriteCmdFactory(Sluice::Fapmask const& fapmask,
                                                   BcmRegMemInfo const& memory,
                                                   BcmInstanceInfo const& instance, std::uint8_t array,
                                                   std::uint32_t entry, unsigned char const* data);

// Writes `queued` rows of the buffer, from its start, to the memory: from the first position on, one after
// the other, across the ends of arrays, in each instance from the first to the last. The command keeps the
// buffer until it is done with. Rows past the memory's end are the chip's to refuse.
Dovel::Ptr<Sluice::SchanCmd> memoryWriteDmamemPoolBulkCmdFactory(
    Sluice::Fapmask const& fapmask,
    Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& loamCmdletRequiredStatus,
    std::uint8_t firstArray, std::uint32_t firstEntry, std::uint16_t entrySize, std::uint64_t dmaAddress,
    Dovel::Ptr<BcmRegMemInfo const> const& memory, InstanceId firstInstance, InstanceId lastInstance,
    std::uint32_t queued, Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> const& buffer);

// The same the other way round: reads rows of one instance of the memory into the buffer.
Dovel::Ptr<Sluice::SchanCmd> memoryReadBulkCmdFactory(
    Sluice::Fapmask const& fapmask, BcmRegMemInfo const& memory, BcmInstanceInfo const& instance,
    std::uint32_t firstRow, std::uint32_t rows,
    Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> const& buffer);

}  // namespace LoamAsicUtils
