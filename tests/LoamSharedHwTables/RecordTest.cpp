#include <gmock/gmock.h>

#include <cstring>
#include <sstream>

#include "tests/LoamSharedHwTables/AllTables.h"
#include "tests/support/Message.h"
#include "tests/support/Seed.h"

namespace {

using namespace bcm88490_a0;
using TestSupport::messageOf;

template <class Call>
std::string rangeMessage(Call call) {
  return messageOf<Dovel::RangeException>(call);
}

std::string const kSmallAdsRange =
    "bcm88490_a0::SmallAdsHwDirect::EntryKey::value < bcm88490_a0::SmallAdsHwDirect::EntryKey::min or > "
    "bcm88490_a0::SmallAdsHwDirect::EntryKey::null not allowed";
std::string const kArrayRange =
    "bcm88490_a0::TcamHwDirect::EntryKey::arrayIndex < bcm88490_a0::TcamHwDirect::EntryKey::arrayIndexMin or "
    "> "
    "bcm88490_a0::TcamHwDirect::EntryKey::arrayIndexMax not allowed";
std::string const kEntryRange =
    "bcm88490_a0::TcamHwDirect::EntryKey::entryIndex < bcm88490_a0::TcamHwDirect::EntryKey::entryIndexMin or "
    "> "
    "bcm88490_a0::TcamHwDirect::EntryKey::entryIndexMax not allowed";

TEST(EntryKey, OfNumberedRowsTakesNullAndRefusesWhatIsAbove) {
  EXPECT_EQ(SmallAdsHwDirect::EntryKey(2048).value(), SmallAdsHwDirect::EntryKey::null());
  EXPECT_EQ(rangeMessage([] { SmallAdsHwDirect::EntryKey(2049); }), kSmallAdsRange);
  EXPECT_EQ(rangeMessage([] { BigAdsHwMdb::EntryKey(0x20001); }),
            "bcm88490_a0::BigAdsHwMdb::EntryKey::value < bcm88490_a0::BigAdsHwMdb::EntryKey::min or > "
            "bcm88490_a0::BigAdsHwMdb::EntryKey::null not allowed");
}

TEST(EntryKey, OfArraysNamesTheMemberThatIsOutOfBounds) {
  EXPECT_EQ(TcamHwDirect::EntryKey(1, 4095).entryIndex(), 4095U);
  EXPECT_EQ(rangeMessage([] { TcamHwDirect::EntryKey(2, 0); }), kArrayRange);
  EXPECT_EQ(rangeMessage([] { TcamHwDirect::EntryKey(1, 4096); }), kEntryRange);
}

TEST(EntryKey, OfATableOfOneValueTakesOnlyZero) {
  EXPECT_EQ(BigBbXlHwMdb::EntryKey(0).value(), 0U);
  EXPECT_THROW(BigBbXlHwMdb::EntryKey(1), Dovel::RangeException);
  EXPECT_THROW(XlKapsDirect1HwMdb::EntryKey(1), Dovel::RangeException);
  EXPECT_THROW(XlKapsDirect2HwMdb::EntryKey(1), Dovel::RangeException);
}

TEST(EntryKey, OfTheRegisterTableIsItsOneRowOrNull) {
  EXPECT_EQ(IppeRecycFwdProfileMappingHwReg::EntryKey(0).entryIndex(), 0U);
  EXPECT_EQ(IppeRecycFwdProfileMappingHwReg::EntryKey(1).value(),
            IppeRecycFwdProfileMappingHwReg::EntryKey::null());
  EXPECT_THROW(IppeRecycFwdProfileMappingHwReg::EntryKey(2), Dovel::RangeException);
}

TEST(EntryKey, SetterRefusesAValueOutOfBoundsAndKeepsTheOldOne) {
  SmallAdsHwDirect::EntryKey value(7);
  EXPECT_EQ(rangeMessage([&] { value.valueIs(2049); }), kSmallAdsRange);
  EXPECT_EQ(value.value(), 7U);
  TcamHwDirect::EntryKey array(1, 5);
  EXPECT_EQ(rangeMessage([&] { array.arrayIndexIs(2); }), kArrayRange);
  EXPECT_EQ(rangeMessage([&] { array.entryIndexIs(4096); }), kEntryRange);
  EXPECT_EQ(array, TcamHwDirect::EntryKey(1, 5));
}

template <class Key>
Key damagedKey() {
  Key key;
  std::memset(static_cast<void*>(&key), 0xff, sizeof key);
  return key;
}

TEST(EntryKey, SetterTakesTheValueAlreadyHeldEvenOneThatWouldBeRefused) {
  auto array = damagedKey<TcamHwDirect::EntryKey>();
  array.arrayIndexIs(0xff);
  array.entryIndexIs(0xffffffff);
  EXPECT_EQ(array.arrayIndex(), 0xff);
  auto value = damagedKey<SmallAdsHwDirect::EntryKey>();
  value.valueIs(0xffffffff);
  EXPECT_EQ(value.value(), 0xffffffffU);
  EXPECT_THROW(value.valueIs(0xfffffffe), Dovel::RangeException);
}

TEST(EntryKey, HashesComparesAndPrintsDamagedBytesWithoutFailing) {
  TestSupport::AllTables::forEach([]<class Table>() {
    auto const key = damagedKey<typename Table::EntryKey>();
    EXPECT_EQ(key.hash(3), damagedKey<typename Table::EntryKey>().hash(3));
    EXPECT_TRUE((key <=> typename Table::EntryKey()) > 0);
    EXPECT_FALSE(valueToStrep(key).empty());
  });
}

TEST(EntryKey, ComparesMembersInDeclarationOrder) {
  EXPECT_TRUE(TcamHwDirect::EntryKey(0, 4095) < TcamHwDirect::EntryKey(1, 0));
  EXPECT_TRUE(MplsIsemHwEm::EntryKey(5, 1) < MplsIsemHwEm::EntryKey(6, 0));
  EXPECT_TRUE(MplsIsemHwEm::EntryKey(5, 0) < MplsIsemHwEm::EntryKey(5, 1));
  MplsIsemHwEm::EntryKey const key(5, 0);
  EXPECT_TRUE((key <=> key) == 0);
  EXPECT_TRUE(MplsIsemHwEm::EntryKey::isEq(&key, &key));
  MplsIsemHwEm::EntryKey const same(5, 0);
  MplsIsemHwEm::EntryKey const other(5, 1);
  EXPECT_TRUE(MplsIsemHwEm::EntryKey::isEq(&key, &same));
  EXPECT_FALSE(MplsIsemHwEm::EntryKey::isEq(&key, &other));
}

TEST(EntryKey, HashesItsMembersInDeclarationOrder) {
  Orlo::Hash state(77);
  state.hashMix(std::uint32_t{100});
  state.hashMix(std::uint8_t{1});
  EXPECT_EQ(MplsIsemHwEm::EntryKey(100, 1).hash(77), state.result());
  EXPECT_EQ(MplsIsemHwEm::EntryKey(100, 1).hash(0), 0xca1a5239U);
}

TEST(EntryKey, OfEveryTableRoundTripsThroughText) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  TestSupport::ExactMatchTables::forEach([&]<class Table>() {
    using Key = typename Table::EntryKey;
    auto const key = TestSupport::randomFieldKey<Key>(random);
    Key read;
    Orlo::strepToValue(valueToStrep(key), &read);
    EXPECT_EQ(read, key) << valueToStrep(key);
  });
  TestSupport::ArrayKeyTables::forEach([]<class Table>() {
    typename Table::EntryKey const key(1, 511);
    typename Table::EntryKey read;
    Orlo::strepToValue(valueToStrep(key), &read);
    EXPECT_EQ(read, key) << valueToStrep(key);
  });
  TestSupport::ValueKeyTables::forEach([]<class Table>() {
    typename Table::EntryKey const key(Table::EntryKey::null());
    typename Table::EntryKey read;
    Orlo::strepToValue(valueToStrep(key), &read);
    EXPECT_EQ(read, key) << valueToStrep(key);
  });
}

