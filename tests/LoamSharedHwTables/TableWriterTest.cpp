#include <algorithm>

#include "tests/LoamSharedHwTables/TableRig.h"

namespace {

using namespace bcm88490_a0;
using Sluice::SchanStatus;
using TestSupport::dataOf;
using TestSupport::entryOf;
using TestSupport::keyOfRow;
using TestSupport::maskOf;
using TestSupport::Row;
using TestSupport::ShadowKey;
using TestSupport::TableRig;

ShadowKey const kShared(Sluice::FapId::null(), 0);

// The rows of the chip in the order in which they are written.
class Watcher final : public Chip::ChipObserver {
 public:
  explicit Watcher(Chip::SoftwareChip& chip) : chip_(chip) { chip.observerIs(this); }
  ~Watcher() override { chip_.observerIs(nullptr); }
  void rowWritten(Sluice::FapId /*fap*/, std::uint32_t /*block*/, std::uint32_t row,
                  std::span<std::byte const> /*before*/, std::span<std::byte const> /*after*/) override {
    rows.push_back(row);
  }
  void wasReset(Sluice::FapId /*fap*/) override {}

  std::vector<std::uint32_t> rows;

 private:
  Chip::SoftwareChip& chip_;
};

template <class T>
void set(T& table, std::uint32_t row, std::uint8_t content) {
  table.setEntry(kShared, entryOf<typename T::Entry>(keyOfRow(table, row), content));
}

TEST(TableWriter, SendsNothingUntilItIsAskedOrThereIsEnough) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  for (std::uint32_t row = 0; row < 1023; ++row) set(table, row, 1);
  EXPECT_EQ(rig.writer->dirtyKeys(), 1023U);
  EXPECT_EQ(rig.chip->counters(0).messages, 0U);
  set(table, 1023, 1);
  EXPECT_EQ(rig.writer->dirtyKeys(), 0U);
  EXPECT_EQ(rig.chip->counters(0).messages, 1024U);
  EXPECT_EQ(rig.writer->figures(table).writes, 1024U);
}

TEST(TableWriter, SendsKeysInTheOrderOfTheirFirstPublication) {
  TableRig rig({.faps = 1});
  auto& table = rig.makeWithFaps<SmallBbHwDirect>(TestSupport::kRevision, 1);
  for (std::uint32_t const row : {7U, 3U, 9U, 3U, 7U, 1U}) set(table, row, 2);
  Watcher const watcher(*rig.chip);
  rig.writer->flush();
  EXPECT_EQ(watcher.rows, (std::vector<std::uint32_t>{0x120007, 0x120003, 0x120009, 0x120001}));
}

TEST(TableWriter, WritesLowerRanksFirstAndDeletesThemLast) {
  TableRig rig({.faps = 1});
  auto& tcam = rig.makeWithFaps<TcamHwDirect>(TestSupport::kRevision, 1);
  auto& ads = rig.makeWithFaps<SmallAdsA1HwDirect>(TestSupport::kRevision, 1);
  auto& buckets = rig.makeWithFaps<SmallBbHwDirect>(TestSupport::kRevision, 1);
  set(tcam, 1, 1);
  set(ads, 1, 1);
  set(buckets, 1, 1);
  rig.writer->flush();
  // New rows in the place of old ones, and the old ones deleted, in any order.
  tcam.deleteEntry(kShared, keyOfRow(tcam, 1));
  set(tcam, 2, 1);
  buckets.deleteEntry(kShared, keyOfRow(buckets, 1));
  set(buckets, 2, 1);
  ads.deleteEntry(kShared, keyOfRow(ads, 1));
  set(ads, 2, 1);
  Watcher const watcher(*rig.chip);
  rig.writer->flush();
  EXPECT_EQ(watcher.rows,
            (std::vector<std::uint32_t>{0x120002, 0x3130002, 0x3100002, 0x3100001, 0x3130001, 0x120001}));
}

TEST(TableWriter, WritesTablesWithoutARankBeforeAllOthers) {
  TableRig rig({.faps = 1});
  auto& buckets = rig.makeWithFaps<SmallBbHwDirect>(TestSupport::kRevision, 1);
  auto& sources = rig.makeWithFaps<SrcAddrMapHwDirect>(TestSupport::kRevision, 1);
  set(buckets, 2, 1);
  set(sources, 2, 1);
  Watcher const watcher(*rig.chip);
  rig.writer->flush();
  ASSERT_EQ(watcher.rows.size(), 5U);
  EXPECT_EQ(watcher.rows.back(), 0x120002U);
}

