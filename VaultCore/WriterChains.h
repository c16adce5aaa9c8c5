// The chains of a table's buckets, for loops that visit all of them: where they are split, cut and joined
// when the number of buckets changes, and how they are fetched ahead. A view, stale once a file is mapped
// elsewhere. One thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "VaultCore/BucketTable.h"
#include "VaultCore/SlotLink.h"
#include "VaultCore/WriterHashMapCommon.h"

namespace VaultCore {

// Where heads and slots stand is kept here: compilers ask the tables for it anew behind every shared word.
template <class Slots>
class WriterChains : private WriterHashMapCommon {
 public:
  using SlotLink = Vault::SlotLink;
  using SlotType = typename Slots::SlotType;

  WriterChains(Slots const& table, Mem::Cell* heads)
      : table_(table), heads_(heads), slots_(&table[0].linkCell()), numSlots_(table.numSlots()) {}

  // The bucket has to be one that is mapped, here and below.
  Mem::Cell& head(std::uint32_t bucket) const { return heads_[bucket]; }

  // The link of the bucket's chain behind which the records of bucket + half follow, when there are 2 * half
  // buckets. Hashes are stored with their bits reversed: those of both buckets begin like the bucket's own
  // number, and the bit after that tells which one. Throws Dovel::CorruptionDetectedException.
  [[gnu::always_inline]] Mem::Cell& splitPoint(std::uint32_t bucket, std::uint32_t half) const {
    std::uint32_t const first = reverseBits(bucket);
    std::uint32_t const upper = reverseBits(half);
    auto const isOf = [begins = ~(upper - 1)](std::uint32_t beginning, SlotType slot) {
      return maskOf(slot.link().occupied()) & maskOf((slot.hash() & begins) == beginning);
    };
    Mem::Cell* const last = skip(&heads_[bucket], [=](SlotLink, SlotType slot) { return isOf(first, slot); });
    SlotLink const link = linkIn(*last);
    std::uint64_t const isUpper = maskOf(leads(link)) & isOf(first | upper, slotOf(link));
    if ((maskOf(!link.leadsToSlot()) | isUpper) != 0) [[likely]]
      return *last;
    return splitPointFrom(*this, last, first, upper);
  }

  // The link of the bucket's chain that leads where the head of the other does, which got the upper half.
  // Throws Dovel::CorruptionDetectedException.
  [[gnu::always_inline]] Mem::Cell& cutPoint(std::uint32_t bucket, std::uint32_t other) const {
    std::uint32_t const target = linkIn(heads_[other]).target();
    Mem::Cell* const last =
        skip(&heads_[bucket], [=](SlotLink link, SlotType) { return maskOf(link.target() != target); });
    return walk(last, [=](SlotLink link) {
      if (link.target() == target) [[likely]]
        return false;
      if (!link.leadsToSlot()) [[unlikely]]
        throwHasBucket(bucket, link.id(), other);
      return true;
    });
  }

  // The last link of the bucket's chain. Throws Dovel::CorruptionDetectedException.
  Mem::Cell& end(std::uint32_t bucket) const {
    return walk(&heads_[bucket], [this](SlotLink link) {
      if (!link.leadsToSlot()) return false;
      occupiedSlot(link);
      return true;
    });
  }

  // Called for each bucket in turn: asks for the first slot of a bucket far ahead, and for the second one of
  // a bucket that is half as far, whose first has come by now. Without branches: which chains are empty can't
  // be foretold. `limit` is how many buckets are visited.
  [[gnu::always_inline]] void prefetch(std::uint32_t bucket, std::uint32_t limit) const {
    if (limit < kLargeTable) return;
    std::uint32_t const last = limit - 1;
    prefetchFirst(std::min(bucket + kPrefetchDistance, last));
    prefetchSecond(std::min(bucket + kPrefetchDistance / 2, last));
  }

  // The same for an iteration over 2^bits buckets that comes to the bucket: in its order heads are as far
  // apart as slots.
  void prefetchFollowing(std::uint32_t bucket, unsigned bits) const {
    if (bits < kLargeTableBits) return;
    unsigned const shift = 32 - bits;
    std::uint32_t const last = (1u << bits) - 1;
    std::uint32_t const step = reverseBits(bucket) >> shift;
    // The bucket that comes so many steps later, or the last.
    auto const later = [=](std::uint32_t steps) {
      return reverseBits(std::min(step + steps, last) << shift);
    };
    __builtin_prefetch(&heads_[later(24)]);
    prefetchFirst(later(16));
    prefetchSecond(later(8));
  }

