// Where the traffic manager sends a packet, and what it does with a copy of one. Plain values; any thread.
#pragma once

#include <cstdint>

#include "platform/switch/Hardware/ChipType.h"

namespace Hardware::Loam {

enum class SnifType : std::uint8_t {};
enum class TmActionType : std::uint8_t {};

struct DestinationId {
  std::uint32_t number = 0;
  std::uint32_t second = 0;
  std::uint8_t kind = 0;
  std::uint8_t last = 0;

  // As the chips of a generation encode it: the kind above 16 bits of number.
  std::uint32_t encodedDestId(FapType /*fapType*/) const { return std::uint32_t{kind} << 16 | number; }
};

}  // namespace Hardware::Loam
