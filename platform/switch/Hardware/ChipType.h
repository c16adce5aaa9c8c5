// Chip types, their generations, and the numbers that name parts of a chip. Plain values; any thread.
#pragma once

#include <cstdint>
#include <ostream>

#include "runtime/Dovel/String.h"

namespace Hardware {

// 37 types, 0 to 36; the ones that the platform has revisions of are named.
enum class ChipType : std::uint8_t {
  jericho3 = 18,
  qumran3a = 25,
};
constexpr unsigned kChipTypes = 37;

// A block of the chip, by the number that the chip description gives it.
enum class Block : std::uint32_t {};

Dovel::String valueToStrep(ChipType chipType);
std::ostream& operator<<(std::ostream& out, ChipType chipType);

namespace Loam {

// The generation of a chip.
enum class FapType : std::uint8_t {
  generation0,
  generation1,
  generation2,
  generation3,
  generation4,
  generation5,
};

// The generation's name: "generation4".
Dovel::String stringValue(FapType fapType);

// The core of a FAP that a command of the modular database addresses.
enum class CoreInfo : std::uint8_t {};

// Fails in the style of Asic::mode for a number that is no chip type.
FapType chipTypeToFapType(ChipType chipType);

}  // namespace Loam
}  // namespace Hardware

template <>
struct fmt::formatter<Hardware::ChipType> : Dovel::PlainFormatter {
  auto format(Hardware::ChipType chipType, fmt::format_context& context) const {
    return write(valueToStrep(chipType), context);
  }
};