 private:
  // In buckets; smaller ones fit into the processor's cache, where asking ahead costs more than it saves.
  static constexpr unsigned kLargeTableBits = 13;
  static constexpr std::uint32_t kLargeTable = 1u << kLargeTableBits;
  // Far enough ahead to hide a miss of the cache behind the work on the buckets between.
  static constexpr std::uint32_t kPrefetchDistance = 32;

  // All bits or none. Of conditions in this form compilers make no branch.
  static std::uint64_t maskOf(bool condition) { return 0 - static_cast<std::uint64_t>(condition); }

  // Whether the link leads to a slot of the table. What ends a chain is above all ids.
  bool leads(SlotLink link) const { return link.target() < numSlots_; }
  // The first slot of all for a link that leads to none, or out of the table: that is told by who follows it.
  [[gnu::always_inline]] SlotType slotOf(SlotLink link) const {
    std::uint64_t const id = link.target() & maskOf(leads(link));
    return SlotType(slots_ + id * SlotType::kShape.slotCells());
  }

  [[gnu::always_inline]] void prefetchFirst(std::uint32_t bucket) const {
    slotOf(linkIn(heads_[bucket])).prefetch();
  }
  [[gnu::always_inline]] void prefetchSecond(std::uint32_t bucket) const {
    slotOf(slotOf(linkIn(heads_[bucket])).link()).prefetch();
  }

  // Walks a chain from the cell on for as long as `goesOn` says of each link, and returns the one at which it
  // stopped.
  template <class GoesOn>
  [[gnu::always_inline]] Mem::Cell& walk(Mem::Cell* cell, GoesOn&& goesOn) const {
    std::uint32_t steps = 0;
    for (SlotLink link = linkIn(*cell); goesOn(link); link = linkIn(*cell)) {
      if (++steps > numSlots_) [[unlikely]]
        throwHashChainCycle(steps, numSlots_);
      cell = &table_[link.id()].linkCell();
    }
    return *cell;
  }

  // The first step of such a walk, where the mask that `passes` gives for the link and for the slot that it
  // leads to says so; a link that leads to none is not passed. Without a branch: most chains split at their
  // head or after one record, which can't be foretold, and a branch foretold wrong takes longer than all of
  // this.
  template <class Passes>
  [[gnu::always_inline]] Mem::Cell* skip(Mem::Cell* head, Passes&& passes) const {
    SlotLink const link = linkIn(*head);
    SlotType const slot = slotOf(link);
    std::uint64_t const isPassed = maskOf(leads(link)) & passes(link, slot);
    auto const from = reinterpret_cast<std::uintptr_t>(head);
    auto const to = reinterpret_cast<std::uintptr_t>(&slot.linkCell());
    return reinterpret_cast<Mem::Cell*>(from + ((to - from) & isPassed));
  }

  // Of a copy of the view: one that lends its address stands in memory, and the loops have theirs in
  // registers.
  [[gnu::noinline]] static Mem::Cell& splitPointFrom(WriterChains chains, Mem::Cell* cell,
                                                     std::uint32_t first, std::uint32_t upper) {
    std::uint32_t const rest = (upper - 1) | upper;
    return chains.walk(cell, [=, &chains](SlotLink link) {
      if (!link.leadsToSlot()) return false;
      std::uint32_t const hash = chains.occupiedSlot(link).hash();
      if ((hash & ~rest) != first) [[unlikely]]
        throwCorruptKey(link.id());
      return (hash & upper) == 0;
    });
  }

  SlotType occupiedSlot(SlotLink link) const {
    SlotType const slot = table_[link.id()];
    if (!slot.link().occupied()) [[unlikely]]
      throwNotOccupied(link.id());
    return slot;
  }

  Slots const& table_;
  Mem::Cell* const heads_;
  Mem::Cell* const slots_;
  std::uint32_t const numSlots_;
};

}  // namespace VaultCore
