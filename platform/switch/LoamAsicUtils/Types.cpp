#include "platform/switch/LoamAsicUtils/Types.h"

#include <array>

#include "runtime/Orlo/EnumType.h"

namespace LoamAsicUtils {
namespace {

constexpr std::array<Orlo::EnumType::Enumerator, 5> kFlushCmdTypes{{
    {"flushCmdClear", 0},
    {"flushCmdMark", 1},
    {"flushCmdSweep", 2},
    {"flushCmdReadFirst", 3},
    {"flushCmdReadSecond", 4},
}};
constexpr Orlo::EnumType kFlushCmdType("LoamAsicUtils", 1, "FlushCmdType", kFlushCmdTypes);

}  // namespace

Dovel::String valueToStrep(FlushCmdType type) {
  return kFlushCmdType.stringValue(static_cast<std::uint32_t>(type));
}

std::ostream& operator<<(std::ostream& out, FlushCmdType type) { return out << valueToStrep(type); }

}  // namespace LoamAsicUtils
