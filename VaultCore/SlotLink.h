// The link that slots and bucket heads are chained by: one shared word of a sequence and a reference. A plain
// value; any thread.
#pragma once

#include <compare>
#include <cstdint>

#include "platform/memory/SharedWord.h"

namespace Vault {

// The highest number of slots: an id has 30 bits, and the highest id with the end mark would be nil.
inline constexpr std::uint32_t kMaxSlots = 0x3fffffff;

struct SlotLink {
  // Of next: bit 31 ends a chain, bit 30 is the mark-and-sweep flag of the slot that holds the link, and the
  // rest is a slot id or, behind bit 31, a bucket.
  static constexpr std::uint32_t kEnd = 0x80000000;
  static constexpr std::uint32_t kFlag = 0x40000000;
  static constexpr std::uint32_t kIdMask = 0x3fffffff;
  static constexpr std::uint32_t kNoFlag = ~kFlag;
  // No slot and no bucket.
  static constexpr std::uint32_t kNil = 0xbfffffff;
  // Of sequence: the slot is on a chain; its value stands in the lookaside slot; what a change adds.
  static constexpr std::uint32_t kOccupied = 1;
  static constexpr std::uint32_t kLookaside = 2;
  static constexpr std::uint32_t kChange = 4;

  std::uint32_t sequence = 0;
  std::uint32_t next = kNil;

  static constexpr SlotLink fromWord(Mem::Cell word) { return {Mem::lowHalf(word), Mem::highHalf(word)}; }
  constexpr Mem::Cell word() const { return Mem::fromHalves(sequence, next); }

  constexpr bool leadsToSlot() const { return (next & kEnd) == 0; }
  constexpr bool isNil() const { return target() == kNil; }
  // A slot, or a bucket where leadsToSlot() is false.
  constexpr std::uint32_t id() const { return next & kIdMask; }
  // Where the link leads, in the form that other links take.
  constexpr std::uint32_t target() const { return next & kNoFlag; }
  static constexpr std::uint32_t endAt(std::uint32_t bucket) { return kEnd | bucket; }

  constexpr bool flag() const { return (next & kFlag) != 0; }
  constexpr bool occupied() const { return (sequence & kOccupied) != 0; }
  constexpr bool inLookaside() const { return (sequence & kLookaside) != 0; }
  // On a chain, with the value in its place.
  constexpr bool isAtRest() const { return (sequence & (kOccupied | kLookaside)) == kOccupied; }

  // The link after a change of what it leads to: a new sequence, and the holder's own flag.
  constexpr SlotLink ledTo(std::uint32_t newTarget) const {
    return {sequence + kChange, (next & kFlag) | (newTarget & kNoFlag)};
  }

  friend bool operator==(SlotLink const&, SlotLink const&) = default;
};

static_assert(sizeof(SlotLink) == 8);

}  // namespace Vault
