// The 24 bytes of an exact-match entry as the chip takes them apart. Plain values; integers, and with them
// the bits of the entry, are in the byte order of the host, little-endian.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace Chip {

struct ExactMatchEntry {
  static constexpr std::size_t kBytes = 24;
  static constexpr std::uint32_t kWrite = 288;
  static constexpr std::uint32_t kDelete = 320;

  std::array<std::uint64_t, 3> words{};

  static ExactMatchEntry of(std::byte const* bytes) {
    ExactMatchEntry entry;
    std::memcpy(entry.words.data(), bytes, kBytes);
    return entry;
  }

  std::span<std::byte const, kBytes> bytes() const {
    return std::as_bytes(std::span<std::uint64_t const, 3>(words));
  }

  std::uint32_t command() const { return static_cast<std::uint32_t>(words[0] & 0x1FF); }
  std::uint32_t entryType() const { return static_cast<std::uint32_t>(words[2] >> (167 - 128) & 7); }
  std::uint32_t tid() const { return static_cast<std::uint32_t>(words[2] >> (170 - 128) & 0x3F); }
  void tidIs(std::uint32_t tid) {
    words[2] = (words[2] & ~kTidMask) | (std::uint64_t{tid} << (170 - 128) & kTidMask);
  }
  void commandIs(std::uint32_t command) { words[0] = (words[0] & ~std::uint64_t{0x1FF}) | command; }

  // Without what is the chip's to fill, and the bits that nobody uses.
  ExactMatchEntry stored() const { return {{words[0], words[1], words[2] & kStored}}; }

  void wayIndexIs(unsigned way) { words[2] |= std::uint64_t{way & 0xF} << (145 - 128); }
  void addressIs(std::uint32_t address) { words[2] |= std::uint64_t{address & 0xFFFF} << (151 - 128); }
  void hitsIs(unsigned hits) { words[2] |= std::uint64_t{hits & 0xF} << (176 - 128); }
  void foundIs() { words[2] |= std::uint64_t{1} << (180 - 128); }

  void bitFlip(std::uint32_t bit) {
    std::uint32_t const flipped = bit % (8 * kBytes);
    words[flipped / 64] ^= std::uint64_t{1} << flipped % 64;
  }

  friend bool operator==(ExactMatchEntry const&, ExactMatchEntry const&) = default;

  static constexpr std::uint64_t kTidMask = std::uint64_t{0x3F} << (170 - 128);
  // Bits 128 to 144, the type and the tid.
  static constexpr std::uint64_t kStored = 0x1FFFF | std::uint64_t{7} << (167 - 128) | kTidMask;
};
static_assert(std::endian::native == std::endian::little);

}  // namespace Chip
