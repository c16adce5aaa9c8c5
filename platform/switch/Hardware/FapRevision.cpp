#include "platform/switch/Hardware/FapRevision.h"

#include <array>

#include "runtime/Orlo/EnumType.h"

namespace Hardware::Loam {
namespace {

constexpr std::size_t kPrefix = 5;

constexpr std::uint32_t number(FapRevMajor major) { return static_cast<std::uint32_t>(major); }
constexpr std::uint32_t number(FapRevMinor minor) { return static_cast<std::uint32_t>(minor); }

constexpr std::array<Orlo::EnumType::Enumerator, 4> kMajors{{
    {"majorNone", number(FapRevMajor::majorNone)},
    {"majorJericho3A0", number(FapRevMajor::majorJericho3A0)},
    {"majorQumran3aA0", number(FapRevMajor::majorQumran3aA0)},
    {"majorQumran3aB0", number(FapRevMajor::majorQumran3aB0)},
}};
constexpr std::array<Orlo::EnumType::Enumerator, 2> kMinors{{
    {"minorBase", number(FapRevMinor::minorBase)},
    {"minorAi", number(FapRevMinor::minorAi)},
}};
constexpr Orlo::EnumType kMajorType("Hardware::Loam", 1, "FapRevMajor", kMajors);
constexpr Orlo::EnumType kMinorType("Hardware::Loam", 2, "FapRevMinor", kMinors);

static_assert(FapRevision(FapRevMajor::majorJericho3A0).chipType() == ChipType::jericho3);
static_assert(FapRevision(FapRevMajor::majorQumran3aA0).chipType() == ChipType::qumran3a);
static_assert(FapRevision(FapRevMajor::majorQumran3aB0).chipType() == ChipType::qumran3a);

}  // namespace

Dovel::String stringValue(FapRevMajor major) { return kMajorType.stringValue(number(major)); }
Dovel::String stringValue(FapRevMinor minor) { return kMinorType.stringValue(number(minor)); }

Dovel::String FapRevision::revString() const {
  return stringValue(major_).append("/").append(stringValue(minor_));
}

Dovel::String FapRevision::shortForm() const {
  Dovel::String form = stringValue(major_).substrOrEmpty(kPrefix);
  if (minor_ != FapRevMinor::minorBase) form.append(stringValue(minor_).substrOrEmpty(kPrefix));
  return form;
}

}  // namespace Hardware::Loam
