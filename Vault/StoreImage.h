// The slot and bucket file of a store as a reader of any bytes sees them: every field can be asked for,
// whatever the file holds, and slots and heads as far as the file really has them. Immutable; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Vault/FileImage.h"
#include "Vault/SlotTable.h"
#include "VaultCore/BucketTable.h"
#include "VaultCore/SlotLink.h"
#include "platform/memory/EmberId.h"
#include "platform/memory/VersionedRef.h"

namespace Vault {

using Count = Mem::VersionedRef<std::uint32_t>;

class SlotsImage {
 public:
  explicit SlotsImage(FileImage file);

  FileImage const& file() const { return file_; }

  std::uint32_t magic() const { return low(SlotTable::kMagicWord); }
  std::uint16_t headerSize() const { return static_cast<std::uint16_t>(high(SlotTable::kMagicWord)); }
  std::uint16_t formatVersion() const {
    return static_cast<std::uint16_t>(high(SlotTable::kMagicWord) >> 16);
  }
  std::uint32_t valueSize() const { return low(SlotTable::kSizesWord); }
  std::uint32_t slotSize() const { return high(SlotTable::kSizesWord); }
  SharedMem::EmberId generation() const { return SharedMem::EmberId(low(SlotTable::kGenerationWord)); }
  std::uint32_t capacity() const { return high(SlotTable::kGenerationWord); }
  std::uint32_t maximumSize() const { return low(SlotTable::kLimitsWord); }
  std::uint32_t marshalledSize() const { return high(SlotTable::kLimitsWord); }
  std::uint32_t flags() const { return low(SlotTable::kFlagsWord); }
  // All of its room where it isn't ended by a NUL.
  std::string_view typeName() const;
  std::uint16_t runtimeFlags() const {
    return static_cast<std::uint16_t>(file_.word(SlotTable::kRuntimeFlagsWord) >>
                                      SlotTable::kRuntimeFlagsShift);
  }
  std::uint32_t occupiedSlots() const { return high(SlotTable::kOccupiedWord); }
  std::uint32_t freeList() const { return low(SlotTable::kFreeListWord); }
  std::uint32_t peakNumSlots() const { return high(SlotTable::kFreeListWord); }
  std::uint32_t hashSeed() const { return low(SlotTable::kSeedWord); }
  std::uint32_t watermark() const { return high(SlotTable::kSeedWord); }
  Count numSlots() const { return Count::fromWord(file_.word(SlotTable::kNumSlotsWord)); }
  std::uint32_t largestOccupied() const { return low(SlotTable::kLargestWord); }
  std::uint64_t scratchpad() const { return file_.word(SlotTable::kScratchpadWord); }

  // The sizes in the header are those of one value size, and a slot of that size can be.
  bool hasShape() const { return slotCells_ != 0; }
  // Of the file as its own sizes ask for it; hasShape().
  std::uint64_t fullHeaderSize() const {
    return SlotTable::kCommonHeaderSize + slotCells_ * sizeof(Mem::Cell);
  }
  std::uint64_t wantedSize() const;
  // The slots that can be read: as many as the header counts, or as the file has room for. 0 without shape.
  std::uint32_t slots() const { return slots_; }

  // The functions below take ids below slots().
  SlotLink link(std::uint32_t id) const { return SlotLink::fromWord(slot(id)[0]); }
  std::uint32_t hash(std::uint32_t id) const;
  std::byte const* value(std::uint32_t id) const { return bytes(id) + SlotShape::kValueOffset; }
  // Where the slot begins in the file.
  std::uint64_t offset(std::uint32_t id) const { return fullHeaderSize() + std::uint64_t{id} * slotSize(); }
  // The slot's bytes, slotSize() of them.
  std::byte const* bytes(std::uint32_t id) const {
    return static_cast<std::byte const*>(static_cast<void const*>(slot(id)));
  }

 private:
  std::uint32_t low(std::size_t word) const { return Mem::lowHalf(file_.word(word)); }
  std::uint32_t high(std::size_t word) const { return Mem::highHalf(file_.word(word)); }
  Mem::Cell const* slot(std::uint32_t id) const {
    return file_.words().data() + SlotTable::kLookasideWord + (id + std::uint64_t{1}) * slotCells_;
  }

  FileImage file_;
  std::uint64_t slotCells_ = 0;
  std::uint32_t slots_ = 0;
};

class BucketsImage {
 public:
  explicit BucketsImage(FileImage file);

  FileImage const& file() const { return file_; }

  std::uint32_t magic() const { return Mem::lowHalf(file_.word(VaultCore::BucketTable::kMagicCell)); }
  std::uint32_t elementSize() const { return Mem::highHalf(file_.word(VaultCore::BucketTable::kMagicCell)); }
  SharedMem::EmberId generation() const {
    return SharedMem::EmberId(Mem::lowHalf(file_.word(VaultCore::BucketTable::kGenerationCell)));
  }
  Count numBuckets() const { return Count::fromWord(file_.word(VaultCore::BucketTable::kNumBucketsCell)); }

  std::uint64_t wantedSize() const;
  // The buckets that can be read: as many as the header counts; 0 where that is no power of two, or more than
  // the file has room for.
  std::uint32_t buckets() const { return buckets_; }
  // buckets() is 2^bits().
  unsigned bits() const { return bits_; }
  // bucket < buckets().
  SlotLink head(std::uint32_t bucket) const {
    return SlotLink::fromWord(file_.words()[VaultCore::BucketTable::kFirstBucketCell + bucket]);
  }
  // Where a slot with this stored hash belongs.
  std::uint32_t bucketOf(std::uint32_t hash) const { return VaultCore::reverseBits(hash) & (buckets_ - 1); }

 private:
  FileImage file_;
  std::uint32_t buckets_ = 0;
  unsigned bits_ = 0;
};

}  // namespace Vault
