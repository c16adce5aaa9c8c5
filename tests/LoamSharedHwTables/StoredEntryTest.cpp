#include "LoamSharedHwTables/StoredEntry.h"

#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <random>

#include "tests/LoamSharedHwTables/AllTables.h"
#include "tests/support/Seed.h"

namespace {

using testing::ElementsAre;
using Vault::StoredType;

// Bytes at an odd address, as a tool may have them.
template <class Entry>
class AnyBytes {
 public:
  explicit AnyBytes(std::mt19937_64& random) {
    for (std::byte& byte : bytes_) byte = static_cast<std::byte>(random());
  }
  std::byte* data() { return bytes_.data() + 1; }
  Entry entry() {
    Entry entry;
    std::memcpy(static_cast<void*>(&entry), data(), sizeof entry);
    return entry;
  }

 private:
  std::array<std::byte, sizeof(Entry) + 1> bytes_;
};

using Fields = std::vector<std::pair<std::string, std::string>>;

class FieldList final : public Vault::FieldSink {
 public:
  void number(std::string_view name, std::uint64_t value) override {
    fields.emplace_back(name, std::to_string(value));
  }
  void bits(std::string_view name, std::string_view hex) override { fields.emplace_back(name, hex); }

  Fields fields;
};

Fields fieldsOf(StoredType const& type, std::byte const* value) {
  FieldList list;
  type.fields(value, list);
  return list.fields;
}

// What the getter of an entry, or of the view Record of it, tells.
template <class Record, class Entry, class Getter>
auto gotten(Entry const& entry, Getter getter) {
  if constexpr (std::is_invocable_v<Getter, Entry const&>) {
    return std::invoke(getter, entry);
  } else {
    return std::invoke(getter, Record::entry(entry));
  }
}

// As the getters of a class tell them.
template <class Record>
Fields gottenFields(auto const& entry) {
  Fields fields;
  Record::visitFields([&](std::string_view name, auto getter, auto) {
    auto const value = gotten<Record>(entry, getter);
    if constexpr (std::is_same_v<decltype(value), Keel::PerUnitBitmap const>) {
      fields.emplace_back(name, value.toString());
    } else {
      fields.emplace_back(name, std::to_string(std::uint64_t{Orlo::numberOf(value)}));
    }
  });
  return fields;
}

TEST(StoredEntry, OfEachTableIsKnownByTheNameOfItsEntries) {
  TestSupport::AllTables::forEach([]<class Table>() {
    StoredType const* const type = StoredType::find(Table::Entry::typeName());
    ASSERT_NE(type, nullptr) << Table::Entry::typeName();
    EXPECT_EQ(type->valueSize, sizeof(typename Table::Entry));
  });
}

TEST(StoredEntry, HashesOrdersAndNamesBytesAsTheirKeyDoes) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  TestSupport::AllTables::forEach([&random]<class Table>() {
    using Entry = typename Table::Entry;
    StoredType const& type = *StoredType::find(Entry::typeName());
    for (unsigned run = 0; run < 20; ++run) {
      AnyBytes<Entry> a(random);
      AnyBytes<Entry> b(random);
      if (run % 2 == 0) std::copy_n(a.data(), sizeof(typename Table::EntryKey) - 1, b.data());
      auto const key = a.entry().entryKey();
      auto const other = b.entry().entryKey();
      auto const seed = static_cast<std::uint32_t>(random());
      EXPECT_EQ(type.keyHash(a.data(), seed), key.hash(seed));
      EXPECT_EQ(type.compareKeys(a.data(), b.data()), key <=> other);
      EXPECT_EQ(type.compareKeys(a.data(), a.data()), std::strong_ordering::equal);
      EXPECT_EQ(type.keyText(a.data()), valueToStrep(key));
    }
  });
}

TEST(StoredEntry, TellsTheFieldsThatTheGettersTell) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  TestSupport::AllTables::forEach([&random]<class Table>() {
    if constexpr (!requires(typename Table::Entry entry) { entry.viewT(); }) {
      AnyBytes<typename Table::Entry> bytes(random);
      EXPECT_EQ(fieldsOf(*StoredType::find(Table::Entry::typeName()), bytes.data()),
                gottenFields<typename Table::Entry>(bytes.entry()))
          << Table::Entry::typeName();
    }
  });
}

TEST(StoredEntry, TellsTheFieldsOfItsViewAlone) {
  using Table = bcm88490_a0::TcamBHwDirect;
  StoredType const& type = *StoredType::find(Table::Entry::typeName());
  std::mt19937_64 random(1);
  AnyBytes<Table::Entry> bytes(random);
  auto const viewIs = [&bytes](std::uint32_t view) {
    Table::Entry entry = bytes.entry();
    entry.viewTIs(static_cast<Table::ViewT>(view));
    std::memcpy(bytes.data(), &entry, sizeof entry);
  };
  viewIs(static_cast<std::uint32_t>(Table::ViewT::mdbkKapsbRpbCommand));
  EXPECT_EQ(fieldsOf(type, bytes.data()), gottenFields<Table::MdbkKapsbRpbCommandEntry>(bytes.entry()));
  viewIs(static_cast<std::uint32_t>(Table::ViewT::mdbkKapsbRpbReadReply));
  EXPECT_EQ(fieldsOf(type, bytes.data()), gottenFields<Table::MdbkKapsbRpbReadReplyEntry>(bytes.entry()));
  viewIs(77);
  EXPECT_THAT(fieldsOf(type, bytes.data()), ElementsAre());
}

}  // namespace
