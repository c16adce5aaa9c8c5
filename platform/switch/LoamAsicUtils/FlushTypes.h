// What a pass of the chip's flush machine selects, and what it does to the entries selected. Plain values.
//
// Bit arrays are little-endian: bit n is bit n % 8 of byte n / 8.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace LoamAsicUtils {

// An entry matches where its image, bits 9 to 144 of its 24 bytes, equals the value in all bits of the mask.
// Bit 0 of each array is bit 9 of the entry; bits from 136 on are 0.
struct FlushRuleEntryType {
  std::array<std::uint8_t, 36> mask{};
  std::array<std::uint8_t, 36> value{};

  friend bool operator==(FlushRuleEntryType const&, FlushRuleEntryType const&) = default;
};
static_assert(sizeof(FlushRuleEntryType) == 72);

// What a pass that keeps entries writes into them: the bits of the mask get the value's. The arrays are the
// payload and vmv of an entry, aligned to the top: bit 127 is the top bit of vmv.
struct FlushCmdPayloadType {
  std::array<std::uint8_t, 16> value{};
  std::array<std::uint8_t, 16> mask{};

  friend bool operator==(FlushCmdPayloadType const&, FlushCmdPayloadType const&) = default;
};
static_assert(sizeof(FlushCmdPayloadType) == 32);

// The first bit of an entry's image, and the bits of it.
inline constexpr std::size_t kImageStart = 9;
inline constexpr std::size_t kImageBits = 136;

}  // namespace LoamAsicUtils
