#include "VaultCore/ReaderHashMapCommon.h"

#include <fmt/format.h>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace VaultCore {
namespace {

std::string hex(void const* key, std::size_t size) {
  auto const* const bytes = static_cast<unsigned char const*>(key);
  return fmt::format("{:02x}", fmt::join(bytes, bytes + size, ""));
}

}  // namespace

using Dovel::CorruptionDetectedException;

void ReaderHashMapCommon::throwHashChainCycle(std::uint32_t steps, std::uint32_t numSlots) {
  DOVEL_THROW(CorruptionDetectedException, "ReaderHashMap",
              "hash chain of {} slots, more than all {}: a cycle", steps, numSlots);
}

void ReaderHashMapCommon::throwHashBucketCycle(std::uint32_t buckets, std::uint32_t numBuckets) {
  DOVEL_THROW(CorruptionDetectedException, "ReaderHashMap", "{} of {} buckets seen without an end: a cycle",
              buckets, numBuckets);
}

void ReaderHashMapCommon::throwNotOccupied(std::uint32_t slot, void const* key, std::size_t keySize) {
  DOVEL_THROW(CorruptionDetectedException, "ReaderHashMap",
              "slot {} is on a chain but not occupied, looking for key bytes {}", slot, hex(key, keySize));
}

void ReaderHashMapCommon::throwSlowPathNotOccupied(std::uint32_t slot, void const* key, std::size_t keySize) {
  DOVEL_THROW(CorruptionDetectedException, "ReaderHashMap",
              "slot {} is on a chain but not occupied, looking for what follows key bytes {}", slot,
              hex(key, keySize));
}

void ReaderHashMapCommon::throwCorruptKey(std::uint32_t bucket, void const* key, std::size_t keySize) {
  DOVEL_THROW(CorruptionDetectedException, "ReaderHashMap", "key bytes {} don't belong to bucket {}",
              hex(key, keySize), bucket);
}

void ReaderHashMapCommon::throwHasBucket(std::uint32_t bucket, std::uint32_t nextBucket,
                                         std::uint32_t numBuckets) {
  DOVEL_THROW(CorruptionDetectedException, "ReaderHashMap",
              "the chain of bucket {} leads to {:#x}, which doesn't follow among {} buckets", bucket,
              nextBucket, numBuckets);
}

}  // namespace VaultCore
