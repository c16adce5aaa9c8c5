#include <map>

#include "LoamSharedHwTables/Jericho3AndAbove/EtppbTrapForwardActionTableHwImpl.h"
#include "LoamSharedHwTables/Jericho3AndAbove/ItppSniffSysHdrInfoHwImpl.h"
#include "platform/switch/Hardware/EsemValues.h"
#include "platform/switch/LoamPPExport/ChipValues.h"
#include "tests/LoamSharedHwTables/TableRig.h"
#include "tests/support/Message.h"

namespace {

using namespace bcm88490_a0;
using TestSupport::messageOf;
using TestSupport::Row;
using TestSupport::ShadowKey;
using TestSupport::TableRig;

ShadowKey const kShared(Sluice::FapId::null(), 0);
ShadowKey const kFirst(0, 0);

// What a new shadow holds, by key.
template <class T>
std::map<std::uint32_t, typename T::Entry> contentsOf(T& table, ShadowKey key) {
  std::map<std::uint32_t, typename T::Entry> contents;
  table.shadow(key)->entryStorage()->entryCollForEach(
      [&](typename T::Entry const& entry) { contents.emplace(entry.entryKey().value(), entry); });
  return contents;
}
template <class T>
std::map<std::uint32_t, typename T::Entry> freshContents(
    ShadowKey key, Hardware::Loam::FapRevision const& revision = TestSupport::kRevision) {
  TableRig rig;
  return contentsOf(rig.makeWithFaps<T>(revision), key);
}

// The numbers of the bits that are set.
std::vector<unsigned> bitsOf(std::span<std::uint8_t const> data) {
  std::vector<unsigned> bits;
  for (unsigned bit = 0; bit < data.size() * 8; ++bit)
    if ((data[bit / 8] >> bit % 8 & 1) != 0) bits.push_back(bit);
  return bits;
}

TEST(InitialContents, KeyGenerationKnowsItsProgramOnEveryFap) {
  TableRig rig;
  auto& table = rig.makeWithFaps<IpkgvHwDirect>();
  for (unsigned fap = 0; fap < 2; ++fap) {
    auto const contents = contentsOf(table, {fap, 0});
    ASSERT_EQ(contents.size(), 1U);
    EXPECT_EQ(contents.begin()->first, 178U);
    EXPECT_EQ(contents.begin()->second.programSelectionProfile(), 1U);
  }
}

TEST(InitialContents, MainHeadersAreSixRows) {
  auto const contents = freshContents<MainHdrProfMapHwDirect>(kShared);
  std::map<std::uint32_t, std::array<unsigned, 3>> rows;
  for (auto const& [key, entry] : contents) {
    EXPECT_EQ(entry.addAditionalHeadersPacketSize(), 1U);
    rows[key] = {static_cast<unsigned>(entry.setStartCurrentNextProtocol().value()),
                 entry.startCurrentNextProtocol(), entry.additionalHeadersPacketSizeInBytes()};
  }
  EXPECT_EQ(rows, (std::map<std::uint32_t, std::array<unsigned, 3>>{{3, {1, 5, 12}},
                                                                    {4, {1, 9, 8}},
                                                                    {5, {1, 5, 8}},
                                                                    {6, {0, 6, 4}},
                                                                    {7, {1, 9, 4}},
                                                                    {10, {1, 7, 16}}}));
}

TEST(InitialContents, MainHeadersOfTheAiVariantStartEmpty) {
  EXPECT_TRUE(freshContents<MainHdrProfMapHwDirect>(kShared, TestSupport::kAiRevision).empty());
}

std::map<std::uint32_t, std::uint64_t> headerProfiles(Hardware::Loam::FapRevision const& revision) {
  std::map<std::uint32_t, std::uint64_t> profiles;
  for (auto const& [key, entry] : freshContents<EgrAddHdrProfMapHwDirect>(kShared, revision))
    profiles[key] = entry.additionalHeadersProfile().value();
  return profiles;
}

TEST(InitialContents, AdditionalHeadersAreEightRowsAndTwoOnTheAiVariant) {
  EXPECT_EQ(headerProfiles(TestSupport::kRevision),
            (std::map<std::uint32_t, std::uint64_t>{
                {129, 23}, {2, 10}, {35, 5}, {67, 6}, {83, 7}, {19, 4}, {99, 3}, {115, 23}}));
  EXPECT_EQ(headerProfiles(TestSupport::kAiRevision),
            (std::map<std::uint32_t, std::uint64_t>{{129, 23}, {2, 10}}));
}

TEST(InitialContents, TrapsAreExactlyTwoRowsWithTheirBits) {
  auto const contents = freshContents<EtppbTrapForwardActionTableHwDirect>(kFirst);
  ASSERT_EQ(contents.size(), 2U);
  EXPECT_EQ(bitsOf(contents.at(1).dataBytes()), (std::vector<unsigned>{11, 12, 68, 69}));
  // 162 in the eight bits from 78, 7 in the three from 87, 1 in the two from 91.
  EXPECT_EQ(bitsOf(contents.at(3).dataBytes()),
            (std::vector<unsigned>{12, 17, 18, 19, 20, 79, 83, 85, 86, 87, 88, 89, 90, 91}));
}

TEST(InitialContents, ATrapThatNobodyKnowsIsAFault) {
  using Impl = LoamSharedHwTables::Jericho3AndAbove::EtppbTrapForwardActionTableHwImpl<
      EtppbTrapForwardActionTableHwDirect>;
  std::string const message = messageOf<Asic::GracefulAssertException>([] { Impl::entryOf(2); });
  EXPECT_NE(message.find("false"), std::string::npos) << message;
  EXPECT_NE(message.find(" Unhandled trapIndex 2"), std::string::npos) << message;
  EXPECT_THROW(Impl::entryOf(17), Dovel::RangeException);
}

TEST(InitialContents, SnoopCommandsAreTenRowsOfWhichTwoHaveADestination) {
  auto const contents = freshContents<ItppSniffSysHdrInfoHwDirect>(kFirst);
  std::vector<std::uint32_t> keys;
  for (auto const& [key, entry] : contents) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::uint32_t>{33, 34, 35, 39, 40, 43, 44, 48, 49, 51}));
  for (auto const& [key, entry] : contents) {
    bool const destined = key == 48 || key == 49;
    EXPECT_EQ(entry.tmDestinationStampEnable().value(), destined ? 1U : 0U);
    EXPECT_EQ(entry.tmDestination().value(), destined ? (1U << 16 | 67U) : 0U);
    EXPECT_EQ(entry.tmActionType().value(), destined ? 0U : 1U);
    EXPECT_EQ(entry.tmActionTypeEn().value(), destined ? 0U : 3U);
    EXPECT_EQ(entry.mcidOrMcrepidxOrOutlif().value(), destined ? 0U : key - 32);
    EXPECT_EQ(entry.mcidOrMcrepidxOrOutlifEn().value(), destined ? 0U : 0x3fffffU);
  }
}

