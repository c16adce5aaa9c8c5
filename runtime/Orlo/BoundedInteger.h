// The bounded unsigned integers U1 to U63 (but 8, 16 and 32, which are plain integers): values of fields that
// are narrower than a machine word. Plain values; any thread.
#pragma once

#include <compare>
#include <concepts>
#include <cstdint>
#include <ostream>
#include <type_traits>
#include <utility>

#include "runtime/Orlo/CharRange.h"

namespace Orlo {
namespace Impl {

// Raises RangeException with the text of the U type of this width.
[[noreturn]] void throwOutOfRange(unsigned width);

template <unsigned Width>
using SmallestStorage =
    std::conditional_t<Width <= 8, std::uint8_t,
                       std::conditional_t<Width <= 16, std::uint16_t,
                                          std::conditional_t<Width <= 32, std::uint32_t, std::uint64_t>>>;

}  // namespace Impl

// Holds 0 to 2^Width - 1 in the smallest of 8, 16, 32 or 64 bits.
template <unsigned Width>
class U {
  static_assert(Width >= 1 && Width < 64 && Width != 8 && Width != 16 && Width != 32);

 public:
  using Storage = Impl::SmallestStorage<Width>;
  static constexpr unsigned width = Width;

  constexpr U() = default;
  // Throws Dovel::RangeException where the number is out of range. A bool counts as 0 or 1.
  template <std::integral Number>
  constexpr U(Number number) : value_(static_cast<Storage>(number)) {
    auto const promoted = +number;  // the comparisons below take no bool
    if (std::cmp_less(promoted, 0) || std::cmp_greater(promoted, max().value_)) [[unlikely]]
      Impl::throwOutOfRange(Width);
  }
  // Reads a bare number.
  explicit U(CharRange& range) : U(range.needNumber()) {}

  // From bits that were already cut to the width.
  static constexpr U fromBits(std::uint64_t bits) {
    U result;
    result.value_ = static_cast<Storage>(bits);
    return result;
  }
  static constexpr U max() { return fromBits((std::uint64_t{1} << Width) - 1); }

  constexpr Storage value() const { return value_; }

  friend constexpr bool operator==(U a, U b) = default;
  friend constexpr std::strong_ordering operator<=>(U a, U b) = default;
  friend std::ostream& operator<<(std::ostream& out, U number) { return out << std::uint64_t{number.value_}; }

 private:
  Storage value_ = 0;
};

template <unsigned Width>
Dovel::String valueToStrep(U<Width> number) {
  return std::to_string(number.value());
}

template <class T>
inline constexpr bool isBounded = false;
template <unsigned Width>
inline constexpr bool isBounded<U<Width>> = true;

// The bare number of a U type or a plain integer.
template <class Number>
constexpr std::uint64_t numberOf(Number number) {
  if constexpr (isBounded<Number>) {
    return number.value();
  } else {
    return number;
  }
}

// clang-format off
using U1 = U<1>;   using U2 = U<2>;   using U3 = U<3>;   using U4 = U<4>;   using U5 = U<5>;
using U6 = U<6>;   using U7 = U<7>;   using U9 = U<9>;   using U10 = U<10>; using U11 = U<11>;
using U12 = U<12>; using U13 = U<13>; using U14 = U<14>; using U15 = U<15>; using U17 = U<17>;
using U18 = U<18>; using U19 = U<19>; using U20 = U<20>; using U21 = U<21>; using U22 = U<22>;
using U23 = U<23>; using U24 = U<24>; using U25 = U<25>; using U26 = U<26>; using U27 = U<27>;
using U28 = U<28>; using U29 = U<29>; using U30 = U<30>; using U31 = U<31>; using U33 = U<33>;
using U34 = U<34>; using U35 = U<35>; using U36 = U<36>; using U37 = U<37>; using U38 = U<38>;
using U39 = U<39>; using U40 = U<40>; using U41 = U<41>; using U42 = U<42>; using U43 = U<43>;
using U44 = U<44>; using U45 = U<45>; using U46 = U<46>; using U47 = U<47>; using U48 = U<48>;
using U49 = U<49>; using U50 = U<50>; using U51 = U<51>; using U52 = U<52>; using U53 = U<53>;
using U54 = U<54>; using U55 = U<55>; using U56 = U<56>; using U57 = U<57>; using U58 = U<58>;
using U59 = U<59>; using U60 = U<60>; using U61 = U<61>; using U62 = U<62>; using U63 = U<63>;
// clang-format on

}  // namespace Orlo

template <unsigned Width>
struct fmt::formatter<Orlo::U<Width>> : Dovel::PlainFormatter {
  auto format(Orlo::U<Width> number, fmt::format_context& context) const {
    return write(valueToStrep(number), context);
  }
};
