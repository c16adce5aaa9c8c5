// Makes a table's entries readable in stores: registers how to hash, order and print an entry of which there
// are only bytes. See Vault/StoredType.h for the thread rule.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <span>

#include "Vault/StoredType.h"
#include "platform/switch/TableDescription.h"

namespace LoamSharedHwTables {

namespace Impl {

// The fields of a row; of a table with views those of the view with that number, or none where there is no
// such view.
void storedFields(LoamAsicUtils::TableDescription const& table, std::span<std::uint8_t const> row,
                  std::uint32_t view, Vault::FieldSink& sink);

}  // namespace Impl

template <class Unit>
class StoredEntry {
  using Entry = typename Unit::Entry;

  static Entry entryAt(std::byte const* value) {
    std::array<std::byte, sizeof(Entry)> bytes;
    std::memcpy(bytes.data(), value, bytes.size());
    return std::bit_cast<Entry>(bytes);
  }
  static std::uint32_t keyHash(std::byte const* value, std::uint32_t seed) {
    return entryAt(value).entryKey().hash(seed);
  }
  static std::strong_ordering compareKeys(std::byte const* a, std::byte const* b) {
    return entryAt(a).entryKey() <=> entryAt(b).entryKey();
  }
  static Dovel::String keyText(std::byte const* value) { return valueToStrep(entryAt(value).entryKey()); }
  static void fields(std::byte const* value, Vault::FieldSink& sink) {
    Entry const entry = entryAt(value);
    std::uint32_t view = 0;
    if constexpr (requires { entry.viewT(); }) view = static_cast<std::uint32_t>(entry.viewT());
    Impl::storedFields(Unit::Traits::description(), entry.dataBytes(), view, sink);
  }

 public:
  static constexpr Vault::StoredType type{
      Unit::Traits::entryTypeName, sizeof(Entry), &keyHash, &compareKeys, &keyText, &fields};
};

}  // namespace LoamSharedHwTables
