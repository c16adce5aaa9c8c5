// What a loaded bundle tells about its tables: constants only, in the order of the bundle's catalogue. A
// bundle's units describe themselves while it is loaded, and withdraw when it is unloaded.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace LoamAsicUtils {

class TableAccess;

enum class TableFamily : std::uint8_t { direct, exactMatch, reg, mdbDirect };

// "direct", "exactMatch", "register" or "mdbDirect".
std::string_view stringValue(TableFamily family);

// A member of a table's key; the largest legal value is max. type is "U20", "32-bit" and the like.
struct KeyMemberDescription {
  std::string_view name;
  std::string_view type;
  std::uint64_t min;
  std::uint64_t max;
};

// A memory, register or physical table of the chip. Sizes are in bytes; arrays and entries are counted from
// the first.
struct MemoryDescription {
  unsigned id;
  std::string_view name;
  std::uint32_t block;
  std::uint32_t address;
  std::uint8_t firstArray;
  std::uint8_t arrayCount;
  std::uint32_t firstEntry;
  std::uint32_t entryCount;
  std::uint32_t entrySize;
  std::optional<std::uint8_t> physicalTableId;
};

struct PresetDescription {
  std::string_view field;
  std::uint64_t value;
};

// A field: bits low to high, both inclusive, of the row's bytes; bit 0 is the low bit of byte 0. view is the
// view class that the field belongs to, empty for fields of the entry itself. type is "U20", "32-bit" or
// "bitmap".
struct FieldDescription {
  std::string_view view;
  std::string_view name;
  std::string_view type;
  unsigned low;
  unsigned high;
};

struct TableDescription {
  std::string_view name;
  std::string_view typeName;
  unsigned order;  // place in the catalogue, from 0
  TableFamily family;
  std::string_view chipName;   // of the chip's memories or database; several are joined by "."
  std::string_view groupName;  // of the table's descriptor; empty where the family has none
  std::string_view tag;
  std::optional<std::uint8_t> mdbTableId;
  std::uint32_t entryDataMaxSize;  // bytes
  bool hasParitySupport;
  std::span<KeyMemberDescription const> key;
  std::span<MemoryDescription const> memories;
  std::span<PresetDescription const> presets;
  std::span<FieldDescription const> fields;
  TableAccess const* access = nullptr;  // null where a table can only be looked up, not run

  std::uint32_t entryDataMaxSizeBits() const { return entryDataMaxSize * 8; }
};

// The tables of the bundles that are loaded. Any thread may ask; loading and unloading serialise themselves.
class TableCatalogue {
 public:
  // Puts a description in for as long as it lives. The description must outlive it.
  class Registration {
   public:
    explicit Registration(TableDescription const& description);
    ~Registration();
    Registration(Registration const&) = delete;
    Registration& operator=(Registration const&) = delete;

   private:
    TableDescription const* const description_;
  };

  // In catalogue order. The descriptions live as long as their bundle stays loaded.
  static std::vector<TableDescription const*> tables();
  // Null for a name that no table has.
  static TableDescription const* table(std::string_view name);
};

}  // namespace LoamAsicUtils
