// The number of a FAP, the forwarding chip of a line card. A plain value; any thread.
#pragma once

#include <compare>
#include <concepts>
#include <cstdint>
#include <ostream>
#include <utility>

#include "runtime/Dovel/String.h"

namespace Sluice {

namespace Impl {
[[noreturn]] void throwFapIdOutOfRange();
}  // namespace Impl

// min() to null(); null means no particular FAP and is what a FapId starts as.
class FapId {
 public:
  constexpr FapId() = default;
  // Throws Dovel::RangeException where the number is out of range.
  template <std::integral Number>
  constexpr FapId(Number number) : value_(static_cast<std::uint8_t>(number)) {
    if (std::cmp_less(number, 0) || std::cmp_greater(number, kNull)) [[unlikely]]
      Impl::throwFapIdOutOfRange();
  }

  static constexpr FapId min() { return 0; }
  static constexpr FapId null() { return {}; }

  constexpr std::uint8_t value() const { return value_; }
  constexpr bool isNull() const { return value_ == kNull; }

  friend constexpr bool operator==(FapId a, FapId b) = default;
  friend constexpr std::strong_ordering operator<=>(FapId a, FapId b) = default;
  friend std::ostream& operator<<(std::ostream& out, FapId fap) { return out << unsigned{fap.value_}; }

 private:
  static constexpr std::uint8_t kNull = 128;

  std::uint8_t value_ = kNull;
};
static_assert(sizeof(FapId) == 1);

Dovel::String valueToStrep(FapId fap);

}  // namespace Sluice

namespace Hardware::Loam {
using FapId = Sluice::FapId;
}  // namespace Hardware::Loam

template <>
struct fmt::formatter<Sluice::FapId> : Dovel::PlainFormatter {
  auto format(Sluice::FapId fap, fmt::format_context& context) const {
    return write(valueToStrep(fap), context);
  }
};
