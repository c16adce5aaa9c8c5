#include "platform/switch/LoamPPExport/ChipValues.h"

#include "runtime/Asic/GracefulAssert.h"

namespace LoamPPExport {
namespace {

std::uint32_t ownNumber(char const* what, Hardware::ChipType chipType, std::uint32_t item,
                        std::uint32_t count) {
  ASIC_GRACEFUL_ASSERT(item < count, "item < count", "chip type {} has no {} {}, items are 0 to {}", chipType,
                       what, item, count - 1);
  return item;
}

}  // namespace

std::uint32_t etpp_current_next_protocol_value(Hardware::ChipType chipType, etpp_current_next_protocol item) {
  return ownNumber("next protocol", chipType, static_cast<std::uint32_t>(item), kCurrentNextProtocols);
}

std::uint32_t etpp_trap_fwd_rcy_cmd_value(Hardware::ChipType chipType, etpp_trap_fwd_rcy_cmd item) {
  return ownNumber("recycle command", chipType, static_cast<std::uint32_t>(item),
                   kTrapForwardRecycleCommands);
}

std::uint32_t ctx_additional_header_profile_value(Hardware::ChipType chipType,
                                                  ctx_additional_header_profile item) {
  switch (item) {
    case ctx_additional_header_profile::first:
    case ctx_additional_header_profile::second:
    case ctx_additional_header_profile::third:
      return static_cast<std::uint32_t>(item);
    case ctx_additional_header_profile::further:
      return 8;
  }
  ASIC_GRACEFUL_FAIL("item", "chip type {} has no additional header profile {}", chipType,
                     static_cast<std::uint32_t>(item));
}

}  // namespace LoamPPExport