// A key that is constructed is stored twice, the second time in whole words.
TEST(EntryKey, OfSeveralMembersHasTheSameBytesWhetherConstructedOrAssigned) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  auto const check = []<class Key>(Key const& constructed) {
    Key assigned;
    Key::members(assigned) = Key::members(constructed);
    EXPECT_EQ(std::memcmp(&constructed, &assigned, sizeof assigned), 0) << valueToStrep(constructed);
  };
  TestSupport::ExactMatchTables::forEach([&]<class Table>() {
    using Key = typename Table::EntryKey;
    for (int i = 0; i < 100; ++i) {
      auto const key = TestSupport::randomFieldKey<Key>(random);
      Key const made = std::apply([](auto const&... member) { return Key(member...); }, Key::members(key));
      check(made);
      EXPECT_EQ(made, key);
    }
  });
  TestSupport::ArrayKeyTables::forEach([&]<class Table>() { check(typename Table::EntryKey(1, 511)); });
}

TEST(EntryKey, NamesItsTypeAndAttributesInText) {
  EXPECT_EQ(valueToStrep(MplsIsemHwEm::EntryKey(100, 1)),
            "bcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:100,mplsBos:1)");
  EXPECT_EQ(valueToStrep(SmallAdsHwDirect::EntryKey(5)), "bcm88490_a0::SmallAdsHwDirect::EntryKey(value:5)");
}

