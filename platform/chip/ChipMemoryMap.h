// What the chip's memories are, as the chip itself has them. Kept apart from the descriptors of tables and
// never made from them: a wrong descriptor is to meet a chip that knows better. Constants; any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/switch/Sluice/SchanMessage.h"

namespace Chip {

// Rows stand at consecutive addresses, one address a row. A register is a row of its own.
struct ChipMemory {
  enum class Kind : std::uint8_t { memory, chipRegister };
  // A row is written by one message.
  static constexpr std::size_t kMaxRowBytes = sizeof(Sluice::schan_xmsg_user_::data);

  std::uint32_t block;
  std::uint32_t address;  // of the first row
  std::uint32_t rows;
  std::uint32_t rowBytes;
  std::string_view name;
  Kind kind = Kind::memory;
  std::uint64_t storedAt = 0;  // bytes of all memories before this one

  constexpr std::uint64_t bytes() const { return std::uint64_t{rows} * rowBytes; }
  // Whether all of the rows lie in it.
  constexpr bool has(std::uint32_t inBlock, std::uint32_t first, std::uint32_t count) const {
    return inBlock == block && first >= address && count <= rows && first - address <= rows - count;
  }
};

class ChipMemoryMap {
 public:
  // In ascending order of blocks, and of addresses in a block.
  static std::span<ChipMemory const> memories();
  // The one with that row; null where the chip has none.
  static ChipMemory const* find(std::uint32_t block, std::uint32_t row);
  // Of all rows together.
  static std::uint64_t bytes();
  // Of everything that decides where a row is kept: equal for equal maps.
  static std::uint64_t fingerprint();
};

}  // namespace Chip
