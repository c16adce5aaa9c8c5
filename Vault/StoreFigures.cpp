#include "Vault/StoreFigures.h"

#include <algorithm>

namespace Vault {

StoreFigures StoreFigures::of(SlotsImage const& slots, BucketsImage const& buckets) {
  StoreFigures figures;
  figures.countChains(slots, buckets);
  figures.countFreeList(slots);
  return figures;
}

void StoreFigures::countChains(SlotsImage const& slots, BucketsImage const& buckets) {
  for (std::uint32_t bucket = 0; bucket < buckets.buckets(); ++bucket) {
    std::uint64_t length = 0;
    for (SlotLink link = buckets.head(bucket); link.leadsToSlot(); link = slots.link(link.id())) {
      if (link.id() >= slots.slots() || chainedSlots == slots.slots()) {
        complete = false;
        break;
      }
      // While the buckets are being resized, a chain may run on into that of another bucket.
      if (buckets.bucketOf(slots.hash(link.id())) != bucket) break;
      ++length;
      ++chainedSlots;
    }
    ++chains[std::min<std::size_t>(length, chains.size() - 1)];
    longestChain = std::max(longestChain, length);
  }
}

void StoreFigures::countFreeList(SlotsImage const& slots) {
  std::uint32_t next = slots.freeList();
  while (next < slots.slots() && freeSlots < slots.slots()) {
    ++freeSlots;
    next = slots.link(next).target();
  }
  complete = complete && next == SlotLink::kNil;
}

}  // namespace Vault