template <class Key>
std::string readFailure(char const* text) {
  Key key;
  return messageOf<Dovel::RuntimeException>([&] { Orlo::strepToValue(Dovel::String(text), &key); });
}

TEST(EntryKey, RefusesTextWithAnythingLeftOver) {
  EXPECT_EQ(readFailure<MplsIsemHwEm::EntryKey>("EntryKey(mplsLabel:1,mplsBos:0)x"),
            "cannot read \"EntryKey(mplsLabel:1,mplsBos:0)x\": expected the end of the text at offset 31");
  EXPECT_EQ(readFailure<SmallAdsHwDirect::EntryKey>("EntryKey(value:1) "),
            "cannot read \"EntryKey(value:1) \": expected the end of the text at offset 17");
}

TEST(EntryKey, RefusesTextOutOfRangeWithTheMembersName) {
  EXPECT_EQ(readFailure<MplsIsemHwEm::EntryKey>("EntryKey(mplsLabel:1048576,mplsBos:0)"),
            "mplsLabel: U20::value < 0 or > 0x000fffff not allowed");
  EXPECT_EQ(readFailure<Srv6LocalSidIsemHwEm::EntryKey>("EntryKey(ipv6DipIdx:1,ipv6Srv6FunctionBits:65536)"),
            "ipv6Srv6FunctionBits: 65536 not allowed, 0 to 65535");
  EXPECT_EQ(readFailure<SmallAdsHwDirect::EntryKey>("EntryKey(value:2049)"), kSmallAdsRange);
  EXPECT_EQ(readFailure<TcamHwDirect::EntryKey>("EntryKey(arrayIndex:2,entryIndex:0)"), kArrayRange);
  EXPECT_EQ(readFailure<TcamHwDirect::EntryKey>("EntryKey(entryIndex:0,arrayIndex:2)"),
            "cannot read \"EntryKey(entryIndex:0,arrayIndex:2)\": expected arrayIndex at offset 9");
}

TEST(DataByte0Index, HasNoValuePastTheEnd) {
  using Index = MplsIsemHwEm::Entry::DataByte0Index;
  EXPECT_EQ(Index(23).value(), Index::max());
  EXPECT_EQ(rangeMessage([] { Index(24); }),
            "bcm88490_a0::MplsIsemHwEm::Entry::DataByte0Index::value < "
            "bcm88490_a0::MplsIsemHwEm::Entry::DataByte0Index::min or > "
            "bcm88490_a0::MplsIsemHwEm::Entry::DataByte0Index::max not allowed");
  TestSupport::AllTables::forEach([]<class Table>() {
    EXPECT_EQ(Table::Entry::DataByte0Index::max() + 1, Table::Traits::entryDataMaxSize);
    EXPECT_EQ(typename Table::Entry().dataBytes().size(), Table::Traits::entryDataMaxSize);
  });
}

TEST(DataByte0Index, RoundTripsThroughText) {
  using Index = MplsIsemHwEm::Entry::DataByte0Index;
  Index read(0);
  Orlo::strepToValue(valueToStrep(Index(23)), &read);
  EXPECT_EQ(read, Index(23));
  EXPECT_EQ(valueToStrep(Index(3)), "bcm88490_a0::MplsIsemHwEm::Entry::DataByte0Index(value:3)");
  EXPECT_THROW(Orlo::strepToValue(Dovel::String("24"), &read), Dovel::RangeException);
}

TEST(DataBytes, DeletingAByteThatIsZeroReturnsZeroAndChangesNothing) {
  using Entry = SmallAdsHwDirect::Entry;
  Entry entry;
  entry.dataByte0Is(Entry::DataByte0Index(3), 9);
  Entry const before = entry;
  EXPECT_EQ(entry.dataByte0Del(Entry::DataByte0Index(2)), 0);
  EXPECT_EQ(entry, before);
  EXPECT_EQ(entry.dataByte0Del(Entry::DataByte0Index(3)), 9);
  EXPECT_EQ(entry, Entry());
}

