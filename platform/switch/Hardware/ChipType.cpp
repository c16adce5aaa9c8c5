#include "platform/switch/Hardware/ChipType.h"

#include <array>
#include <string>

#include "runtime/Asic/GracefulAssert.h"

namespace Hardware {

Dovel::String valueToStrep(ChipType chipType) {
  switch (chipType) {
    case ChipType::jericho3:
      return "jericho3";
    case ChipType::qumran3a:
      return "qumran3a";
  }
  return std::to_string(static_cast<unsigned>(chipType));
}

std::ostream& operator<<(std::ostream& out, ChipType chipType) { return out << valueToStrep(chipType); }

namespace Loam {
namespace {

struct Group {
  unsigned lastChipType;
  FapType fapType;
};
constexpr std::array<Group, 7> kGroups{{
    {0, FapType::generation0},
    {3, FapType::generation1},
    {8, FapType::generation2},
    {16, FapType::generation3},
    {26, FapType::generation4},
    {28, FapType::generation5},
    {36, FapType::generation4},
}};
static_assert(kGroups.back().lastChipType + 1 == kChipTypes);

}  // namespace

Dovel::String stringValue(FapType fapType) {
  return Dovel::String("generation").append(std::to_string(static_cast<unsigned>(fapType)));
}

FapType chipTypeToFapType(ChipType chipType) {
  auto const number = static_cast<unsigned>(chipType);
  for (Group const& group : kGroups)
    if (number <= group.lastChipType) return group.fapType;
  ASIC_GRACEFUL_FAIL("false", "Unhandled chipType {}", number);
}

}  // namespace Loam
}  // namespace Hardware
