#include <cstdlib>

#include "tests/LoamSharedHwTables/ExactMatchRig.h"

namespace {

using namespace bcm88490_a0;
using TestSupport::countOf;
using TestSupport::maskOf;
using TestSupport::numberedEntry;
using TestSupport::numberedKey;
using TestSupport::resultsOnChip;
using TestSupport::ShadowKey;
using TestSupport::TableRig;

constexpr char kFapType[] = "generation4";
ShadowKey const kShared(Sluice::FapId::null(), 0);
constexpr std::size_t kCapacity = 170;  // entries of 24 bytes in a buffer of 4096

struct ExactMatchDownload : testing::Test {
  void fill(std::uint32_t entries) {
    for (std::uint32_t number = 0; number < entries; ++number)
      table.setEntry(kShared, numberedEntry<MplsIsemHwEm>(number, number));
    rig.writer->dirtyKeysDel(shadow());
  }
  MplsIsemHwEm::Shadow& shadow() { return *table.shadow(kShared); }
  std::vector<std::uint32_t> entriesOf(Dovel::Ptr<Sluice::SchanCmds> const& cmds) {
    std::vector<std::uint32_t> entries;
    while (auto const cmd = cmds->cmdDeq()) entries.push_back(cmd->bulkTransfer(0).rows);
    return entries;
  }
  // What the shadows of the table tell of failures.
  std::vector<LoamAsicUtils::BulkDownloadFailure> failures;
  void listen() {
    table.addBulkDownloadErrConfig("test", Dovel::ptrIsImpl<LoamAsicUtils::HwBulkDownloadErrConfig>(
                                               [this](LoamAsicUtils::BulkDownloadFailure const& failure) {
                                                 failures.push_back(failure);
                                               }));
  }

  TableRig rig{{.bufSize = 4096, .buffers = 8}};
  MplsIsemHwEm& table = rig.makeWithFaps<MplsIsemHwEm>();
};

TEST_F(ExactMatchDownload, IsNothingForAShadowWhoseFapsAreNotMeant) {
  fill(3);
  EXPECT_EQ(table.download(kFapType, maskOf({7})), nullptr);
  InAcSVlanHwEm& other = rig.makeWithFaps<InAcSVlanHwEm>();
  EXPECT_EQ(other.shadow({1, 0})->download(kFapType, TestSupport::kRevision, maskOf({0})), nullptr);
}

TEST_F(ExactMatchDownload, OfAnEmptyStoreIsAnEmptyListAndTakesNoBuffer) {
  auto const taken = rig.pool->taken();
  auto const cmds = table.download(kFapType, maskOf({0}));
  ASSERT_NE(cmds, nullptr);
  EXPECT_TRUE(cmds->empty());
  EXPECT_EQ(rig.pool->taken(), taken);
}

TEST_F(ExactMatchDownload, OfAFullBufferIsOneCommandAndNoneAfterIt) {
  fill(kCapacity);
  EXPECT_THAT(entriesOf(table.download(kFapType, maskOf({0}))), testing::ElementsAre(kCapacity));
}

TEST_F(ExactMatchDownload, OfOneEntryMoreThanABufferHoldsIsASecondCommandOfOne) {
  fill(kCapacity + 1);
  EXPECT_THAT(entriesOf(table.download(kFapType, maskOf({0}))), testing::ElementsAre(kCapacity, 1));
}

TEST_F(ExactMatchDownload, NamesTheDatabaseAndPacksBareEntries) {
  fill(2);
  auto const cmds = table.download(kFapType, maskOf({1}));
  auto const cmd = cmds->cmdDeq();
  EXPECT_EQ(cmd->fapmask(), maskOf({1}));
  auto const transfer = cmd->bulkTransfer(0);
  EXPECT_EQ(transfer.opcode, Sluice::SchanOpcode::exactMatch);
  EXPECT_EQ(transfer.block, 282U);
  EXPECT_EQ(transfer.physicalTableId, 64U);
  EXPECT_EQ(transfer.rowBytes, 24U);
  auto const* const data = rig.pool->dmaToVa(transfer.dmaAddress, 48);
  for (std::size_t at = 0; at < 2; ++at) {
    MplsIsemHwEm::Entry entry;
    entry.dataBytesIs(data + at * 24);
    entry.setKeyFromBuffer();
    EXPECT_EQ(entry.command(), LoamAsicUtils::emCommandWrite);
    entry.commandIs(0);
    EXPECT_EQ(entry, table.getEntry(kShared, entry.entryKey()));
  }
}

TEST_F(ExactMatchDownload, WritesInBulkAlsoWhatIsToBeDeleted) {
  fill(1);
  table.deleteEntry(kShared, numberedKey<MplsIsemHwEm::EntryKey>(0));
  EXPECT_THAT(entriesOf(table.download(kFapType, maskOf({0}))), testing::ElementsAre(1));
  EXPECT_EQ(shadow().getEntry(numberedKey<MplsIsemHwEm::EntryKey>(0)).command(),
            LoamAsicUtils::emCommandDelete);
}

TEST_F(ExactMatchDownload, GoesByEntriesAndSaysSoWhereTheEnvironmentAsksForIt) {
  fill(3);
  listen();
  for (char const* const value : {"1", ""}) {
    failures.clear();
    ::setenv("SIMULATE_ENTRY_BY_ENTRY_DOWNLOAD", value, 1);
    EXPECT_EQ(shadow().download(kFapType, TestSupport::kRevision, maskOf({0})), nullptr);
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].shadow, kShared);
    EXPECT_EQ(failures[0].table, "MplsIsemHwEm");
    EXPECT_TRUE(failures[0].entries.empty());
    // The table then makes a command for every key.
    auto const cmds = table.download(kFapType, maskOf({0}));
    ASSERT_EQ(countOf(cmds), 3U);
    while (auto const cmd = cmds->cmdDeq()) EXPECT_EQ(cmd->bulkTransferCount(), 0U);
  }
  ::unsetenv("SIMULATE_ENTRY_BY_ENTRY_DOWNLOAD");
}

