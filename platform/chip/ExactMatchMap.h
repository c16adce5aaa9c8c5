// What the chip's exact-match databases are, as the chip itself has them. Like ChipMemoryMap never made from
// the descriptors of tables. Constants; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace Chip {

// Databases of one physical table share its buckets and never see each other's entries.
struct ExactMatchDatabase {
  static constexpr std::uint32_t kBlock = 282;
  static constexpr std::size_t kKeyStart = 9;  // the first bit of the key in an entry's 24 bytes

  std::uint32_t physicalTable;
  std::string_view memory;  // the chip's name of the physical table
  std::uint32_t tid;
  std::uint32_t entryType;
  std::uint32_t keyEnd;  // the last bit of the key

  // The bits of an entry's first 64 that are its key.
  constexpr std::uint64_t keyMask() const {
    return ((std::uint64_t{2} << keyEnd) - 1) & ~((std::uint64_t{1} << kKeyStart) - 1);
  }
  // The highest bit of what a pass merges into an entry of that type.
  constexpr std::size_t payloadEnd() const { return entryType == 1 ? 84 : 144; }
};

class ExactMatchMap {
 public:
  static constexpr std::size_t kPhysicalTables = 3;

  static std::span<ExactMatchDatabase const> databases();
  // Physical tables have numbers from 0, in ascending order of their ids; kPhysicalTables where the chip has
  // none of that id.
  static std::size_t numberOf(std::uint32_t physicalTable);
  static std::uint32_t physicalTable(std::size_t number);
  // The database with that tid; null where the chip has none.
  static ExactMatchDatabase const* at(std::size_t number, std::uint32_t tid);
  static ExactMatchDatabase const* find(std::uint32_t physicalTable, std::uint32_t tid) {
    return at(numberOf(physicalTable), tid);
  }
  // Of everything that decides where an entry is kept: equal for equal maps.
  static std::uint64_t fingerprint();
};

}  // namespace Chip
