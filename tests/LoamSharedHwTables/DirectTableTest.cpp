#include "tests/LoamSharedHwTables/TableRig.h"

namespace {

using namespace bcm88490_a0;
using Hardware::Block;
using TestSupport::dataOf;
using TestSupport::entryOf;
using TestSupport::KeyListener;
using TestSupport::maskOf;
using TestSupport::Row;
using TestSupport::ShadowKey;
using TestSupport::TableRig;

ShadowKey const kShared(Sluice::FapId::null(), 0);

TEST(DirectTable, DeletingAKeyThatWasNeverWrittenIsCountedAndPublishesNothing) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  auto const shadow = table.shadow(kShared);
  KeyListener listener(*shadow);
  table.deleteEntry(kShared, {3, 5});
  EXPECT_EQ(table.hwTableStats()->entryDelCnt(), 1U);
  EXPECT_TRUE(listener.keys.empty());
}

TEST(DirectTable, DeletingTwiceIsSilentTheSecondTime) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  table.setEntry(kShared, entryOf<SmallBbHwDirect::Entry>(SmallBbHwDirect::EntryKey(3, 5), 1));
  auto const shadow = table.shadow(kShared);
  KeyListener listener(*shadow);
  table.deleteEntry(kShared, {3, 5});
  table.deleteEntry(kShared, {3, 5});
  EXPECT_EQ(listener.keys.size(), 1U);
  EXPECT_EQ(shadow->entryStorage()->counters().deletes, 1U);
}

TEST(DirectTable, AnEmptyTcamReadsAsBankSelectFifteenAndABucketMemoryAsZeroes) {
  TableRig rig;
  auto& tcam = rig.makeWithFaps<TcamHwDirect>();
  auto const read = tcam.getEntry(kShared, {1, 4095});
  EXPECT_EQ(static_cast<unsigned>(read.viewT()), 0U);
  EXPECT_EQ(TcamHwDirect::MdbkKapsaRpbCommandEntry::entry(read).cmdBankSel(), 15U);
  TcamHwDirect::MdbkKapsaRpbCommandEntry preset(read.entryKey());
  EXPECT_EQ(dataOf(read), dataOf(preset));
  auto& buckets = rig.makeWithFaps<SmallBbHwDirect>();
  EXPECT_EQ(dataOf(buckets.getEntry(kShared, {0, 0})), Row(64, 0));
}

TEST(DirectTable, AShadowIsAddedAndInitialisedOnce) {
  TableRig rig;
  auto& table = rig.make<EtppbTrapForwardActionTableHwDirect>();
  ShadowKey const key(0, 0);
  EXPECT_EQ(table.addShadow(key), 0);
  auto const added = table.hwTableStats()->entryAddCnt();
  EXPECT_EQ(added, 2U);
  auto const shadow = table.shadow(key);
  EXPECT_EQ(table.addShadow(key), 0);
  EXPECT_EQ(table.shadow(key), shadow);
  EXPECT_EQ(table.hwShadowColl().size(), 1U);
  EXPECT_EQ(table.hwTableStats()->entryAddCnt(), added);
}

TEST(DirectTable, CommandsAreMadeFromWhatTheStoreHoldsWhenTheyAreAskedFor) {
  TableRig rig({.writing = false});
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  SmallBbHwDirect::EntryKey const key(2, 7);
  table.setEntry(kShared, entryOf<SmallBbHwDirect::Entry>(key, 1));
  table.setEntry(kShared, entryOf<SmallBbHwDirect::Entry>(key, 2));
  auto const cmds = table.schanCmds(kShared, key, nullptr);
  ASSERT_EQ(cmds->size(), 1U);
  EXPECT_TRUE(rig.channel->send(cmds).ok());
  EXPECT_EQ(rig.chipRow(table, 0, key), dataOf(entryOf<SmallBbHwDirect::Entry>(key, 2)));
}

TEST(DirectTable, TellsItsBlocksInOrderAndWithdrawsThemWithItsEnd) {
  TableRig rig;
  LoamAsicUtils::HwTableKey const key(EgrAddHdrProfMapHwDirect::tableName(), TestSupport::kRevision);
  rig.make<EgrAddHdrProfMapHwDirect>();
  EXPECT_EQ(rig.manager->tableShadowInfo(key), (std::vector<Block>{Block{150}, Block{151}}));
  rig.manager->tableDel(key);
  EXPECT_TRUE(rig.manager->tableShadowInfo(key).empty());
}

TEST(DirectTable, RanksAndSharingAreThoseOfTheChip) {
  TableRig rig;
  EXPECT_EQ(rig.make<TcamHwDirect>().tableRank(), 95U);
  EXPECT_EQ(rig.make<SmallAdsB2HwDirect>().tableRank(), 90U);
  EXPECT_EQ(rig.make<SmallBbBHwDirect>().tableRank(), 85U);
  EXPECT_EQ(rig.make<SrcAddrMapHwDirect>().tableRank(), 0U);
  EXPECT_TRUE(rig.make<EmAccessCmdHwDirect>().sharedShadow());
  EXPECT_FALSE(rig.make<IpkgvHwDirect>().sharedShadow());
  EXPECT_EQ(rig.make<MainHdrProfMapHwDirect>().shadowMode(), LoamAsicUtils::ShadowType::keyBasedPartial);
  std::vector<std::uint32_t> ranks;
  for (auto const& table : rig.manager->tablesByRank()) ranks.push_back(table->tableRank());
  EXPECT_EQ(ranks, (std::vector<std::uint32_t>{0, 0, 0, 0, 85, 90, 95}));
}

TEST(DirectTable, AFapOfAnotherRevisionIsNotTheTables) {
  TableRig rig;
  auto& table = rig.make<SmallBbHwDirect>();
  auto const other = Dovel::ptrIsImpl<Hardware::Loam::FapControlData>(0, TestSupport::kAiRevision);
  EXPECT_FALSE(table.processFapIdAdd(other));
  EXPECT_TRUE(table.hwShadowColl().empty());
  EXPECT_EQ(table.fapmask(), Sluice::Fapmask());
}

TEST(DirectTable, ASharedShadowLivesAsLongAsAnyFap) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  EXPECT_EQ(table.fapmask(), maskOf({0, 1}));
  table.processFapIdDel(0);
  EXPECT_TRUE(table.hwShadowCollHas(kShared));
  EXPECT_EQ(table.fapmask(), maskOf({1}));
  table.processFapIdDel(1);
  EXPECT_TRUE(table.hwShadowColl().empty());
}

TEST(DirectTable, AFapTakesItsOwnShadowAlong) {
  TableRig rig;
  auto& table = rig.makeWithFaps<IpkgvHwDirect>();
  table.processFapIdDel(0);
  EXPECT_FALSE(table.hwShadowCollHas({0, 0}));
  EXPECT_TRUE(table.hwShadowCollHas({1, 0}));
}

TEST(DirectTable, WritesGoToAllFapsOfASharedShadowAndElseToTheKeysFap) {
  TableRig rig;
  auto& shared = rig.makeWithFaps<SmallBbHwDirect>();
  EXPECT_EQ(shared.getFapmask({0, 0}), maskOf({0, 1}));
  auto& own = rig.makeWithFaps<IpkgvHwDirect>();
  EXPECT_EQ(own.getFapmask({1, 0}), maskOf({1}));
  EXPECT_EQ(own.getFapmask(kShared), maskOf({0, 1}));
}

}  // namespace
