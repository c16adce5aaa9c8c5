// What a writer of a store counts since it was attached. Plain values of the writer's thread.
#pragma once

#include <cstdint>

#include "VaultCore/Counters.h"

namespace Vault::Writer {

struct Counters {
  std::uint64_t lookups = 0;
  std::uint64_t inserts = 0;
  std::uint64_t updates = 0;
  std::uint64_t removes = 0;
  std::uint64_t remaps = 0;  // mappings that came to stand elsewhere
  std::uint64_t slotGrows = 0;
  std::uint64_t slotShrinks = 0;
  std::uint64_t slotsMoved = 0;
  std::uint64_t directWrites = 0;
  std::uint64_t directCommits = 0;
  VaultCore::Bucket::WriterCounters buckets;
};

}  // namespace Vault::Writer
