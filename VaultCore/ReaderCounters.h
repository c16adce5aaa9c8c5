// What a reader of a store counts. Plain values of the reader's thread.
#pragma once

#include <cstdint>

namespace Vault::Reader {

struct Counters {
  std::uint64_t lookups = 0;
  std::uint64_t lookasideReads = 0;
  std::uint64_t restarts = 0;    // walks begun again because a link had changed
  std::uint64_t slowNexts = 0;   // steps of an iteration that went by the key
  std::uint64_t suspicions = 0;  // walks that looked like damage, so that a resize was looked for
  std::uint64_t baseMoves = 0;   // of the slots
  std::uint64_t slotResizes = 0;
  std::uint64_t bucketResizes = 0;
};

}  // namespace Vault::Reader
