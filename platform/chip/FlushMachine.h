// One pass over the entries of a database that a rule selects: those that match are removed, merged with the
// pass's payload, or read. The chip's thread; look-ups from others hit meanwhile what the pass leaves.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/chip/ChipFaults.h"
#include "platform/chip/ExactMatchStore.h"
#include "platform/switch/Sluice/FlushPass.h"

namespace Chip {

class FlushMachine {
 public:
  // `entries` is where a read puts them, for as many as the pass tells.
  FlushMachine(ExactMatchStore& store, ExactMatchDatabase const& database, Sluice::FlushPass const& pass,
               std::byte* entries);

  Sluice::FlushAnswer run(PassFault const& fault);

 private:
  std::uint32_t nextMatch(std::uint32_t from) const;
  std::uint32_t matches() const;
  void takeOn(std::uint32_t slot, std::uint32_t done);

  ExactMatchStore& store_;
  ExactMatchDatabase const& database_;
  Sluice::FlushPass const& pass_;
  std::byte* entries_;
  ExactMatchEntry mask_;
  ExactMatchEntry value_;
  ExactMatchEntry payloadMask_;
  ExactMatchEntry payload_;
};

}  // namespace Chip
