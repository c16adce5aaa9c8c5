// The revision of a chip. A plain value; any thread.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

#include "platform/switch/Hardware/ChipType.h"
#include "runtime/Dovel/String.h"

namespace Hardware::Loam {

// Chip and stepping. The high byte of the low half is the chip type; names have a prefix of five letters.
enum class FapRevMajor : std::uint32_t {
  majorNone = 0,
  majorJericho3A0 = 18 << 8,
  majorQumran3aA0 = 25 << 8,
  majorQumran3aB0 = 25 << 8 | 1,
};

// The variant of a stepping; likewise named.
enum class FapRevMinor : std::uint32_t {
  minorBase = 0,
  minorAi = 1,
};

// The names of the enumerators; a bare number where a value has none.
Dovel::String stringValue(FapRevMajor major);
Dovel::String stringValue(FapRevMinor minor);

class FapRevision {
 public:
  constexpr FapRevision() = default;
  constexpr explicit FapRevision(FapRevMajor major, FapRevMinor minor = FapRevMinor::minorBase)
      : major_(major), minor_(minor) {}

  static constexpr FapRevision fapRevJericho3A0() { return FapRevision(FapRevMajor::majorJericho3A0); }

  constexpr FapRevMajor revMajor() const { return major_; }
  constexpr FapRevMinor revMinor() const { return minor_; }
  constexpr ChipType chipType() const {
    return static_cast<ChipType>(static_cast<std::uint32_t>(major_) >> 8 & 0xFF);
  }
  constexpr bool isAiVariant() const { return minor_ == FapRevMinor::minorAi; }

  // Both names in full, for people: "majorQumran3aA0/minorAi".
  Dovel::String revString() const;
  // The short form in shadow names and store paths: "Qumran3aA0", "Qumran3aA0Ai".
  Dovel::String shortForm() const;

  friend constexpr bool isEq(FapRevision a, FapRevision b) { return a == b; }
  friend constexpr bool operator==(FapRevision a, FapRevision b) = default;
  friend constexpr std::strong_ordering operator<=>(FapRevision a, FapRevision b) = default;
  friend std::ostream& operator<<(std::ostream& out, FapRevision revision) {
    return out << revision.shortForm();
  }

 private:
  FapRevMajor major_ = FapRevMajor::majorNone;
  FapRevMinor minor_ = FapRevMinor::minorBase;
};
static_assert(sizeof(FapRevision) == 8);

}  // namespace Hardware::Loam

template <>
struct fmt::formatter<Hardware::Loam::FapRevision> : Dovel::PlainFormatter {
  auto format(Hardware::Loam::FapRevision revision, fmt::format_context& context) const {
    return write(revision.shortForm(), context);
  }
};
