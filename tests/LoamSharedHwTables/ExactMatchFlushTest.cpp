#include "LoamSharedHwTables/ExactMatchFlush.h"

#include "platform/switch/LoamAsicUtils/HwFlushTableHolderContext.h"
#include "tests/LoamSharedHwTables/ExactMatchRig.h"

namespace {

using namespace bcm88490_a0;
using LoamAsicUtils::FlushCmdType;
using LoamAsicUtils::FlushHelper;
using testing::ElementsAre;

template <std::size_t Bytes>
std::vector<unsigned> bitsSet(std::array<std::uint8_t, Bytes> const& bits) {
  std::vector<unsigned> set;
  for (unsigned bit = 0; bit < Bytes * 8; ++bit)
    if ((bits[bit / 8] >> bit % 8 & 1) != 0) set.push_back(bit);
  return set;
}

template <class FlushTable>
FlushHelper const* helperOf(Dovel::Ptr<FlushTable> const& table, std::uint8_t physical, FlushCmdType type) {
  return table->flushHelperHolder().helper(LoamMdb::PhysicalTableId{physical}, type);
}

template <class T>
Dovel::Ptr<T> flushTable() {
  return Dovel::ptrIsImpl<T>(LoamAsicUtils::HwTableKey(T::tableName(), TestSupport::kRevision), nullptr,
                             nullptr);
}

template <class Unit>
class AnyHolder final
    : public Dovel::Tracked<AnyHolder<Unit>, LoamSharedHwTables::ExactMatchFlushHelperHolder<Unit>> {
 public:
  AnyHolder()
      : Dovel::Tracked<AnyHolder, LoamSharedHwTables::ExactMatchFlushHelperHolder<Unit>>(nullptr, nullptr) {}
};

TEST(ExactMatchFlush, ATablesHolderHasOneRuleThatMatchesAndRemovesEverything) {
  TestSupport::TableRig rig;
  auto const& holder = *rig.make<MplsIsemHwEm>().flushHelperHolder();
  ASSERT_EQ(holder.helpers().size(), 1U);
  FlushHelper const& clear = holder.helpers().front();
  EXPECT_EQ(clear.key, (LoamAsicUtils::FlushHelperKey{64, FlushCmdType::flushCmdClear, 0, 0}));
  EXPECT_EQ(clear.rule, LoamAsicUtils::FlushRuleEntryType());
  EXPECT_EQ(clear.action, LoamAsicUtils::FlushCmdPayloadType());
  EXPECT_EQ(holder.firstEngine(), 0U);
  EXPECT_EQ(holder.retryCount(), 2U);
}

TEST(ExactMatchFlush, MarkingMatchesTheTablesFormatAndSetsTheSweepBit) {
  auto const table = flushTable<MplsIsemHwEmFlushTable>();
  FlushHelper const* const mark = helperOf(table, 64, FlushCmdType::flushCmdMark);
  ASSERT_NE(mark, nullptr);
  EXPECT_EQ(mark->key.keep, 1U);
  EXPECT_THAT(bitsSet(mark->rule.mask), ElementsAre(74, 75));
  EXPECT_THAT(bitsSet(mark->rule.value), ElementsAre(74));
  EXPECT_THAT(bitsSet(mark->action.value), ElementsAre(106));
  EXPECT_THAT(bitsSet(mark->action.mask), ElementsAre(106));
  EXPECT_EQ(mark->entryType, LoamMdb::EmEntryType{1});
}

TEST(ExactMatchFlush, SweepingMatchesTheSweepBitAlone) {
  auto const table = flushTable<VsiToVniEsemHwEmFlushTable>();
  FlushHelper const* const sweep = helperOf(table, 37, FlushCmdType::flushCmdSweep);
  ASSERT_NE(sweep, nullptr);
  EXPECT_EQ(sweep->key.keep, 0U);
  EXPECT_THAT(bitsSet(sweep->rule.mask), ElementsAre(59));
  EXPECT_THAT(bitsSet(sweep->rule.value), ElementsAre(59));
  EXPECT_EQ(sweep->action, LoamAsicUtils::FlushCmdPayloadType());
}

TEST(ExactMatchFlush, TheSweepBitOfAnActionIsTheFirstBitOfThePayload) {
  EXPECT_EQ(MplsIsemHwEm::FlushHelperHolder::sweepBitPosition(), 106U);
  EXPECT_EQ(Srv6LocalSidIsemHwEm::FlushHelperHolder::sweepBitPosition(), 106U);
  EXPECT_EQ(InAcSVlanHwEm::FlushHelperHolder::sweepBitPosition(), 106U);
  EXPECT_EQ(InAcUntaggedHwEm::FlushHelperHolder::sweepBitPosition(), 106U);
  EXPECT_EQ(Ip4UdpTtMpIsemHwEm::FlushHelperHolder::sweepBitPosition(), 105U);
  EXPECT_EQ(VsiToVniEsemHwEm::FlushHelperHolder::sweepBitPosition(), 51U);
}

TEST(ExactMatchFlush, AHelperKnowsTheTablesIdAmongThoseOfItsMemory) {
  EXPECT_EQ(flushTable<MplsIsemHwEmFlushTable>()->flushHelperHolder().helpers().front().tid, 0U);
  EXPECT_EQ(flushTable<Srv6LocalSidIsemHwEmFlushTable>()->flushHelperHolder().helpers().front().tid, 62U);
  EXPECT_EQ(flushTable<Ip4UdpTtMpIsemHwEmFlushTable>()->flushHelperHolder().helpers().front().tid, 38U);
  EXPECT_EQ(flushTable<InAcSVlanHwEmFlushTable>()->flushHelperHolder().helpers().front().tid, 1U);
  EXPECT_EQ(flushTable<InAcUntaggedHwEmFlushTable>()->flushHelperHolder().helpers().front().tid, 19U);
  EXPECT_EQ(flushTable<VsiToVniEsemHwEmFlushTable>()->flushHelperHolder().helpers().front().tid, 2U);
}

TEST(ExactMatchFlush, ATableWithoutASweepBitHasARuleToClearAndNoOther) {
  TestSupport::TableRig rig;
  auto& table = rig.makeWithFaps<EsemFodoPortCvidEm>();
  EXPECT_EQ(table.flushHelperHolder()->helpers().size(), 1U);
  EXPECT_TRUE(flushTable<EsemFodoPortCvidEmFlushTable>()->flushHelperHolder().helpers().empty());
  EXPECT_FALSE(table.hasMarkSweep());
  TestSupport::ShadowKey const at = TestSupport::shadowKeyOf(table, 0);
  EXPECT_EQ(table.markTableInHw(at), nullptr);
  EXPECT_EQ(table.sweepTableInHw(at), nullptr);
  EXPECT_EQ(TestSupport::countOf(table.clearTableInHw(at)), 1U);
}

TEST(ExactMatchFlush, ATableReachesTheRulesOfItsFlushTable) {
  TestSupport::TableRig rig;
  auto& table = rig.makeWithFaps<InAcSVlanHwEm>();
  TestSupport::ShadowKey const at = TestSupport::shadowKeyOf(table, 1);
  auto const mark = table.markTableInHw(at)->cmdDeq();
  EXPECT_EQ(mark->fapmask(), TestSupport::maskOf({1}));
  ASSERT_NE(mark->flushPass(), nullptr);
  EXPECT_EQ(mark->flushPass()->action, Sluice::FlushPass::Action::merge);
  EXPECT_EQ(mark->flushPass()->physicalTableId, 65U);
  EXPECT_EQ(mark->flushPass()->block, 282U);
  EXPECT_EQ(mark->flushPass()->tid, 1U);
  EXPECT_EQ(table.sweepTableInHw(at)->cmdDeq()->flushPass()->action, Sluice::FlushPass::Action::remove);
}

TEST(ExactMatchFlushDeathTest, ACommandOfReadersIsNoneThatAHolderMakes) {
  AnyHolder<MplsIsemHwEmUnit> holder;
  EXPECT_DEATH(holder.createFlushHelpers(FlushCmdType::flushCmdReadFirst),
               "false.*unhandled flushCmdType: 3");
}

TEST(ExactMatchFlush, APlugInIsNamedAfterItsTable) {
  EXPECT_EQ(MplsIsemHwEmFlushTable::pluginName(), "bcm88490_a0::MplsIsemHwEmFlushPlugin");
  EXPECT_EQ(MplsIsemHwEmFlushTable::tableName(), "MplsIsemHwEm");
  LoamAsicUtils::PluginEmFlushTable<MplsIsemHwEmFlushTable, Hardware::ChipType{25}> const plugin;
  EXPECT_EQ(plugin.name(), "bcm88490_a0::MplsIsemHwEmFlushPluginPlugin");
}

TEST(ExactMatchFlush, AFlushEntityIsANameAndNothingElse) {
  EXPECT_EQ(mplsIsemHwEmFlushEntityFactory("flush")->name(), "flush");
}

TEST(FlushBits, AValueIsWrittenWhereItBelongsAndNowhereElse) {
  std::array<std::uint8_t, 4> bits{0xff, 0xff, 0xff, 0xff};
  LoamAsicUtils::setBufValue(bits.data(), bits.size(), 0b0101, 4, 6);
  EXPECT_THAT(bits, ElementsAre(0x7f, 0xfd, 0xff, 0xff));
}

TEST(FlushBitsDeathTest, AValuePastTheEndIsAFaultOfTheProgram) {
  std::array<std::uint8_t, 4> bits{};
  EXPECT_DEATH(LoamAsicUtils::setBufValue(bits.data(), bits.size(), 1, 2, 31), "2 bits at 31 of 4 bytes");
}

}  // namespace
