// What a reader of a store counts. Plain values of the reader's thread.
#pragma once

#include <cstdint>

namespace Vault::Reader {

struct Counters {
  std::uint64_t lookups = 0;
  std::uint64_t lookasideReads = 0;
  std::uint64_t restarts = 0;   // walks begun again because a link had changed
  std::uint64_t slowNexts = 0;  // steps of an iteration that went by the key
};

}  // namespace Vault::Reader