TEST(InitialContents, SnoopRowsAreWrittenInTheOrderOfTheirCommands) {
  struct Order final : LoamAsicUtils::ShadowWatcher, Dovel::Publisher::Subscriber {
    void shadowComes(LoamAsicUtils::HwCommonShadowTableBase& /*table*/,
                     LoamAsicUtils::HwShadowBase& shadow) override {
      storage = static_cast<ItppSniffSysHdrInfoHwDirect::Shadow&>(shadow).entryStorage();
      storage->publisher().subscriberIs(*this);
    }
    void shadowGoes(LoamAsicUtils::HwCommonShadowTableBase& /*table*/,
                    LoamAsicUtils::HwShadowBase& /*shadow*/) override {}
    void onChange(std::uint32_t /*attribute*/, void const* key) override {
      keys.push_back(static_cast<ItppSniffSysHdrInfoHwDirect::EntryKey const*>(key)->value());
    }
    Dovel::Ptr<ItppSniffSysHdrInfoHwDirect::Shadow::EntryStorage> storage;
    std::vector<std::uint32_t> keys;
  };
  TableRig rig({.writing = false});
  Order order;
  rig.manager->shadowWatcherIs(&order);
  rig.addFap(rig.make<ItppSniffSysHdrInfoHwDirect>(), 0);
  EXPECT_EQ(order.keys, (std::vector<std::uint32_t>{34, 35, 40, 43, 33, 39, 44, 51, 48, 49}));
  order.storage->publisher().subscriberDel(order);
  order.storage = nullptr;
  rig.manager->shadowWatcherIs(nullptr);
}