TEST(DataBytes, TheIteratorVisitsOnlyBytesThatAreNotZero) {
  using Entry = SmallAdsHwDirect::Entry;
  Entry entry;
  entry.dataByte0Is(Entry::DataByte0Index(2), 7);
  entry.dataByte0Is(Entry::DataByte0Index(15), 8);
  std::vector<std::pair<unsigned, unsigned>> visited;
  for (auto at = entry.dataByte0Iterator(); at; ++at) visited.emplace_back(at.index(), *at);
  EXPECT_THAT(visited, testing::ElementsAre(testing::Pair(2, 7), testing::Pair(15, 8)));

  auto at = entry.dataByte0Iterator();
  EXPECT_EQ(entry.dataByte0Del(at), 7);
  EXPECT_EQ(entry.dataByte0Iterator().index(), 15U);
}

TEST(DataBytes, TheIteratorYieldsNothingAfterDeletingAll) {
  TestSupport::AllTables::forEach([]<class Table>() {
    typename Table::Entry entry;
    for (std::uint32_t i = 0; i < Table::Traits::entryDataMaxSize; i += 2) {
      entry.dataByte0Is(typename Table::Entry::DataByte0Index(i), 0xff);
    }
    entry.dataByte0DelAll();
    EXPECT_FALSE(entry.dataByte0Iterator());
    EXPECT_EQ(entry, typename Table::Entry());
  });
}

TEST(DataBytes, DeletingAtTheIteratorsEndIsRefusedWithTheIndexesRange) {
  SmallAdsHwDirect::Entry entry;
  EXPECT_EQ(rangeMessage([&] { entry.dataByte0Del(entry.dataByte0Iterator()); }),
            "bcm88490_a0::SmallAdsHwDirect::Entry::DataByte0Index::value < "
            "bcm88490_a0::SmallAdsHwDirect::Entry::DataByte0Index::min or > "
            "bcm88490_a0::SmallAdsHwDirect::Entry::DataByte0Index::max not allowed");
}

TEST(Entry, IsZeroWhenBuiltByDefaultOrFromAKey) {
  TestSupport::ValueKeyTables::forEach([]<class Table>() {
    typename Table::Entry const entry(typename Table::EntryKey(0));
    EXPECT_FALSE(entry.dataByte0Iterator());
    EXPECT_EQ(entry, typename Table::Entry());
  });
  TcamHwDirect::Entry const entry(TcamHwDirect::EntryKey(1, 9));
  EXPECT_FALSE(entry.dataByte0Iterator());
  EXPECT_EQ(entry.entryKey().entryIndex(), 9U);
  EXPECT_EQ(entry.viewT(), TcamHwDirect::ViewT::mdbkKapsaRpbCommand);
}

TEST(Entry, DiffersWhereOneDataByteDiffers) {
  TestSupport::AllTables::forEach([]<class Table>() {
    using Entry = typename Table::Entry;
    for (std::uint32_t i = 0; i < Table::Traits::entryDataMaxSize; ++i) {
      Entry const a;
      Entry b;
      EXPECT_TRUE(Entry::isEq(&a, &b));
      b.dataByte0Is(typename Entry::DataByte0Index(i), 1);
      EXPECT_FALSE(Entry::isEq(&a, &b)) << Table::Traits::tableName << " byte " << i;
    }
  });
}

TEST(Entry, DiffersWhereTheKeyDiffers) {
  SmallAdsHwDirect::Entry const a(SmallAdsHwDirect::EntryKey(1));
  SmallAdsHwDirect::Entry const b(SmallAdsHwDirect::EntryKey(2));
  EXPECT_FALSE(SmallAdsHwDirect::Entry::isEq(&a, &b));
}

TEST(Entry, OfATcamDiffersWhereOnlyTheViewDiffers) {
  TcamHwDirect::Entry const a;
  TcamHwDirect::Entry b;
  b.viewTIs(TcamHwDirect::ViewT::mdbkKapsaRpb);
  EXPECT_FALSE(TcamHwDirect::Entry::isEq(&a, &b));
  EXPECT_FALSE(a == b);
}

