#include "tests/LoamSharedHwTables/TableRig.h"

namespace {

using namespace bcm88490_a0;
using TestSupport::bulkOf;
using TestSupport::dataOf;
using TestSupport::entryOf;
using TestSupport::keyOfRow;
using TestSupport::maskOf;
using TestSupport::Row;
using TestSupport::ShadowKey;
using TestSupport::TableRig;
using TestSupport::Written;

ShadowKey const kShared(Sluice::FapId::null(), 0);
constexpr char kFapType[] = "generation4";

template <class T>
void expectChipInLine(TableRig const& rig, T const& table, unsigned fap) {
  for (std::uint32_t row = 0; row < table.size(); ++row) {
    auto const key = keyOfRow(table, row);
    ASSERT_EQ(rig.chipRow(table, fap, key), dataOf(table.getEntry(kShared, key))) << "row " << row;
  }
}

TEST(DirectDownload, ATableOfWholeBuffersEndsWithTheLastOne) {
  // 2,048 rows of 16 bytes, 256 to a buffer.
  TableRig rig({.bufSize = 4096});
  auto& table = rig.makeWithFaps<SmallAdsA1HwDirect>();
  auto const written = bulkOf(table.download(kFapType, maskOf({0})));
  ASSERT_EQ(written.size(), 8U);
  for (std::size_t number = 0; number < 8; ++number) {
    EXPECT_EQ(written[number].row, 0x3130000 + number * 256);
    EXPECT_EQ(written[number].rows, 256U);
  }
}

TEST(DirectDownload, ATableSmallerThanABufferIsOneCommandAMemory) {
  TableRig rig({.bufSize = 65536});
  auto& table = rig.makeWithFaps<SrcAddrMapHwDirect>();
  auto const written = bulkOf(table.download(kFapType, maskOf({0})));
  ASSERT_EQ(written.size(), 4U);
  EXPECT_EQ(written[0].block, 26U);
  EXPECT_EQ(written[0].row, 0x150000U);
  EXPECT_EQ(written[3].block, 27U);
  EXPECT_EQ(written[3].row, 0x26E0000U);
  for (Written const& one : written) EXPECT_EQ(one.rows, 256U);
}

TEST(DirectDownload, AnEmptyStoreTakesAsManyCommandsAsAFullOne) {
  TableRig rig({.bufSize = 4096, .buffers = 300});
  auto& table = rig.makeWithFaps<SmallBbBHwDirect>();
  std::size_t const empty = bulkOf(table.download(kFapType, maskOf({0}))).size();
  for (std::uint32_t row = 0; row < table.size(); ++row)
    table.setEntry(kShared,
                   entryOf<SmallBbBHwDirect::Entry>(keyOfRow(table, row), static_cast<std::uint8_t>(row)));
  EXPECT_EQ(bulkOf(table.download(kFapType, maskOf({0}))).size(), empty);
  EXPECT_EQ(empty, 128U);
}

TEST(DirectDownload, ABufferGoesOnAcrossTheEndOfAnArray) {
  // 100 rows of 24 bytes do not divide the 2,048 rows of an array.
  TableRig rig({.bufSize = 2400});
  auto& table = rig.makeWithFaps<TcamBHwDirect>();
  for (std::uint32_t const row : {2046U, 2047U, 2048U, 2049U, 4095U})
    table.setEntry(kShared,
                   entryOf<TcamBHwDirect::Entry>(keyOfRow(table, row), static_cast<std::uint8_t>(row)));
  EXPECT_TRUE(rig.writer->download(table, maskOf({0})).ok());
  expectChipInLine(rig, table, 0);
}

TEST(DirectDownload, OneFailureOfThePoolSendsOneRowAlone) {
  TableRig rig({.bufSize = 4096});
  auto& table = rig.makeWithFaps<SmallAdsA1HwDirect>();
  table.setEntry(kShared, entryOf<SmallAdsA1HwDirect::Entry>(keyOfRow(table, 512), 9));
  rig.writer->flush();
  rig.pool->failNthIs(3);
  auto const cmds = table.download(kFapType, maskOf({0}));
  // 256 rows to a buffer: two buffers, row 512 alone, then buffers from row 513 on.
  EXPECT_EQ(cmds->size(), 2U + 1U + 6U);
  std::vector<Written> written;
  auto const replay = Sluice::schanCmdsFactory();
  while (auto const cmd = cmds->cmdDeq()) {
    if (cmd->bulkTransferCount() == 1) {
      auto const transfer = cmd->bulkTransfer(0);
      written.push_back({transfer.block, transfer.row, transfer.rows});
    }
    replay->cmdEnq(cmd);
  }
  ASSERT_EQ(written.size(), 8U);
  EXPECT_EQ(written[1].row, 0x3130000U + 256);
  EXPECT_EQ(written[2].row, 0x3130000U + 513);
  EXPECT_EQ(written[7].rows, 2048U - 513 - 5 * 256);
  EXPECT_TRUE(rig.channel->send(replay).ok());
  expectChipInLine(rig, table, 0);
}

TEST(DirectDownload, ADryPoolSendsEveryRowAlone) {
  TableRig rig({.buffers = 0});
  auto& table = rig.makeWithFaps<EmAccessCmdHwDirect>();
  auto const cmds = table.download(kFapType, maskOf({0}));
  EXPECT_EQ(cmds->size(), 64U);
  EXPECT_TRUE(rig.channel->send(cmds).ok());
  expectChipInLine(rig, table, 0);
}

TEST(DirectDownload, ABufferSmallerThanARowIsNone) {
  TableRig rig({.bufSize = 7});
  auto& table = rig.makeWithFaps<EmAccessCmdHwDirect>();
  auto const cmds = table.download(kFapType, maskOf({0}));
  EXPECT_EQ(cmds->size(), 64U);
  EXPECT_EQ(rig.pool->freeBuffers(), 64U);
}

TEST(DirectDownload, BuffersGoBackToThePoolWithTheirCommands) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SrcAddrMapHwDirect>();
  auto cmds = table.download(kFapType, maskOf({0}));
  EXPECT_LT(rig.pool->freeBuffers(), 64U);
  cmds = nullptr;
  EXPECT_EQ(rig.pool->freeBuffers(), 64U);
}