TEST(TableWriter, SendsNothingOfWhatAShadowWasToldToForget) {
  TableRig rig({.faps = 1});
  auto& buckets = rig.makeWithFaps<SmallBbHwDirect>(TestSupport::kRevision, 1);
  auto& sources = rig.makeWithFaps<SrcAddrMapHwDirect>(TestSupport::kRevision, 1);
  set(buckets, 2, 1);
  set(sources, 2, 1);
  rig.writer->dirtyKeysDel(*sources.shadow(kShared));
  EXPECT_EQ(rig.writer->dirtyKeys(), 1U);
  set(buckets, 3, 1);
  Watcher const watcher(*rig.chip);
  rig.writer->flush();
  EXPECT_EQ(watcher.rows, (std::vector<std::uint32_t>{0x120002, 0x120003}));
}

TEST(TableWriter, RemembersWhatTheChipLastAnsweredForAKey) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  auto const shadow = table.shadow(kShared);
  rig.chip->faults().refusedRowsAre(282, 0x120004, 1, SchanStatus::badAddress);
  set(table, 4, 1);
  set(table, 5, 1);
  rig.writer->flush();
  EXPECT_EQ(rig.writer->figures(table).refused, 1U);
  auto const& refusals = rig.writer->refusals(*shadow);
  ASSERT_EQ(refusals.size(), 1U);
  EXPECT_EQ(refusals.begin()->second.status, SchanStatus::badAddress);
  EXPECT_EQ(refusals.begin()->second.fapmask, maskOf({0, 1}));
  // The store keeps the entry, and the next write that is taken ends the refusal.
  EXPECT_EQ(table.getEntry(kShared, keyOfRow(table, 4)),
            entryOf<SmallBbHwDirect::Entry>(keyOfRow(table, 4), 1));
  rig.chip->faults().faultsDel();
  set(table, 4, 2);
  rig.writer->flush();
  EXPECT_TRUE(rig.writer->refusals(*shadow).empty());
}

TEST(TableWriter, ADownloadThatIsTakenEndsRefusals) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  auto const shadow = table.shadow(kShared);
  rig.chip->faults().refusedRowsAre(282, 0x120004, 1, SchanStatus::badAddress);
  set(table, 4, 1);
  rig.writer->flush();
  EXPECT_FALSE(rig.writer->download(table, maskOf({0})).ok());
  rig.chip->faults().faultsDel();
  EXPECT_TRUE(rig.writer->download(table, maskOf({0})).ok());
  ASSERT_EQ(rig.writer->refusals(*shadow).size(), 1U);
  EXPECT_EQ(rig.writer->refusals(*shadow).begin()->second.fapmask, maskOf({1}));
  EXPECT_TRUE(rig.writer->download(table, maskOf({1})).ok());
  EXPECT_TRUE(rig.writer->refusals(*shadow).empty());
}

TEST(TableWriter, CountsWhatIsNotAnsweredApart) {
  TableRig rig({.faps = 1});
  auto& table = rig.makeWithFaps<SmallBbHwDirect>(TestSupport::kRevision, 1);
  rig.chip->faults().faultIs({.kind = Chip::ChipFault::Kind::loseAnswer, .fap = 0, .nth = 2});
  for (std::uint32_t row = 0; row < 3; ++row) set(table, row, 1);
  rig.writer->flush();
  auto const figures = rig.writer->figures(table);
  EXPECT_EQ(figures.commands, 3U);
  EXPECT_EQ(figures.refused, 0U);
  EXPECT_EQ(figures.unanswered, 1U);
}

TEST(TableWriter, AClearIsNoNewsOfItsOwnKeys) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  for (std::uint32_t row = 0; row < 10; ++row) set(table, row, 1);
  rig.writer->flush();
  EXPECT_TRUE(rig.writer->clear(table, kShared).ok());
  EXPECT_EQ(rig.writer->dirtyKeys(), 0U);
  auto const before = rig.chip->counters(0).messages;
  rig.writer->flush();
  EXPECT_EQ(rig.chip->counters(0).messages, before);
  set(table, 1, 3);
  EXPECT_EQ(rig.writer->dirtyKeys(), 1U);
}

