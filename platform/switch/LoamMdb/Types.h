// Numbers of the chip's modular database. Plain values; any thread.
#pragma once

#include <cstdint>

namespace LoamMdb {

// A physical table.
enum class PhysicalTableId : std::uint8_t {};

// The index of an entry in a managed table.
using EntryIndex = std::uint32_t;

// The kind of an exact-match entry, three bits wide in the entry.
enum class EmEntryType : std::uint8_t {};

}  // namespace LoamMdb
