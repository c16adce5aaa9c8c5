#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "tests/LoamSharedHwTables/AllTables.h"
#include "tests/support/Seed.h"

namespace {

using Bits = std::vector<bool>;

struct FieldRange {
  std::string type;
  unsigned low;
  unsigned high;
};

// The layout as it was written down apart from the catalogue that the units are made of.
using Layout = std::map<std::string, FieldRange>;

std::map<std::string, Layout> const& layouts() {
  static auto const read = [] {
    std::ifstream file(HWTABLES_SOURCE_DIR "/tests/LoamSharedHwTables/expected_catalogue.json");
    std::map<std::string, Layout> result;
    auto const catalogue = nlohmann::json::parse(file);
    for (auto const& table : catalogue["tables"]) {
      for (auto const& field : table["fields"]) {
        std::string const view = field["view"].is_null() ? "" : field["view"].get<std::string>() + ".";
        result[table["name"]][view + field["name"].get<std::string>()] = {field["type"], field["low"],
                                                                          field["high"]};
      }
    }
    return result;
  }();
  return read;
}

Bits bitsOfBytes(auto const& bytes) {
  Bits bits;
  for (std::uint8_t const byte : bytes) {
    for (unsigned i = 0; i < 8; ++i) bits.push_back((byte >> i & 1) != 0);
  }
  return bits;
}

Bits bitsOfNumber(std::uint64_t number, unsigned width) {
  Bits bits;
  for (unsigned i = 0; i < width; ++i) bits.push_back((number >> i & 1) != 0);
  return bits;
}

template <class T>
T valueOfBits(Bits const& bits) {
  if constexpr (std::is_same_v<T, Keel::PerUnitBitmap>) {
    std::vector<std::uint8_t> bytes((bits.size() + 7) / 8);
    for (std::size_t i = 0; i < bits.size(); ++i) {
      if (bits[i]) bytes[i / 8] = static_cast<std::uint8_t>(bytes[i / 8] | 1U << i % 8);
    }
    return T(bytes);
  } else {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bits.size(); ++i) number |= std::uint64_t{bits[i]} << i;
    return static_cast<T>(number);
  }
}

template <class T>
Bits bitsOfValue(T const& value, unsigned width) {
  if constexpr (std::is_same_v<T, Keel::PerUnitBitmap>) {
    Bits bits = bitsOfBytes(value.bytes());
    EXPECT_EQ(bits.size(), (width + 7) / 8 * 8);
    for (std::size_t i = width; i < bits.size(); ++i) EXPECT_FALSE(bits[i]) << "bit past the width";
    bits.resize(width);
    return bits;
  } else {
    return bitsOfNumber(Orlo::numberOf(value), width);
  }
}

template <class T>
std::string typeText(unsigned width) {
  if constexpr (std::is_same_v<T, Keel::PerUnitBitmap>) return "bitmap";
  return Orlo::isBounded<T> ? "U" + std::to_string(width) : std::to_string(width) + "-bit";
}

// A record without its type, so that the checks below are compiled once and not for each of some hundred
// fields.
class AnyRecord {
 public:
  virtual ~AnyRecord() = default;
  virtual void bytesAre(Bits const& bits) = 0;
  virtual Bits bytes() const = 0;
  virtual bool hasDefaultKey() const = 0;
};

template <class Record>
class RecordUnderTest : public AnyRecord {
 public:
  void bytesAre(Bits const& bits) override {
    for (std::uint32_t i = 0; i <= Record::DataByte0Index::max(); ++i) {
      auto const first = bits.begin() + std::ptrdiff_t{i} * 8;
      Bits const byte(first, first + 8);
      record.dataByte0Is(typename Record::DataByte0Index(i), valueOfBits<std::uint8_t>(byte));
    }
  }
  Bits bytes() const override { return bitsOfBytes(record.dataBytes()); }
  bool hasDefaultKey() const override { return record.entryKey() == Record().entryKey(); }

  Record record;
};

struct AnyField {
  AnyRecord& record;
  std::string name;
  std::string type;
  std::function<Bits()> get;
  std::function<void(Bits const&)> set;
};

Bits randomBits(std::mt19937_64& random, std::size_t count) {
  Bits bits(count);
  for (std::size_t i = 0; i < count; ++i) bits[i] = (random() & 1) != 0;
  return bits;
}

// Writes the bits into a record of random bytes through the setter, and compares every bit with the model.
void expectOnlyTheRangeChanges(AnyField const& field, FieldRange const& range, Bits const& written,
                               std::mt19937_64& random) {
  Bits expected = randomBits(random, field.record.bytes().size());
  field.record.bytesAre(expected);
  std::copy(written.begin(), written.end(), expected.begin() + range.low);
  field.set(written);
  EXPECT_EQ(field.record.bytes(), expected);
  EXPECT_EQ(field.get(), written);
  EXPECT_TRUE(field.record.hasDefaultKey());
}

