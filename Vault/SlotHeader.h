// The common part of a slot file's header. A view of mapped words; it is stale once the file is mapped
// elsewhere. One thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "Vault/SlotTable.h"
#include "platform/memory/EmberId.h"
#include "platform/memory/VersionedRef.h"
#include "runtime/Dovel/DebugHandler.h"

namespace Vault {

// What a table is, apart from what is in it.
struct SlotHeaderDescription {
  SlotShape shape{};
  std::uint32_t capacity = 0;  // slots of a new file
  std::uint32_t maxSize = 0;
  std::uint32_t marshalledSize = 0;
  std::string_view typeName;
  SharedMem::EmberId emberId;
  std::uint32_t seed = 0;
};

class SlotHeaderCommon {
 public:
  using NumSlots = Mem::VersionedRef<std::uint32_t>;

  SlotHeaderCommon() = default;
  explicit SlotHeaderCommon(Mem::Cell* cells) : cells_(cells) {}

  // Writes the header of a new file, whose bytes are zero: capacity slots, none of them on the free list yet.
  void construct(SlotHeaderDescription const& is) const;

  // Whether the common part fits the file and what the caller stores. The reason goes to error and, at level
  // 0, to the trace. Capacity, maximum size and seed may be any legal ones.
  bool validate(Dovel::Platform::DebugHandler const& handler, std::uint32_t headerSize,
                std::uint64_t fileSize, SlotHeaderDescription const& expected, Dovel::String& error) const;

  Dovel::String toString() const;

  SharedMem::EmberId emberId() const {
    return SharedMem::EmberId(Mem::lowHalf(word(SlotTable::kGenerationWord)));
  }
  std::uint32_t capacity() const { return Mem::highHalf(word(SlotTable::kGenerationWord)); }
  std::uint32_t maxSize() const { return Mem::lowHalf(word(SlotTable::kLimitsWord)); }
  void maxSizeIs(std::uint32_t maxSize) const { lowHalfIs(SlotTable::kLimitsWord, maxSize); }

  std::uint16_t runtimeFlags() const {
    return static_cast<std::uint16_t>(word(SlotTable::kRuntimeFlagsWord) >> SlotTable::kRuntimeFlagsShift);
  }

  std::uint32_t occupiedSlots() const { return Mem::highHalf(word(SlotTable::kOccupiedWord)); }
  void occupiedSlotsIs(std::uint32_t count) const { highHalfIs(SlotTable::kOccupiedWord, count); }
  std::uint32_t freeList() const { return Mem::lowHalf(word(SlotTable::kFreeListWord)); }
  void freeListIs(std::uint32_t slot) const { lowHalfIs(SlotTable::kFreeListWord, slot); }
  std::uint32_t peakNumSlots() const { return Mem::highHalf(word(SlotTable::kFreeListWord)); }
  void peakNumSlotsIs(std::uint32_t count) const { highHalfIs(SlotTable::kFreeListWord, count); }
  std::uint32_t hashSeed() const { return Mem::lowHalf(word(SlotTable::kSeedWord)); }
  // The highest sequence that slots cut off by a shrink had.
  std::uint32_t sequenceWatermark() const { return Mem::highHalf(word(SlotTable::kSeedWord)); }
  void sequenceWatermarkIs(std::uint32_t sequence) const { highHalfIs(SlotTable::kSeedWord, sequence); }
  NumSlots numSlots() const { return NumSlots::fromWord(word(SlotTable::kNumSlotsWord)); }
  void publishNumSlots(std::uint32_t count) const {
    Mem::SharedWord::publishCount(cells_[SlotTable::kNumSlotsWord], numSlots().next(count).word());
  }
  std::uint32_t largestOccupied() const { return Mem::lowHalf(word(SlotTable::kLargestWord)); }
  void largestOccupiedIs(std::uint32_t count) const { lowHalfIs(SlotTable::kLargestWord, count); }
  std::uint64_t scratchpad() const { return word(SlotTable::kScratchpadWord); }
  void scratchpadIs(std::uint64_t value) const {
    Mem::SharedWord::storeHeaderWord(cells_[SlotTable::kScratchpadWord], value);
  }

  Mem::Cell& runtimeFlagsCell() const { return cells_[SlotTable::kRuntimeFlagsWord]; }
  Mem::Cell* lookasideCells() const { return cells_ + SlotTable::kLookasideWord; }

 private:
  Mem::Cell word(std::size_t at) const { return Mem::SharedWord::ownWord(cells_[at]); }
  [[gnu::always_inline]] void lowHalfIs(std::size_t at, std::uint32_t low) const {
    Mem::SharedWord::storeHeaderWord(cells_[at], Mem::fromHalves(low, Mem::highHalf(word(at))));
  }
  [[gnu::always_inline]] void highHalfIs(std::size_t at, std::uint32_t high) const {
    Mem::SharedWord::storeHeaderWord(cells_[at], Mem::fromHalves(Mem::lowHalf(word(at)), high));
  }
  void typeNameIs(std::string_view name) const;
  Dovel::String typeName() const;

  Mem::Cell* cells_ = nullptr;
};

}  // namespace Vault