TEST(Entry, EndsTheProcessWhenBuiltFromText) {
  TcamHwDirect::Entry entry;
  EXPECT_DEATH(Orlo::strepToValue(Dovel::String("Entry()"), &entry),
               "^\"No String constructor for Entry - has collection\" == nullptr\n$");
  auto view = TcamHwDirect::MdbkKapsaRpbCommandEntry();
  EXPECT_DEATH(Orlo::strepToValue(Dovel::String(""), &view),
               "^\"No String constructor for MdbkKapsaRpbCommandEntry - has collection\" == nullptr\n$");
}

TEST(Entry, IsWrittenAsTextWithItsKeyBytesAndView) {
  EgrAddHdrProfMapHwDirect::Entry direct(EgrAddHdrProfMapHwDirect::EntryKey(9));
  direct.additionalHeadersProfileIs(31);
  EXPECT_EQ(valueToStrep(direct),
            "bcm88490_a0::EgrAddHdrProfMapHwDirect::Entry(entryKey:bcm88490_a0::EgrAddHdrProfMapHwDirect::"
            "EntryKey(value:9),dataByte0:1f000000)");
  TcamHwDirect::Entry tcam;
  tcam.viewTIs(TcamHwDirect::ViewT::mdbkKapsaRpbReadReply);
  EXPECT_THAT(valueToStrep(tcam).view(), testing::EndsWith("00,viewT:mdbkKapsaRpbReadReply)"));
}

TEST(View, BuiltDirectlyCarriesItsNumberAndPresets) {
  TcamHwDirect::MdbkKapsaRpbCommandEntry const command(TcamHwDirect::EntryKey(1, 2));
  EXPECT_EQ(command.viewT(), TcamHwDirect::ViewT::mdbkKapsaRpbCommand);
  EXPECT_EQ(command.cmdBankSel(), Orlo::U4(15));
  EXPECT_EQ(command.myField(), Orlo::U4(15));
  EXPECT_EQ(command.entryKey(), TcamHwDirect::EntryKey(1, 2));
  EXPECT_EQ(TcamBHwDirect::MdbkKapsbRpbCommandEntry().cmdBankSel(), Orlo::U2(3));
  EXPECT_EQ(TcamHwDirect::MdbkKapsaRpbEntry().viewT(), TcamHwDirect::ViewT::mdbkKapsaRpb);
  EXPECT_EQ(TcamHwDirect::MdbkKapsaRpbCompareReplyEntry().viewT(),
            TcamHwDirect::ViewT::mdbkKapsaRpbCompareReply);
  EXPECT_EQ(TcamBHwDirect::MdbkKapsbRpbReadReplyEntry().viewT(), TcamBHwDirect::ViewT::mdbkKapsbRpbReadReply);
}

TEST(View, MadeOfAnEntryCopiesEveryMemberAndAppliesNoPreset) {
  TcamHwDirect::Entry entry(TcamHwDirect::EntryKey(1, 77));
  entry.viewTIs(TcamHwDirect::ViewT::mdbkKapsaRpbReadReply);
  entry.dataByte0Is(TcamHwDirect::Entry::DataByte0Index(0), 0x5a);
  auto const view = TcamHwDirect::MdbkKapsaRpbCommandEntry::entry(entry);
  EXPECT_EQ(view, entry);
  EXPECT_EQ(view.viewT(), TcamHwDirect::ViewT::mdbkKapsaRpbReadReply);
  EXPECT_EQ(view.cmdBankSel(), Orlo::U4(0));
}

TEST(ViewT, RoundTripsThroughTextAndStreams) {
  using ViewT = TcamBHwDirect::ViewT;
  EXPECT_EQ(TcamBHwDirect::ViewTInstance(2), ViewT::mdbkKapsbRpbCompareReply);
  EXPECT_EQ(TcamBHwDirect::ViewTInstance(Dovel::String("mdbkKapsbRpb")), ViewT::mdbkKapsbRpb);
  EXPECT_THROW(TcamBHwDirect::ViewTInstance(4), Dovel::RangeException);
  ViewT read{};
  Orlo::strepToValue(valueToStrep(ViewT::mdbkKapsbRpbReadReply), &read);
  EXPECT_EQ(read, ViewT::mdbkKapsbRpbReadReply);
  std::ostringstream stream;
  stream << ViewT::mdbkKapsbRpb;
  EXPECT_EQ(stream.str(), "mdbkKapsbRpb");
  EXPECT_EQ(TcamBHwDirect::viewTType().number(), 2U);
}

}  // namespace