void checkField(AnyField const& field, Layout const& layout, std::mt19937_64& random) {
  SCOPED_TRACE(field.name);
  ASSERT_TRUE(layout.contains(field.name));
  FieldRange const& range = layout.at(field.name);
  unsigned const width = range.high - range.low + 1;
  EXPECT_EQ(field.type, range.type);
  expectOnlyTheRangeChanges(field, range, Bits(width, true), random);
  expectOnlyTheRangeChanges(field, range, Bits(width, false), random);
  for (int round = 0; round < 20; ++round) {
    expectOnlyTheRangeChanges(field, range, randomBits(random, width), random);
  }
}

// Checks each field that it visits; the ranges are those of the layout.
template <class Record>
class FieldVisitor {
 public:
  FieldVisitor(Layout const& layout, std::string view) : layout_(layout), view_(std::move(view)) {}

  template <class Owner, class T, class Setter>
  void operator()(char const* name, T (Owner::*getter)() const, Setter setter) {
    ++visited;
    std::string const full = view_.empty() ? name : view_ + "." + name;
    auto const width = layout_.contains(full) ? layout_.at(full).high - layout_.at(full).low + 1 : 0;
    Record& record = under_.record;
    checkField({under_, full, typeText<T>(width),
                [&record, getter, width] { return bitsOfValue((record.*getter)(), width); },
                [&record, setter](Bits const& bits) { (record.*setter)(valueOfBits<T>(bits)); }},
               layout_, random_);
  }

  std::size_t visited = 0;

 private:
  Layout const& layout_;
  std::string const view_;
  RecordUnderTest<Record> under_;
  std::mt19937_64 random_{TestSupport::seed()};
};

TEST(Fields, OfAllTablesChangeTheirOwnBitsAndReadThemBack) {
  PRINT_SEED_ON_FAILURE();
  ASSERT_EQ(layouts().size(), 36U);
  TestSupport::AllTables::forEach([]<class Table>() {
    std::string const name(Table::Traits::tableName);
    SCOPED_TRACE(name);
    ASSERT_TRUE(layouts().contains(name));
    std::size_t visited = 0;
    TestSupport::forEachFieldClass<Table>([&]<class Record>(char const* view) {
      FieldVisitor<Record> visitor(layouts().at(name), view);
      Record::visitFields(visitor);
      visited += visitor.visited;
    });
    EXPECT_EQ(visited, layouts().at(name).size()) << "fields that have no accessor, or that nobody expects";
  });
}

TEST(Fields, LeaveNeighbouringBitsOfTheSameByteUntouched) {
  bcm88490_a0::MplsIsemHwEm::Entry entry;
  for (std::uint32_t i = 0; i < 24; ++i) entry.dataByte0Is(decltype(entry)::DataByte0Index(i), 0xff);
  entry.mplsBosIs(0);
  EXPECT_EQ(entry.mplsBos(), Orlo::U1(0));
  EXPECT_EQ(entry.dataByte0(decltype(entry)::DataByte0Index(3)), 0xdf);
  entry.mplsLabelIs(0);
  EXPECT_EQ(entry.dataByte0(decltype(entry)::DataByte0Index(1)), 0x01);
  EXPECT_EQ(entry.dataByte0(decltype(entry)::DataByte0Index(3)), 0xc0);
  entry.mplsBosIs(1);
  EXPECT_EQ(entry.mplsBos(), Orlo::U1(1));
  EXPECT_EQ(entry.mplsLabel(), Orlo::U20(0));
}

TEST(Fields, ThatOverlapAreTwoReadingsOfTheSameBits) {
  bcm88490_a0::BigAdsHwMdb::Entry bigAds;
  bigAds.rpbAdsKshiftIs(0xa5);
  EXPECT_EQ(bigAds.rpbAdsBlength(), 0xa5);

  bcm88490_a0::MplsIsemHwEm::Entry mpls;
  mpls.keyIs(0x1fffff);
  EXPECT_EQ(mpls.mplsLabel(), Orlo::U20(0xfffff));
  EXPECT_EQ(mpls.mplsBos(), Orlo::U1(1));

  bcm88490_a0::TcamHwDirect::MdbkKapsaRpbCommandEntry command;
  command.cmdDataIs(Keel::PerUnitBitmap({0x12, 0x34}));
  command.cmdValidIs(2);
  auto const reply = bcm88490_a0::TcamHwDirect::MdbkKapsaRpbReadReplyEntry::entry(command);
  EXPECT_EQ(reply.rdData(), command.cmdData());
  EXPECT_EQ(reply.rdValid(), Orlo::U2(2));
}

TEST(Fields, TakeAShortBitmapAsOneWithZeroesBehindIt) {
  bcm88490_a0::BigAdsHwMdb::Entry entry;
  entry.dataIs(Keel::PerUnitBitmap(std::vector<std::uint8_t>(15, 0xff)));
  entry.dataIs(Keel::PerUnitBitmap({0x01, 0x02}));
  EXPECT_EQ(entry.data0(), 0x0201U);
  EXPECT_EQ(entry.data1(), 0U);
  EXPECT_EQ(entry.data3(), Orlo::U24(0));
}

}  // namespace
