// Makes a table's entries readable in stores: registers how to hash, order and print an entry of which there
// are only bytes. See Vault/StoredType.h for the thread rule.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <span>

#include "Vault/StoredType.h"
#include "Vault/VaultReader.h"
#include "platform/switch/TableDescription.h"
#include "runtime/Orlo/CharRange.h"
#include "runtime/Vault/Ops.h"

namespace LoamSharedHwTables {

namespace Impl {

// The fields of a row; of a table with views those of the view with that number, or none where there is no
// such view.
void storedFields(LoamAsicUtils::TableDescription const& table, std::span<std::uint8_t const> row,
                  std::uint32_t view, Vault::FieldSink& sink);

// What a key is read from: the text, with the type's name and brackets added where there are none.
Dovel::String keyText(std::string_view text, std::string_view typeName);

}  // namespace Impl

// A table's entries as its store knows them.
template <class Unit>
using StoredOps = Vault::OpsOf<
    OrloVault::ValWrap<typename Unit::Entry, typename Unit::EntryKey, &Unit::Entry::entryKey, false>>;

template <class Unit>
class EntryReader final : public Vault::StoredReader {
  using Key = typename Unit::EntryKey;

 public:
  explicit EntryReader(Mem::RootPath const& rootPath)
      : reader_(Dovel::Platform::getDebugHandler("StoredReader", true), rootPath) {}

  bool attach() override { return reader_.initialize("look-up"); }
  std::byte const* find(std::string_view text) override {
    Key key;
    Orlo::strepToValue<Key>(Impl::keyText(text, Key::typeName()), &key);
    bool found = false;
    auto const* const value = reader_.lookup(key, found, nullptr);
    return found ? static_cast<std::byte const*>(static_cast<void const*>(value)) : nullptr;
  }

 private:
  Vault::VaultReader<StoredOps<Unit>> reader_;
};

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
  static std::unique_ptr<Vault::StoredReader> reader(Mem::RootPath const& rootPath) {
    return std::make_unique<EntryReader<Unit>>(rootPath);
  }
  static void fields(std::byte const* value, Vault::FieldSink& sink) {
    Entry const entry = entryAt(value);
    std::uint32_t view = 0;
    if constexpr (requires { entry.viewT(); }) view = static_cast<std::uint32_t>(entry.viewT());
    Impl::storedFields(Unit::Traits::description(), entry.dataBytes(), view, sink);
  }

 public:
  static constexpr Vault::StoredType type{
      Unit::Traits::entryTypeName, sizeof(Entry), &keyHash, &compareKeys, &keyText, &fields, &reader};
};

}  // namespace LoamSharedHwTables
