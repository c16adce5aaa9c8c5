#include "VaultCore/WriterHashMapCommon.h"

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace VaultCore {

using Dovel::CorruptionDetectedException;

void WriterHashMapCommon::throwHashChainCycle(std::uint32_t count, std::uint32_t limit) {
  DOVEL_THROW(CorruptionDetectedException, "WriterHashMap",
              "hash chain of {} slots, more than all {}: a cycle", count, limit);
}

void WriterHashMapCommon::throwHashBucketCycle(std::uint32_t count, std::uint32_t limit) {
  DOVEL_THROW(CorruptionDetectedException, "WriterHashMap", "{} of {} buckets seen without an end: a cycle",
              count, limit);
}

void WriterHashMapCommon::throwNotOccupied(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "WriterHashMap", "slot {} is on a chain but not occupied", slot);
}

void WriterHashMapCommon::throwCorruptKey(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "WriterHashMap", "the key in slot {} belongs to another bucket",
              slot);
}

void WriterHashMapCommon::throwCorruptRhash(std::uint32_t slot, std::uint32_t stored,
                                            std::uint32_t computed) {
  DOVEL_THROW(CorruptionDetectedException, "WriterHashMap", "slot {} has hash {:#x}, its key has {:#x}", slot,
              stored, computed);
}

void WriterHashMapCommon::throwCorruptOrder(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "WriterHashMap", "slot {} is out of order in its chain", slot);
}

void WriterHashMapCommon::throwHasBucket(std::uint32_t bucket, std::uint32_t found, std::uint32_t expected) {
  DOVEL_THROW(CorruptionDetectedException, "WriterHashMap",
              "the chain of bucket {} leads to bucket {} instead of {:#x}", bucket, found, expected);
}

void WriterHashMapCommon::throwReachedEnd(std::uint32_t bucket, std::uint32_t last) {
  DOVEL_THROW(CorruptionDetectedException, "WriterHashMap",
              "the chain of bucket {} ends the table, though bucket {} is the last", bucket, last);
}

}  // namespace VaultCore
