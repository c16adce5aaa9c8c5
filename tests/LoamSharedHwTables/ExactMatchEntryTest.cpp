#include <gmock/gmock.h>

#include "runtime/Dovel/TraceChannel.h"
#include "tests/LoamSharedHwTables/AllTables.h"
#include "tests/support/Seed.h"

namespace {

using namespace bcm88490_a0;
using namespace Orlo;
using testing::EndsWith;
using testing::HasSubstr;

template <class Entry>
Entry filledEntry(std::uint8_t byte) {
  Entry entry;
  for (std::uint32_t i = 0; i <= Entry::DataByte0Index::max(); ++i) {
    entry.dataByte0Is(typename Entry::DataByte0Index(i), byte);
  }
  return entry;
}

TEST(ExactMatchEntry, IsBuiltWithItsPresetsAndNoCommand) {
  MplsIsemHwEm::Entry const entry(MplsIsemHwEm::EntryKey(0, 0));
  EXPECT_EQ(entry.vmv(), U2(1));
  EXPECT_EQ(entry.entryType(), U3(1));
  EXPECT_EQ(entry.appId(), U2(0));
  EXPECT_EQ(entry.command(), U9(0));
}

template <class Table>
void expectPresets(unsigned vmv, unsigned appId, unsigned entryType) {
  typename Table::Entry const entry{typename Table::EntryKey()};
  EXPECT_EQ(entry.vmv().value(), vmv) << Table::Traits::tableName;
  EXPECT_EQ(entry.appId().value(), appId) << Table::Traits::tableName;
  EXPECT_EQ(entry.entryType().value(), entryType) << Table::Traits::tableName;
}

TEST(ExactMatchEntry, OfEachTableCarriesTheConstantsOfItsDatabase) {
  expectPresets<MplsIsemHwEm>(1, 0, 1);
  expectPresets<Srv6LocalSidIsemHwEm>(1, 62, 1);
  expectPresets<EsemFodoPortCvidEm>(1, 4, 0);
  expectPresets<InAcSVlanHwEm>(1, 1, 1);
  expectPresets<InAcUntaggedHwEm>(1, 19, 1);
  expectPresets<Ip4UdpTtMpIsemHwEm>(1, 38, 0);
  expectPresets<VsiToVniEsemHwEm>(1, 2, 0);
  EXPECT_EQ(EsemFodoPortCvidEm::Entry(EsemFodoPortCvidEm::EntryKey()).resultType(), U7(9));
  EXPECT_EQ(VsiToVniEsemHwEm::Entry(VsiToVniEsemHwEm::EntryKey()).resultType(), U7(45));
}

TEST(ExactMatchEntry, BuiltByDefaultHasNoPresets) {
  TestSupport::ExactMatchTables::forEach(
      []<class Table>() { EXPECT_FALSE(typename Table::Entry().dataByte0Iterator()); });
}

TEST(ExactMatchEntry, WritesItsKeyIntoTheFieldsOfTheSameNames) {
  Ip4UdpTtMpIsemHwEm::EntryKey const key(9, 0xc0a80102, 0xbeef);
  Ip4UdpTtMpIsemHwEm::Entry entry(key);
  EXPECT_EQ(entry.udpTunnelType(), U4(9));
  EXPECT_EQ(entry.ipv4Dip(), 0xc0a80102U);
  EXPECT_EQ(entry.vrf(), 0xbeef);
}

TEST(ExactMatchEntry, KeepsItsKeyFieldsThroughDoInitAndSetKeyFromBuffer) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  TestSupport::ExactMatchTables::forEach([&]<class Table>() {
    auto const key = TestSupport::randomFieldKey<typename Table::EntryKey>(random);
    typename Table::Entry entry(key);
    entry.doInit();
    entry.setKeyFromBuffer();
    EXPECT_EQ(entry.entryKey(), key);
    entry.dataByte0DelAll();
    entry.doInit();
    EXPECT_EQ(entry, typename Table::Entry(key));
    entry.dataByte0DelAll();
    EXPECT_EQ(entry.entryKey(), key);
    entry.setKeyFromBuffer();
    EXPECT_EQ(entry.entryKey(), typename Table::EntryKey());
  });
}

