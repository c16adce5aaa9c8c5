// Reads an exact-match table back from a chip, by the chip's flush machine. The thread is that of the table.
#pragma once

#include <functional>

#include "platform/switch/LoamAsicUtils/HwEmTableBase.h"
#include "platform/switch/Sluice/Channel.h"

namespace LoamAsicUtils {

// Calls visit(entry) for each entry of the table that the FAP holds, in an order of the chip's: 24 bytes that
// stand there during the call, in which nothing may be sent. Adds what was sent to the outcome. False where
// the reading broke off: the chip didn't answer or refused, or no DMA buffer was to be had.
bool readEntries(Sluice::Channel& channel, HwEmTableBase const& table, Sluice::FapId fap,
                 Sluice::SendOutcome& outcome,
                 std::function<void(std::span<std::uint8_t const>)> const& visit);

}  // namespace LoamAsicUtils
