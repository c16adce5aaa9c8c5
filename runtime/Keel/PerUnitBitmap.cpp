#include "runtime/Keel/PerUnitBitmap.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "runtime/Ancillary/Utility.h"

namespace Keel {

void PerUnitBitmap::bitsOr(std::size_t firstBit, std::uint64_t value, std::size_t nBits) {
  Ancillary::Utility::affirm(nBits <= 64);
  std::size_t const end = (firstBit + nBits + 7) / 8;
  if (end > bytes_.size()) bytes_.resize(end);
  while (nBits > 0) {
    std::size_t const step = std::min(nBits, 8 - firstBit % 8);
    std::uint64_t const bits = value & (0xffU >> (8 - step));
    bytes_[firstBit / 8] = static_cast<std::uint8_t>(bytes_[firstBit / 8] | bits << firstBit % 8);
    value >>= step;
    firstBit += step;
    nBits -= step;
  }
}

Dovel::String PerUnitBitmap::toString() const {
  if (bytes_.empty()) return "0x0";
  std::string text = "0x";
  for (auto byte = bytes_.rbegin(); byte != bytes_.rend(); ++byte) {
    fmt::format_to(std::back_inserter(text), "{:02x}", *byte);
  }
  return text;
}

}  // namespace Keel
