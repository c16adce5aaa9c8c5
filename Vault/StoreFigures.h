// What can be counted in the files of a store, sound or not, at rest or while its writer is at work. A plain
// value.
#pragma once

#include <array>
#include <cstdint>

#include "Vault/StoreImage.h"

namespace Vault {

struct StoreFigures {
  // Counts what is found, stopping wherever a link leads nowhere; never more steps than there are buckets and
  // slots.
  static StoreFigures of(SlotsImage const& slots, BucketsImage const& buckets);

  // chains[n]: buckets with n slots; the last entry: with that many or more.
  std::array<std::uint64_t, 9> chains{};
  std::uint64_t longestChain = 0;
  std::uint64_t chainedSlots = 0;
  std::uint64_t freeSlots = 0;
  // Every chain and the free list were followed to their ends.
  bool complete = true;

 private:
  void countChains(SlotsImage const& slots, BucketsImage const& buckets);
  void countFreeList(SlotsImage const& slots);
};

}  // namespace Vault