TEST(TableWriter, AShadowThatGoesTakesItsKeysAlong) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  auto& other = rig.makeWithFaps<SmallBbBHwDirect>();
  set(table, 1, 1);
  set(other, 1, 1);
  table.delShadow(kShared);
  EXPECT_EQ(rig.writer->dirtyKeys(), 1U);
  rig.writer->flush();
  EXPECT_EQ(rig.chip->counters(0).messages, 1U);
  EXPECT_EQ(rig.chipRow(table, 0, keyOfRow(table, 1)), Row(64, 0));
}

TEST(TableWriter, SendsNothingOfAShadowThatLostItsStore) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  set(table, 1, 1);
  rig.writer->flush();
  set(table, 1, 2);
  auto const before = rig.chip->counters(0).messages;
  table.shadow(kShared)->unmountVault();
  rig.writer->flush();
  EXPECT_EQ(rig.chip->counters(0).messages, before);
  EXPECT_EQ(rig.writer->dirtyKeys(), 0U);
  EXPECT_EQ(rig.chipRow(table, 0, keyOfRow(table, 1)),
            dataOf(entryOf<SmallBbHwDirect::Entry>(keyOfRow(table, 1), 1)));
}

TEST(TableWriter, ClosingSendsWhatIsLeftAndWatchesNoLonger) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  set(table, 1, 1);
  rig.writer->close();
  EXPECT_EQ(rig.chip->counters(0).messages, 1U);
  set(table, 2, 1);
  EXPECT_EQ(rig.writer->dirtyKeys(), 0U);
  EXPECT_EQ(rig.manager->shadowWatcher(), nullptr);
}

TEST(TableWriter, ClearsSingleFapsAndLeavesTheSharedShadow) {
  TableRig rig;
  auto& table = rig.makeWithFaps<SmallBbHwDirect>();
  set(table, 1, 1);
  EXPECT_TRUE(rig.writer->clearFaps(table, maskOf({1})).ok());
  auto const written = dataOf(entryOf<SmallBbHwDirect::Entry>(keyOfRow(table, 1), 1));
  EXPECT_EQ(rig.chipRow(table, 0, keyOfRow(table, 1)), written);
  EXPECT_EQ(rig.chipRow(table, 1, keyOfRow(table, 1)), Row(64, 0));
  EXPECT_EQ(dataOf(table.getEntry(kShared, keyOfRow(table, 1))), written);
}

TEST(TableWriter, KnowsWhichRowsOfAPartlyWrittenTableWereSent) {
  TableRig rig;
  auto& table = rig.makeWithFaps<MainHdrProfMapHwDirect>();
  table.deleteEntry(kShared, MainHdrProfMapHwDirect::EntryKey(5));
  rig.writer->flush();
  // A row that is deleted is touched too: it got its default.
  EXPECT_EQ(rig.writer->touchedKeys(*table.shadow(kShared)).size(), 6U);
  EXPECT_EQ(rig.writer->figures(table).deletes, 1U);
  auto& full = rig.makeWithFaps<SmallBbHwDirect>();
  set(full, 1, 1);
  rig.writer->flush();
  EXPECT_TRUE(rig.writer->touchedKeys(*full.shadow(kShared)).empty());
}

TEST(KeyList, KeepsEachKeyOnceInTheOrderOfItsFirstComing) {
  LoamAsicUtils::KeyList list;
  std::vector<std::uint64_t> expected;
  for (std::uint64_t number = 0; number < 5000; ++number) {
    std::uint64_t const word = number * 7919 % 3001;
    bool const isNew = std::ranges::find(expected, word) == expected.end();
    EXPECT_EQ(list.insert({{word, 0}}), isNew);
    if (isNew) expected.push_back(word);
  }
  std::vector<std::uint64_t> words;
  for (auto const& key : list.keys()) words.push_back(key.words[0]);
  EXPECT_EQ(words, expected);
  list.clear();
  EXPECT_TRUE(list.empty());
  EXPECT_TRUE(list.insert({{5, 0}}));
  EXPECT_TRUE(list.insert({{0, 5}}));
  EXPECT_FALSE(list.insert({{5, 0}}));
}

}  // namespace
