// A table with shadows for those who know only its name. See platform/switch/LoamAsicUtils/TableAccess.h.
#pragma once

#include "LoamSharedHwTables/StoredShadow.h"
#include "platform/switch/LoamAsicUtils/HwEmShadowBase.h"
#include "platform/switch/LoamAsicUtils/HwEmTableBase.h"
#include "platform/switch/LoamAsicUtils/TableAccess.h"
#include "platform/switch/LoamAsicUtils/TableManager.h"

namespace LoamSharedHwTables {

template <class T>
class TableAccessOf final : public LoamAsicUtils::TableAccess {
  using Table = LoamAsicUtils::HwCommonShadowTableBase;
  using ShadowKey = LoamAsicUtils::HwShadowKey;
  using KeyImage = LoamAsicUtils::KeyImage;
  using Entry = typename T::Entry;
  using EntryKey = typename T::EntryKey;
  static_assert(sizeof(EntryKey) <= sizeof(KeyImage));
  static constexpr bool kIsExactMatch = std::is_base_of_v<LoamAsicUtils::HwEmTableBase, T>;

 public:
  constexpr TableAccessOf() = default;

  Dovel::Ptr<Table> make(LoamAsicUtils::HwTableKey const& key,
                         Dovel::Ptr<LoamAsicUtils::TableManager> const& manager) const override {
    if constexpr (kIsExactMatch) {
      return Dovel::ptrIsImpl<T>(T::tableName(), key, manager, manager->mdbStatus());
    } else {
      return Dovel::ptrIsImpl<T>(T::tableName(), key, manager);
    }
  }

  KeyImage keyOf(std::span<std::uint64_t const> members) const override {
    EntryKey key;
    std::size_t at = 0;
    auto const fill = [&]<class Member>(Member& member) {
      auto const& described = T::Traits::description().key[at];
      if (members[at] > described.max) [[unlikely]] {
        DOVEL_THROW(Dovel::RangeException, "TableAccessOf", "{}: {}: {} is not 0 to {}", T::tableName(),
                    described.name, members[at], described.max);
      }
      member = static_cast<Member>(members[at++]);
    };
    std::apply([&](auto&... member) { (fill(member), ...); }, EntryKey::members(key));
    return image(key);
  }
  std::vector<std::uint64_t> keyMembers(KeyImage const& image) const override {
    EntryKey const key = keyIn(image);
    std::vector<std::uint64_t> members;
    std::apply([&](auto const&... member) { (members.push_back(Orlo::numberOf(member)), ...); },
               EntryKey::members(key));
    return members;
  }
  KeyImage keyOfData([[maybe_unused]] std::span<std::uint8_t const> data) const override {
    if constexpr (kIsExactMatch) {
      Entry entry;
      entry.dataBytesIs(data.data());
      entry.setKeyFromBuffer();
      return image(entry.entryKey());
    } else {
      return {};
    }
  }
  KeyImage publishedKey(void const* key) const override { return image(*static_cast<EntryKey const*>(key)); }

  void setEntry(Table& table, ShadowKey shadow, KeyImage const& key, std::uint32_t view,
                std::span<std::uint8_t const> data) const override {
    DOVEL_ASSERT(data.size() == Entry::kDataBytes, "TableAccessOf", "{} bytes for a row of {}", data.size(),
                 T::tableName());
    Entry entry(keyIn(key));
    entry.dataBytesIs(data.data());
    if constexpr (kIsExactMatch) entry.keyToBuffer();
    if constexpr (requires { entry.viewT(); }) entry.viewTIs(static_cast<typename T::ViewT>(view));
    static_cast<T&>(table).setEntry(shadow, entry);
  }
  void deleteEntry(Table& table, ShadowKey shadow, KeyImage const& key) const override {
    static_cast<T&>(table).deleteEntry(shadow, keyIn(key));
  }
  LoamAsicUtils::RowImage getEntry(Table const& table, ShadowKey shadow, KeyImage const& key) const override {
    Entry const entry = static_cast<T const&>(table).getEntry(shadow, keyIn(key));
    return {viewOf(entry), {entry.dataBytes().begin(), entry.dataBytes().end()}};
  }
  Dovel::Ptr<Sluice::SchanCmds> schanCmds(
      Table const& table, ShadowKey shadow, KeyImage const& key,
      Dovel::Ptr<Asic::LogEntryWrapperBase> const& logEntry) const override {
    return static_cast<T const&>(table).schanCmds(shadow, keyIn(key), logEntry);
  }

  OrloVault::Entity* storage(LoamAsicUtils::HwShadowBase& shadow) const override { return storageOf(shadow); }
  bool mounted(LoamAsicUtils::HwShadowBase const& shadow) const override {
    auto* const storage = storageOf(shadow);
    return storage != nullptr && storage->entryCollMap().interface().mountStatus() != 0;
  }
  void unmount(LoamAsicUtils::HwShadowBase& shadow) const override {
    static_cast<typename T::Shadow&>(shadow).unmountVault();
  }
  bool stored(LoamAsicUtils::HwShadowBase const& shadow, KeyImage const& key) const override {
    auto* const storage = storageOf(shadow);
    bool found = false;
    if (storage == nullptr) return false;
    [[maybe_unused]] Entry const& entry = storage->entryColl(keyIn(key), found);
    if constexpr (kIsExactMatch) found = found && entry.command() != LoamAsicUtils::emCommandDelete;
    return found;
  }
  std::uint32_t storedCount(LoamAsicUtils::HwShadowBase const& shadow) const override {
    auto* const storage = storageOf(shadow);
    return storage == nullptr ? 0 : storage->entryCollMap().interface().members();
  }
  void forEachEntry(LoamAsicUtils::HwShadowBase const& shadow, Visit const& visit) const override {
    auto* const storage = storageOf(shadow);
    if (storage == nullptr) return;
    storage->entryCollForEach(
        [&](Entry const& entry) { visit(image(entry.entryKey()), viewOf(entry), entry.dataBytes()); });
  }

 private:
  static KeyImage image(EntryKey const& key) {
    KeyImage made;
    std::memcpy(made.words.data(), &key, sizeof key);
    return made;
  }
  static EntryKey keyIn(KeyImage const& image) {
    EntryKey key;
    std::memcpy(static_cast<void*>(&key), image.words.data(), sizeof key);
    return key;
  }
  static std::uint32_t viewOf(Entry const& entry) {
    if constexpr (requires { entry.viewT(); }) {
      return static_cast<std::uint32_t>(entry.viewT());
    } else {
      return 0;
    }
  }
  static typename T::Shadow::EntryStorage* storageOf(LoamAsicUtils::HwShadowBase const& shadow) {
    return static_cast<typename T::Shadow const&>(shadow).entryStorage().ptr();
  }
};

}  // namespace LoamSharedHwTables