TEST(InitialContents, EverySnoopCommandHasADestinationAndOthersAreAFault) {
  using Impl = LoamSharedHwTables::Jericho3AndAbove::ItppSniffSysHdrInfoHwImpl<ItppSniffSysHdrInfoHwDirect>;
  std::map<std::uint32_t, std::uint32_t> encoded;
  for (std::uint32_t const command : Impl::l3SnoopCmds)
    encoded[command] = Impl::destinationOf(command).encodedDestId(Hardware::Loam::FapType::generation4);
  EXPECT_EQ(encoded, (std::map<std::uint32_t, std::uint32_t>{{1, 8 << 16 | 51},
                                                             {2, 8 << 16 | 19},
                                                             {3, 8 << 16 | 16},
                                                             {7, 8 << 16 | 28},
                                                             {8, 8 << 16 | 12},
                                                             {11, 8 << 16 | 20},
                                                             {12, 8 << 16 | 28},
                                                             {16, 1 << 16 | 67},
                                                             {17, 1 << 16 | 67},
                                                             {19, 8 << 16 | 28}}));
  std::string const message = messageOf<Asic::GracefulAssertException>([] { Impl::destinationOf(4); });
  EXPECT_NE(message.find("Unexpected snoop command: 4"), std::string::npos) << message;
  // Its row would lie past the table.
  EXPECT_THROW(Impl::entryOf(129), Dovel::RangeException);
}

TEST(InitialContents, AccessCommandsAreThreeRows) {
  auto const contents = freshContents<EmAccessCmdHwDirect>(kShared);
  std::map<std::uint32_t, std::array<std::uint64_t, 8>> rows;
  for (auto const& [key, entry] : contents) {
    rows[key] = {entry.esem1Valid().value(),
                 entry.esem1Program().value(),
                 entry.esem1DefaultResultProfile().value(),
                 entry.esem1DesignatedEntryOffset().value(),
                 entry.esem2Valid().value(),
                 entry.esem2Program().value(),
                 entry.esem2DefaultResultProfile().value(),
                 entry.esem2DesignatedEntryOffset().value()};
    EXPECT_EQ(entry.esem3Valid().value(), 0U);
  }
  EXPECT_EQ(rows, (std::map<std::uint32_t, std::array<std::uint64_t, 8>>{{1, {1, 1, 1, 0, 0, 0, 0, 0}},
                                                                         {2, {1, 2, 2, 0, 0, 0, 0, 0}},
                                                                         {3, {1, 1, 1, 0, 1, 2, 2, 1}}}));
}

TEST(InitialContents, DefaultResultsAreThreeRows) {
  auto const contents = freshContents<EsemDefaultResultHwDirect>(kShared);
  ASSERT_EQ(contents.size(), 3U);
  EXPECT_EQ(bitsOf(contents.at(0).dataBytes()), std::vector<unsigned>{82});
  EXPECT_EQ(contents.at(1).resultType().value(), 9U);
  EXPECT_EQ(bitsOf(contents.at(1).dataBytes()), (std::vector<unsigned>{83, 86}));
  EXPECT_EQ(contents.at(2).resultType().value(), 45U);
}

TEST(InitialContents, TheyAreCountedAndReachTheChip) {
  TableRig rig;
  auto& table = rig.makeWithFaps<EsemDefaultResultHwDirect>();
  EXPECT_EQ(table.hwTableStats()->entryAddCnt(), 3U);
  EXPECT_EQ(rig.writer->dirtyKeys(), 3U);
  rig.writer->flush();
  EXPECT_EQ(TestSupport::dataOf(table.getEntry(kShared, EsemDefaultResultHwDirect::EntryKey(2))),
            rig.chipRow(table, 1, EsemDefaultResultHwDirect::EntryKey(2)));
}

TEST(ChipValues, ItemsThatAChipDoesNotHaveAreAFault) {
  using Hardware::ChipType;
  EXPECT_EQ(LoamPPExport::etpp_trap_fwd_rcy_cmd_value(ChipType::qumran3a,
                                                      static_cast<LoamPPExport::etpp_trap_fwd_rcy_cmd>(3)),
            3U);
  EXPECT_THROW(LoamPPExport::etpp_trap_fwd_rcy_cmd_value(
                   ChipType::qumran3a, static_cast<LoamPPExport::etpp_trap_fwd_rcy_cmd>(16)),
               Asic::GracefulAssertException);
  EXPECT_THROW(LoamPPExport::etpp_current_next_protocol_value(
                   ChipType::qumran3a, static_cast<LoamPPExport::etpp_current_next_protocol>(99)),
               Asic::GracefulAssertException);
  EXPECT_THROW(LoamPPExport::ctx_additional_header_profile_value(
                   ChipType::qumran3a, static_cast<LoamPPExport::ctx_additional_header_profile>(5)),
               Asic::GracefulAssertException);
  EXPECT_FALSE(Jericho3EsemProgram::exists(TestSupport::kRevision, Jericho3EsemProgram::Item::policy));
  EXPECT_THROW(Jericho3EsemProgram::hwValue(TestSupport::kRevision, Jericho3EsemProgram::Item::policy),
               Asic::GracefulAssertException);
}

}  // namespace
