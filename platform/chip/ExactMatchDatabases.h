// The exact-match side of one FAP: what messages, bulk transfers of entries and passes of the flush machine
// do to its databases. One thread, but for look-ups.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/chip/ChipFaults.h"
#include "platform/chip/ExactMatchStore.h"
#include "platform/chip/FlushMachine.h"
#include "platform/switch/Sluice/SchanMessage.h"

namespace Chip {

class ExactMatchDatabases {
 public:
  using Image = std::span<std::uint32_t, 6>;
  using FlippedBit = std::optional<std::uint32_t>;

  // Of the state. New keys are put into that many of their buckets.
  ExactMatchDatabases(Sluice::FapId fap, ChipState& state, unsigned candidates);

  void observerIs(ChipObserver* observer);

  // Runs an exactMatch message and tells how it went. The image is then the entry, with what the chip fills
  // in; zero where there is no such database. `faults` tells which keys are refused; null where none are.
  Sluice::SchanStatus message(Sluice::schan_xmsg_user_ const& message, Image image, FlippedBit flippedBit,
                              ChipFaults const* faults);

  // Takes that many entries of the transfer from the buffer; the image is then a Sluice::BulkEmAnswer.
  Sluice::SchanStatus entries(Sluice::BulkTransfer const& transfer, std::uint32_t count,
                              std::byte const* buffer, Image image, FlippedBit flippedBit,
                              ChipFaults const* faults);

  // The database of the pass; null where there is none. What the pass reads goes to `buffer`.
  ExactMatchDatabase const* database(Sluice::FlushPass const& pass) const;
  Sluice::FlushAnswer run(Sluice::FlushPass const& pass, std::byte* buffer, PassFault const& fault);

  // Any thread. Null where there is no such database.
  ExactMatchStore const* store(std::uint32_t physicalTable) const;
  // Entries of 24 bytes that were written or read.
  std::uint64_t entriesMoved() const { return entriesMoved_; }

 private:
  struct Instance {
    std::uint32_t block;
    std::uint32_t location;
    std::uint32_t physicalTable;
    std::uint32_t core;
  };

  ExactMatchStore* storeOf(Instance const& instance);
  Sluice::SchanStatus take(ExactMatchStore& store, ExactMatchEntry& entry, ChipFaults const* faults);
  static Sluice::SchanStatus write(ExactMatchStore& store, ExactMatchStore::Search const& found,
                                   ExactMatchEntry& entry);
  static void remove(ExactMatchStore& store, ExactMatchStore::Search const& found, ExactMatchEntry& entry);
  static void prefetch(ExactMatchStore const& store, ExactMatchEntry const& entry);

  std::array<ExactMatchStore, ExactMatchMap::kPhysicalTables> stores_;
  std::uint64_t entriesMoved_ = 0;
};

}  // namespace Chip
