// Numbers that the packet pipeline of a chip knows things by. Items are what code speaks of; the value of an
// item is the chip's. A platform of real hardware takes the values from its chip description; ours are fixed.
// An item that a chip doesn't have fails in the style of Asic::mode. Pure functions; any thread.
#pragma once

#include <cstdint>

#include "platform/switch/Hardware/ChipType.h"

namespace LoamPPExport {

// The protocols with which a forwarding header can start.
enum class etpp_current_next_protocol : std::uint32_t {
  item5 = 5,
  item6 = 6,
  item7 = 7,
  item9 = 9,
};
constexpr std::uint32_t kCurrentNextProtocols = 16;

// The item's own number.
std::uint32_t etpp_current_next_protocol_value(Hardware::ChipType chipType, etpp_current_next_protocol item);

// What stands before a packet besides its headers.
enum class ctx_additional_header_profile : std::uint32_t {
  first = 1,
  second = 2,
  third = 3,
  // Of the row that is formed of two items.
  further = 4,
};

// 1, 2, 3 and, for `further`, 8.
std::uint32_t ctx_additional_header_profile_value(Hardware::ChipType chipType,
                                                  ctx_additional_header_profile item);

// Commands by which a trapped packet is forwarded once more.
enum class etpp_trap_fwd_rcy_cmd : std::uint32_t {};
constexpr std::uint32_t kTrapForwardRecycleCommands = 16;

// The item's own number.
std::uint32_t etpp_trap_fwd_rcy_cmd_value(Hardware::ChipType chipType, etpp_trap_fwd_rcy_cmd item);

}  // namespace LoamPPExport
