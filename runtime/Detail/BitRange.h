// A bit range, known at compile time, of a byte buffer of known size: what a field of at most 64 bits
// compiles to. Bits are numbered as copyBits numbers them. Plain functions; any thread.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Detail {

// The range Low..High, both inclusive, of a buffer of Size bytes.
template <unsigned Low, unsigned High, std::size_t Size>
struct BitRange {
  static_assert(std::endian::native == std::endian::little, "the low byte of a word is its first");
  static_assert(Low <= High && High / 8 < Size, "the range lies within the buffer");
  static constexpr unsigned width = High - Low + 1;
  static_assert(width <= 64);

  static std::uint64_t get(std::uint8_t const* data) {
    if constexpr (kBytes <= 8) {
      return load<Word>(data + kStart) >> kShift & kMask;
    } else {
      return (load<Word>(data + kStart) >> kShift | std::uint64_t{data[kStart + 8]} << (64 - kShift)) & kMask;
    }
  }

  // Bits of the value above the width are ignored.
  static void set(std::uint8_t* data, std::uint64_t value) {
    value &= kMask;
    if constexpr (kBytes > 8) {
      unsigned constexpr kept = 0xffU << (width + kShift - 64) & 0xffU;
      data[kStart + 8] = static_cast<std::uint8_t>((data[kStart + 8] & kept) | value >> (64 - kShift));
    }
    auto const cleared = static_cast<Word>(load<Word>(data + kStart) & static_cast<Word>(~(kMask << kShift)));
    auto const word = static_cast<Word>(cleared | static_cast<Word>(value << kShift));
    std::memcpy(data + kStart, &word, sizeof word);
  }

 private:
  static constexpr std::size_t kFirst = Low / 8;
  static constexpr std::size_t kBytes = High / 8 - kFirst + 1;
  static constexpr std::size_t kWordBytes = kBytes > 8 ? 8 : std::bit_ceil(kBytes);
  static_assert(kWordBytes <= Size, "one word of the buffer covers the range");
  // A word that would reach past the end of the buffer starts earlier instead.
  static constexpr std::size_t kStart = kFirst + kWordBytes <= Size ? kFirst : Size - kWordBytes;
  static constexpr unsigned kShift = Low - static_cast<unsigned>(kStart) * 8;
  static constexpr std::uint64_t kMask = ~std::uint64_t{0} >> (64 - width);

  template <std::size_t Bytes>
  static auto wordOf() {
    if constexpr (Bytes == 1) {
      return std::uint8_t{};
    } else if constexpr (Bytes == 2) {
      return std::uint16_t{};
    } else if constexpr (Bytes == 4) {
      return std::uint32_t{};
    } else {
      return std::uint64_t{};
    }
  }
  using Word = decltype(wordOf<kWordBytes>());

  template <std::unsigned_integral Loaded>
  static Loaded load(std::uint8_t const* from) {
    Loaded word;
    std::memcpy(&word, from, sizeof word);
    return word;
  }
};

}  // namespace Detail
