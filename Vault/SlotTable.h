// The slot file: a header, in which the lookaside slot stands last, and an array of slots. See
// docs/store-format.md. Constants and plain values; any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/memory/SharedWord.h"

namespace Vault {

// Where things stand in a slot: its link, the value, the reversed hash of the key, zeroes up to a whole word.
struct SlotShape {
  std::uint32_t valueSize;

  constexpr std::uint32_t slotSize() const { return (valueSize + 16 + 7) / 8 * 8; }
  static constexpr std::uint32_t kValueOffset = 8;
  constexpr std::uint32_t hashOffset() const { return kValueOffset + valueSize; }
  constexpr std::uint32_t slotCells() const { return slotSize() / 8; }
  constexpr std::uint32_t headerSize() const;
};

struct SlotTable {
  static constexpr char kFileName[] = "slots";
  static constexpr std::uint32_t kMagic = 0x6c737468;  // "htsl"
  static constexpr std::uint16_t kFormatVersion = 1;
  static constexpr std::uint16_t kCommonHeaderSize = 608;
  static constexpr std::size_t kTypeNameOffset = 36;
  static constexpr std::size_t kTypeNameSize = 512;
  static constexpr std::uint16_t kInCriticalSection = 1;  // of runtimeFlags

  // The header in aligned words, each of two fields unless said otherwise; offsets in bytes.
  enum Word : std::size_t {
    kMagicWord = 0,          // magic 0; header size 4 (16 bits), format version 6 (16 bits)
    kSizesWord = 1,          // value size 8, slot size 12
    kGenerationWord = 2,     // generation 16, capacity 20
    kLimitsWord = 3,         // maximum size 24, marshalled size 28
    kFlagsWord = 4,          // flags 32; the type name begins at 36 and ends before 548
    kRuntimeFlagsWord = 69,  // runtime flags 558 (16 bits); 552 to 557 are zero
    kOccupiedWord = 70,      // 0 at 560, occupied slots 564
    kFreeListWord = 71,      // free list 568, peak number of slots 572
    kSeedWord = 72,          // hash seed 576, sequence watermark 580
    kNumSlotsWord = 73,      // version 584, number of slots 588
    kLargestWord = 74,       // largest number of occupied slots 592, 0 at 596
    kScratchpadWord = 75,    // scratchpad 600, 64 bits
    kLookasideWord = 76,     // the lookaside slot 608
  };

  // Where the runtime flags stand in their word.
  static constexpr unsigned kRuntimeFlagsShift = 48;
  static constexpr Mem::Cell kCriticalBit = Mem::Cell{kInCriticalSection} << kRuntimeFlagsShift;

  static_assert(kRuntimeFlagsWord * 8 + kRuntimeFlagsShift / 8 == 558);
  static_assert(kOccupiedWord * 8 == 560 && kNumSlotsWord * 8 == 584 && kScratchpadWord * 8 == 600);
  static_assert(kLookasideWord * 8 == kCommonHeaderSize);
  static_assert(kTypeNameOffset + kTypeNameSize <= kRuntimeFlagsWord * 8);
};

constexpr std::uint32_t SlotShape::headerSize() const { return SlotTable::kCommonHeaderSize + slotSize(); }

static_assert(SlotShape{32}.slotSize() == 48 && SlotShape{32}.headerSize() == 656);
static_assert(SlotShape{32}.hashOffset() == 40 && SlotShape{20}.slotSize() == 40);

}  // namespace Vault
