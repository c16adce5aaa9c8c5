// For tests that watch what a chip holds. Calls come in the middle of the chip's own, on its thread, so it is
// given nothing to do there; look-ups may be made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/switch/Sluice/FapId.h"

namespace Chip {

class ChipObserver {
 public:
  virtual ~ChipObserver() = default;
  // Just before the row changes from one to the other.
  virtual void rowWritten(Sluice::FapId fap, std::uint32_t block, std::uint32_t row,
                          std::span<std::byte const> before, std::span<std::byte const> after) = 0;
  // Just before the exact-match entry changes; empty where there is none before, or after.
  virtual void entryWritten(Sluice::FapId /*fap*/, std::uint32_t /*physicalTable*/, std::uint32_t /*tid*/,
                            std::span<std::byte const> /*before*/, std::span<std::byte const> /*after*/) {}
  // The FAP has become blank.
  virtual void wasReset(Sluice::FapId fap) = 0;
};

}  // namespace Chip
