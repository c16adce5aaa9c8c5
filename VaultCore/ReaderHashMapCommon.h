// How a reader's walk tells that what it saw can't be. That need not be damage: its picture of the table may
// be older than a resize. Every function throws Dovel::CorruptionDetectedException; keys are told as bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace VaultCore {

class ReaderHashMapCommon {
 public:
  // A chain is longer than there are slots.
  [[noreturn]] static void throwHashChainCycle(std::uint32_t steps, std::uint32_t numSlots);
  // An iteration has seen as many buckets as there are and has not come to the end.
  [[noreturn]] static void throwHashBucketCycle(std::uint32_t buckets, std::uint32_t numBuckets);
  // A link that did not change leads to a slot that is free; the key is the one that was looked for.
  [[noreturn]] static void throwNotOccupied(std::uint32_t slot, void const* key, std::size_t keySize);
  [[noreturn]] static void throwSlowPathNotOccupied(std::uint32_t slot, void const* key, std::size_t keySize);
  // The key that was read belongs to another bucket.
  [[noreturn]] static void throwCorruptKey(std::uint32_t bucket, void const* key, std::size_t keySize);
  // The end of a chain names a bucket that doesn't follow, or none where one has to.
  [[noreturn]] static void throwHasBucket(std::uint32_t bucket, std::uint32_t nextBucket,
                                          std::uint32_t numBuckets);
};

}  // namespace VaultCore
