// A bitmap that grows as bits are put in: the value of fields wider than 64 bits. Bit 0 is the low bit of
// byte 0. A plain value; share it between threads only as any std value.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

#include "runtime/Dovel/String.h"

namespace Keel {

class PerUnitBitmap {
 public:
  PerUnitBitmap() = default;
  explicit PerUnitBitmap(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

  // Ors the low nBits (at most 64) of value in from bit firstBit on. The bitmap grows to hold the whole
  // range, also where the value is 0.
  void bitsOr(std::size_t firstBit, std::uint64_t value, std::size_t nBits);

  // False past the end.
  bool bit(std::size_t index) const {
    return index / 8 < bytes_.size() && (bytes_[index / 8] >> index % 8 & 1) != 0;
  }
  std::vector<std::uint8_t> const& bytes() const { return bytes_; }

  // Equal when of one length and of equal bytes.
  friend bool operator==(PerUnitBitmap const&, PerUnitBitmap const&) = default;

  // The bytes in hex, the highest first, as "0x" and two digits a byte; "0x0" when empty.
  Dovel::String toString() const;
  friend std::ostream& operator<<(std::ostream& out, PerUnitBitmap const& bitmap) {
    return out << bitmap.toString();
  }

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace Keel

template <>
struct fmt::formatter<Keel::PerUnitBitmap> : Dovel::PlainFormatter {
  auto format(Keel::PerUnitBitmap const& bitmap, fmt::format_context& context) const {
    return write(bitmap.toString(), context);
  }
};
