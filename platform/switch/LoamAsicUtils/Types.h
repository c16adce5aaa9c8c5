// The enumerations and numbers that table, shadow and flush code share. Plain values; any thread.
#pragma once

#include <cstdint>
#include <ostream>

#include "runtime/Dovel/String.h"

namespace LoamAsicUtils {

// The key of a memory in a table's descriptor: 0, 1, ...
using MemoryId = std::uint32_t;

enum class ShadowType : std::uint8_t {
  exactMatch = 1,
  keyBasedFull = 2,
  keyBasedPartial = 3,  // only part of the memory is ever written
};

enum class TableType : std::uint8_t {
  memory = 0,
  chipRegister = 1,
  exactMatch = 2,
};

// The kind of a flush command to form.
enum class FlushCmdType : std::uint32_t {
  flushCmdClear = 0,
  flushCmdMark = 1,
  flushCmdSweep = 2,
  flushCmdReadFirst = 3,
  flushCmdReadSecond = 4,
};

// The enumerator's name; the bare number where there is none.
Dovel::String valueToStrep(FlushCmdType type);
std::ostream& operator<<(std::ostream& out, FlushCmdType type);

}  // namespace LoamAsicUtils

template <>
struct fmt::formatter<LoamAsicUtils::FlushCmdType> : Dovel::PlainFormatter {
  auto format(LoamAsicUtils::FlushCmdType type, fmt::format_context& context) const {
    return write(valueToStrep(type), context);
  }
};