TEST(ExactMatchEntry, TakesItsKeyFromBytesThatCameFromTheChip) {
  MplsIsemHwEm::Entry entry;
  entry.mplsLabelIs(0xabcde);
  entry.mplsBosIs(1);
  EXPECT_EQ(entry.entryKey(), MplsIsemHwEm::EntryKey(0, 0));
  entry.setKeyFromBuffer();
  EXPECT_EQ(entry.entryKey(), MplsIsemHwEm::EntryKey(0xabcde, 1));
}

TEST(ExactMatchEntry, CopiesItsImageWithoutTouchingCommandOrWhatFollowsBit144) {
  TestSupport::ExactMatchTables::forEach([]<class Table>() {
    auto const source = filledEntry<typename Table::Entry>(0xff);
    typename Table::Entry target;
    target.commandIs(0x055);
    target.wayIndexIs(5);
    target.entryIs(source.entry());
    EXPECT_EQ(target.command(), U9(0x055));
    EXPECT_EQ(target.wayIndex(), U4(5));
    EXPECT_EQ(target.entry(), source.entry());
    EXPECT_EQ(target.prefixNum(), U2(0));
    EXPECT_EQ(target.entryType(), U3(0));
    EXPECT_EQ(target.found(), U1(0));
    EXPECT_EQ(target.entry().bytes().size(), 17U);
  });
}

TEST(ExactMatchEntry, RefusesAnImageThatIsTooShortAndStaysAsItWas) {
  TestSupport::ExactMatchTables::forEach([]<class Table>() {
    typename Table::Entry entry{typename Table::EntryKey()};
    auto const before = entry;
    EXPECT_THROW(entry.entryIs(Keel::PerUnitBitmap(std::vector<std::uint8_t>(16, 0xff))), std::out_of_range);
    EXPECT_EQ(entry, before);
  });
}

TEST(ExactMatchEntry, ReadsTheTableIdApartFromANarrowerApplicationId) {
  Srv6LocalSidIsemHwEm::Entry srv6{Srv6LocalSidIsemHwEm::EntryKey()};
  EXPECT_EQ(srv6.tid(), srv6.appId());
  srv6.tidIs(33);
  EXPECT_EQ(srv6.appId(), U6(33));
  MplsIsemHwEm::Entry mpls;
  mpls.dataByte0Is(MplsIsemHwEm::Entry::DataByte0Index(172 / 8), 1U << 172 % 8);
  EXPECT_EQ(mpls.tid(), U6(4));
  EXPECT_EQ(mpls.appId(), U2(0));
}

TEST(ExactMatchEntry, TakesZeroPaddingAsAnOrdinaryKeyField) {
  InAcUntaggedHwEm::Entry const entry(InAcUntaggedHwEm::EntryKey(0xabc, 0x1ff));
  EXPECT_EQ(entry.zeroPadding(), U12(0xabc));
  EXPECT_EQ(entry.entryKey().zeroPadding(), U12(0xabc));
}

TEST(FlushRule, WithNothingAskedForChangesNothing) {
  TestSupport::ExactMatchTables::forEach([]<class Table>() {
    for (bool const isMask : {false, true}) {
      for (typename Table::Entry const before :
           {typename Table::Entry(), filledEntry<typename Table::Entry>(0x5a),
            typename Table::Entry(typename Table::EntryKey())}) {
        typename Table::Entry entry = before;
        entry.formEntryForFlush(isMask, false, false, false);
        EXPECT_EQ(entry, before);
      }
    }
  });
}

TEST(FlushRule, WithTheSweepBitSetsThatAloneInBothHalves) {
  TestSupport::ExactMatchTables::forEach([]<class Table>() {
    for (bool const isMask : {false, true}) {
      typename Table::Entry entry;
      entry.formEntryForFlush(isMask, true, false, false);
      typename Table::Entry expected;
      if constexpr (requires { expected.sweepBitIs(1); }) expected.sweepBitIs(1);
      EXPECT_EQ(entry, expected) << Table::Traits::tableName;
    }
  });
}

