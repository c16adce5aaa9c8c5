// What of the writer's hash map doesn't depend on its records: how links are read and changed, and how it
// tells what it found wrong. Every function whose name says so throws Dovel::CorruptionDetectedException.
#pragma once

#include <cstdint>

#include "VaultCore/SlotLink.h"

namespace VaultCore {

class WriterHashMapCommon {
 public:
  [[gnu::always_inline]] static Vault::SlotLink linkIn(Mem::Cell const& cell) {
    return Vault::SlotLink::fromWord(Mem::SharedWord::ownWord(cell));
  }
  // Makes the link lead to another target.
  [[gnu::always_inline]] static void relink(Mem::Cell& cell, std::uint32_t target) {
    Mem::SharedWord::publishLink(cell, linkIn(cell).ledTo(target).word());
  }

  // A chain is longer than there are slots.
  [[noreturn]] static void throwHashChainCycle(std::uint32_t count, std::uint32_t limit);
  // An iteration has seen as many buckets as there are and has not come to the end.
  [[noreturn]] static void throwHashBucketCycle(std::uint32_t count, std::uint32_t limit);
  // A chain leads to a slot that is free.
  [[noreturn]] static void throwNotOccupied(std::uint32_t slot);
  // The key in the slot belongs to another bucket.
  [[noreturn]] static void throwCorruptKey(std::uint32_t slot);
  // The hash in the slot is not that of its key.
  [[noreturn]] static void throwCorruptRhash(std::uint32_t slot, std::uint32_t stored,
                                             std::uint32_t computed);
  // The slot stands before one that it should follow.
  [[noreturn]] static void throwCorruptOrder(std::uint32_t slot);
  // The end of a chain names a bucket that doesn't follow.
  [[noreturn]] static void throwHasBucket(std::uint32_t bucket, std::uint32_t found, std::uint32_t expected);
  // A chain says that it is the last, and is not.
  [[noreturn]] static void throwReachedEnd(std::uint32_t bucket, std::uint32_t last);
};

}  // namespace VaultCore