TEST_F(ExactMatchDownload, WithoutAnyBufferMakesACommandForEveryEntry) {
  TableRig dry({.bufSize = 4096, .buffers = 0});
  auto& starved = dry.makeWithFaps<MplsIsemHwEm>();
  for (std::uint32_t number = 0; number < 5; ++number)
    starved.setEntry(kShared, numberedEntry<MplsIsemHwEm>(number, number));
  auto const cmds = starved.download(kFapType, maskOf({0}));
  EXPECT_EQ(countOf(cmds), 5U);
  while (auto const cmd = cmds->cmdDeq()) EXPECT_EQ(cmd->bulkTransferCount(), 0U);
}

TEST_F(ExactMatchDownload, GoesOnInBulkWhenThePoolHasBuffersAgain) {
  fill(5);
  rig.pool->failNthIs(1);
  auto const cmds = table.download(kFapType, maskOf({0}));
  ASSERT_EQ(countOf(cmds), 2U);
  EXPECT_EQ(cmds->cmdDeq()->bulkTransferCount(), 0U);
  EXPECT_EQ(cmds->cmdDeq()->bulkTransfer(0).rows, 4U);
}

TEST_F(ExactMatchDownload, ByEntriesEndsADeletionThatIsPending) {
  fill(2);
  table.deleteEntry(kShared, numberedKey<MplsIsemHwEm::EntryKey>(1));
  EXPECT_EQ(countOf(shadow().entryByEntryCmds(TestSupport::kRevision, maskOf({0}))), 2U);
  bool found = true;
  shadow().entryStorage()->entryColl(numberedKey<MplsIsemHwEm::EntryKey>(1), found);
  EXPECT_FALSE(found);
}

TEST_F(ExactMatchDownload, TellsWhichEntriesABufferHadThatFailed) {
  fill(3);
  listen();
  rig.chip->faults().faultIs({.status = Sluice::SchanStatus::badDatabase});
  rig.channel->send(table.download(kFapType, maskOf({0})));
  ASSERT_EQ(failures.size(), 1U);
  EXPECT_EQ(failures[0].entries.size(), 72U);
  table.deleteBulkDownloadErrConfig("test");
  rig.chip->faults().faultIs({.status = Sluice::SchanStatus::badDatabase});
  rig.channel->send(table.download(kFapType, maskOf({0})));
  EXPECT_EQ(failures.size(), 1U);
}

TEST_F(ExactMatchDownload, SendsTheKeysOfAFailedBufferOnceMoreEachByItself) {
  fill(3);
  rig.chip->faults().faultIs({.status = Sluice::SchanStatus::bucketFull});
  EXPECT_FALSE(rig.writer->download(table, maskOf({0})).ok());
  EXPECT_EQ(rig.writer->dirtyKeys(), 0U);
  EXPECT_TRUE(rig.writer->refusals(shadow()).empty());
  EXPECT_EQ(resultsOnChip(rig, table, 0).size(), 3U);
}

TEST_F(ExactMatchDownload, TriesRefusedKeysAgainAndForgetsTheRefusal) {
  rig.chip->faults().faultIs({.status = Sluice::SchanStatus::bucketFull});
  table.setEntry(kShared, numberedEntry<MplsIsemHwEm>(1, 1));
  rig.writer->flush();
  EXPECT_EQ(rig.writer->refusals(shadow()).size(), 1U);
  EXPECT_TRUE(resultsOnChip(rig, table, 0).empty());
  EXPECT_TRUE(rig.writer->download(table, maskOf({0})).ok());
  EXPECT_TRUE(rig.writer->refusals(shadow()).empty());
  EXPECT_EQ(resultsOnChip(rig, table, 0).size(), 1U);
}

TEST_F(ExactMatchDownload, FailsTheProgramForABufferThatIsNone) {
  EXPECT_DEATH((LoamAsicUtils::ShadowAccessor<MplsIsemHwEm::Shadow const>(&shadow())
                    .enqueueBulkCmd<MplsIsemHwEm::Entry, 2>(maskOf({0}), nullptr, 1, 0, 0)),
               "dmaMemPoolBuffer: Invalid dmaMemPoolBuffer");
}

}  // namespace