TEST(FlushRule, MaskCoversAllBitsOfTheFormatMarker) {
  Ip4UdpTtMpIsemHwEm::Entry udp;
  udp.formEntryForFlush(true, false, true, false);
  EXPECT_EQ(udp.vmv(), U3(7));
  EXPECT_EQ(udp.entryType(), U3(7));
  MplsIsemHwEm::Entry mpls;
  mpls.formEntryForFlush(true, false, true, false);
  EXPECT_EQ(mpls.vmv(), U2(3));
  EXPECT_EQ(mpls.sweepBit(), U1(0));
  EsemFodoPortCvidEm::Entry esem;
  esem.formEntryForFlush(true, true, true, false);
  EXPECT_EQ(esem.vmv(), U1(1));
  EXPECT_EQ(esem.esemCommand(), U1(0));
  EXPECT_EQ(esem.resultType(), U7(0));
}

TEST(FlushRule, ValuesAreThoseOfTheTable) {
  TestSupport::ExactMatchTables::forEach([]<class Table>() {
    typename Table::Entry entry;
    entry.formEntryForFlush(false, false, true, false);
    typename Table::Entry const fresh{typename Table::EntryKey()};
    EXPECT_EQ(entry.vmv(), fresh.vmv());
    EXPECT_EQ(entry.entryType(), fresh.entryType());
  });
}

TEST(FlushRule, MatchesTheResultTypeOnlyTogetherWithFormatAndEntryType) {
  for (bool const isMask : {false, true}) {
    VsiToVniEsemHwEm::Entry vni;
    vni.formEntryForFlush(isMask, false, false, true);
    EXPECT_EQ(vni.resultType(), isMask ? U7(127) : U7(45));
    EXPECT_EQ(vni.vmv(), U1(1));
    EXPECT_EQ(vni.entryType(), isMask ? U3(7) : U3(0));
    EsemFodoPortCvidEm::Entry esem;
    esem.formEntryForFlush(isMask, false, false, true);
    EXPECT_EQ(esem.resultType(), isMask ? U7(127) : U7(9));
    EXPECT_EQ(esem.entryType(), isMask ? U3(7) : U3(0));
    MplsIsemHwEm::Entry mpls;
    mpls.formEntryForFlush(isMask, false, false, true);
    EXPECT_EQ(mpls.vmv(), isMask ? U2(3) : U2(1));
  }
}

// What the call traces, on the channel of the table alone and at the given level alone.
template <class Table, class Call>
std::string tracedAt(unsigned level, Call call) {
  Dovel::Trace::levelsIs(Table::Traits::tableName, static_cast<std::uint16_t>(1U << level));
  testing::internal::CaptureStderr();
  call();
  std::string text = testing::internal::GetCapturedStderr();
  Dovel::Trace::levelsIs(Table::Traits::tableName, 1);
  return text;
}

TEST(ExactMatchEntry, TracesWhereItsKeyGoesAtLevelEight) {
  MplsIsemHwEm::Entry entry;
  EXPECT_THAT(tracedAt<MplsIsemHwEm>(8, [&] { entry.doInit(); }),
              HasSubstr("Entry::doInit bcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:0,mplsBos:0)"));
  EXPECT_THAT(tracedAt<MplsIsemHwEm>(8, [&] { entry.setKeyFromBuffer(); }),
              HasSubstr("Entry::setKeyFromBuffer "));
  EXPECT_EQ(tracedAt<MplsIsemHwEm>(7, [&] { entry.doInit(); }), "");
}

TEST(FlushRule, TracesItsThreeFlags) {
  MplsIsemHwEm::Entry entry;
  EXPECT_THAT(tracedAt<MplsIsemHwEm>(8, [&] { entry.formEntryForFlush(false, true, false, true); }),
              EndsWith("  useSweepBit true useEntryType false useResultType true\n"));
}

}  // namespace