TEST(DirectDownload, ClearingWritesDefaultsWhateverTheStoreHeld) {
  TableRig rig({.buffers = 300});
  auto& table = rig.makeWithFaps<TcamHwDirect>();
  TcamHwDirect::EntryKey const key(0, 9);
  table.setEntry(kShared, entryOf<TcamHwDirect::Entry>(key, 99));
  rig.writer->flush();
  auto const shadow = table.shadow(kShared);
  // Another default has crept in: clearing puts the preset back first.
  Row const wrong(24, 0xEE);
  shadow->initShadow(wrong.data());
  auto const cmds = shadow->clearShadow(TestSupport::kRevision, maskOf({0, 1}));
  EXPECT_EQ(shadow->entryStorage()->entryCollMap().interface().members(), 0U);
  EXPECT_TRUE(rig.channel->send(cmds).ok());
  EXPECT_EQ(rig.chipRow(table, 0, key), dataOf(TcamHwDirect::MdbkKapsaRpbCommandEntry(key)));
  expectChipInLine(rig, table, 1);
}

TEST(DirectDownload, ClearingFapsThatAreNotTheShadowsLeavesTheStoreAsItIs) {
  TableRig rig;
  auto& table = rig.makeWithFaps<IpkgvHwDirect>();
  auto const shadow = table.shadow({0, 0});
  EXPECT_EQ(shadow->clearShadow(TestSupport::kRevision, maskOf({1})), nullptr);
  EXPECT_EQ(shadow->entryStorage()->entryCollMap().interface().members(), 1U);
}

TEST(DirectDownload, APartlyWrittenTableWithoutEntriesGivesAnEmptyList) {
  TableRig rig;
  auto& table = rig.makeWithFaps<MainHdrProfMapHwDirect>(TestSupport::kAiRevision);
  auto const cmds = table.download(kFapType, maskOf({0}));
  ASSERT_NE(cmds, nullptr);
  EXPECT_TRUE(cmds->empty());
}

TEST(DirectDownload, APartlyWrittenTableSendsItsEntriesAndNothingElse) {
  TableRig rig;
  auto& table = rig.makeWithFaps<MainHdrProfMapHwDirect>();
  // Six rows in two memories.
  EXPECT_EQ(table.download(kFapType, maskOf({1}))->size(), 12U);
}

TEST(DirectDownload, TheSecondArrayOfAMemoryIsWrittenAlone) {
  TableRig rig({.bufSize = 65536});
  auto& table = rig.makeWithFaps<SmallAdsHwDirect>();
  auto const written = bulkOf(table.download(kFapType, maskOf({0})));
  ASSERT_EQ(written.size(), 1U);
  EXPECT_EQ(written[0].row, 0x3130800U);
  EXPECT_EQ(written[0].rows, 2048U);
}

TEST(DirectDownload, OnlyTheFapsOfTheMaskAreWritten) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  auto const written = entryOf<SmallBbHwDirect::Entry>(SmallBbHwDirect::EntryKey(1, 1), 3);
  table.setEntry(kShared, written);
  rig.writer->flush();
  rig.chip->reset(0);
  rig.chip->reset(1);
  rig.writer->download(table, maskOf({1, 5}));
  EXPECT_EQ(rig.chipRow(table, 1, written.entryKey()), dataOf(written));
  EXPECT_EQ(rig.chipRow(table, 0, written.entryKey()), Row(64, 0));
}

}  // namespace
