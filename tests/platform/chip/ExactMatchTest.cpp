// Exact-match entries that come by message.
#include <gtest/gtest.h>

#include "tests/platform/chip/ExactMatchSupport.h"

namespace {

using namespace TestSupport;
using Sluice::SchanResponse;
using Sluice::SchanStatus;

struct ExactMatch : ExactMatchRig {
  template <class Change>
  void expectRefused(Change const& change, SchanStatus status = SchanStatus::badDatabase) const {
    Sluice::schan_xmsg_user_ message = messageOf(kMpls, entryOf(kMpls, 7));
    change(message);
    SchanResponse const answer = answerTo(*chip, message);
    EXPECT_EQ(answer.status, status);
    for (std::uint32_t word : answer.image) EXPECT_EQ(word, 0U);
    EXPECT_FALSE(chip->programmed(0));
    for (Database const& database : kDatabases) EXPECT_TRUE(entries(database).empty());
    EXPECT_GT(chip->counters(0).refused, 0U);
  }
  template <class Change>
  void expectEntryRefused(Change const& change) const {
    expectRefused([&](auto& message) {
      Entry entry = entryOf(kMpls, 7);
      change(entry);
      std::memcpy(message.data, entry.data(), entry.size());
    });
  }
};

TEST_F(ExactMatch, KeepsAnEntryInEveryDatabase) {
  for (Database const& database : kDatabases) {
    std::uint64_t const key = (std::uint64_t{1} << (database.keyBits - 1)) + 5;
    Entry const entry = entryOf(database, key, 0x1ABCD);
    EXPECT_EQ(give(database, entry).status, SchanStatus::ok);
    EXPECT_EQ(look(database, key), entry);
    EXPECT_FALSE(has(database, key + 1));
    EXPECT_FALSE(has(database, 5));
  }
}

TEST_F(ExactMatch, DatabasesOfOnePhysicalTableDoNotSeeEachOthersKeys) {
  for (Database const& written : kDatabases) {
    chip->reset(0);
    write(written, 5);
    for (Database const& other : kDatabases) EXPECT_EQ(has(other, 5), other.tid == written.tid);
  }
}

TEST_F(ExactMatch, EveryBitOfTheKeyTellsKeysApart) {
  for (Database const& database : kDatabases) {
    for (unsigned bit = 0; bit < database.keyBits; ++bit) write(database, std::uint64_t{1} << bit, bit + 1);
    for (unsigned bit = 0; bit < database.keyBits; ++bit)
      EXPECT_EQ(resultOf(database, std::uint64_t{1} << bit), bit + 1);
  }
}

TEST_F(ExactMatch, AnswersAnInsertionWithTheEntryAndItsPlace) {
  Entry const entry = entryOf(kSrv6, 0x2ABCDEF0, 77);
  SchanResponse const answer = give(kSrv6, entry);
  EXPECT_EQ(answer.status, SchanStatus::ok);
  EXPECT_EQ(stripped(imageOf(answer)), entry);
  EXPECT_EQ(found(answer), 0U);
  EXPECT_EQ(hits(answer), 0U);
  EXPECT_LT(address(answer), 1024U);
  EXPECT_EQ(wayIndex(answer) % 4, address(answer) % 4);
}

TEST_F(ExactMatch, AnswersAnUpdateWithTheWayThatWasHit) {
  SchanResponse const first = write(kMpls, 3, 1);
  SchanResponse const second = write(kMpls, 3, 2);
  EXPECT_EQ(found(second), 1U);
  EXPECT_EQ(hits(second), 1U << wayIndex(second) % 4);
  EXPECT_EQ(address(second), address(first));
  EXPECT_EQ(wayIndex(second), wayIndex(first));
  EXPECT_EQ(stripped(imageOf(second)), entryOf(kMpls, 3, 2));
  EXPECT_EQ(resultOf(kMpls, 3), 2U);
  EXPECT_EQ(entries(kMpls).size(), 1U);
}

TEST_F(ExactMatch, AnswersADeletionWithTheEntryThatWasHeld) {
  SchanResponse const first = write(kVsiToVni, 99, 5);
  SchanResponse const second = del(kVsiToVni, 99);
  EXPECT_EQ(second.status, SchanStatus::ok);
  EXPECT_EQ(found(second), 1U);
  EXPECT_EQ(address(second), address(first));
  EXPECT_EQ(stripped(imageOf(second)), entryOf(kVsiToVni, 99, 5, kDelete));
  EXPECT_FALSE(has(kVsiToVni, 99));
}

TEST_F(ExactMatch, DeletesAKeyThatItDoesNotHold) {
  SchanResponse const answer = del(kMpls, 1);
  EXPECT_EQ(answer.status, SchanStatus::ok);
  EXPECT_EQ(found(answer), 0U);
  EXPECT_EQ(imageOf(answer), entryOf(kMpls, 1, 0, kDelete));
  EXPECT_FALSE(chip->programmed(0));
}

TEST_F(ExactMatch, DoesNotKeepWhatIsTheChipsToFillIn) {
  Entry entry = entryOf(kSVlan, 4);
  bitsAre(entry, 145, 22, ~0ULL);
  bitsAre(entry, 176, 16, ~0ULL);
  SchanResponse const answer = give(kSVlan, entry);
  EXPECT_EQ(look(kSVlan, 4), entryOf(kSVlan, 4));
  EXPECT_EQ(found(answer), 0U);
  EXPECT_EQ(bitsOf(imageOf(answer), 149, 2), 0U);
  EXPECT_EQ(bitsOf(imageOf(answer), 181, 11), 0U);
}

TEST_F(ExactMatch, KeepsEveryBitOfTheImage) {
  Entry entry = entryOf(kPortCvid, 0);
  bitsAre(entry, 9, 64, ~0ULL);
  bitsAre(entry, 73, 64, ~0ULL);
  bitsAre(entry, 137, 8, ~0ULL);
  give(kPortCvid, entry);
  EXPECT_EQ(look(kPortCvid, (std::uint64_t{1} << 39) - 1), entry);
}

TEST_F(ExactMatch, RefusesADatabaseThatItDoesNotHave) {
  for (std::uint32_t table : {0U, 36U, 38U, 63U, 66U, ~0U})
    expectRefused([table](auto& message) { message.physicalTableId = table; });
  expectRefused([](auto& message) { message.block = 281; });
  expectRefused([](auto& message) { message.location = 1; });
  expectRefused([](auto& message) { message.core = 1; });
}

TEST_F(ExactMatch, RefusesEveryOtherTid) {
  for (unsigned tid = 0; tid < 64; ++tid)
    if (tid != 0 && tid != 38 && tid != 62)
      expectEntryRefused([tid](Entry& entry) { bitsAre(entry, 170, 6, tid); });
  expectRefused([](auto& message) { message.physicalTableId = 65; });
}

TEST_F(ExactMatch, RefusesAnEntryOfAnotherType) {
  for (unsigned type : {0U, 2U, 3U, 4U, 5U, 6U, 7U})
    expectEntryRefused([type](Entry& entry) { bitsAre(entry, 167, 3, type); });
}

TEST_F(ExactMatch, RefusesACommandThatItDoesNotKnow) {
  for (unsigned command : {0U, 287U, 289U, 319U, 321U, 511U})
    expectEntryRefused([command](Entry& entry) { bitsAre(entry, 0, 9, command); });
}

TEST_F(ExactMatch, RefusesAMessageOfAnotherLength) {
  expectRefused([](auto& message) { message.header += 4; }, SchanStatus::badAddress);
}

TEST_F(ExactMatch, AnswersNothingThatDoesNotAskForIt) {
  Sluice::schan_xmsg_user_ message = messageOf(kMpls, entryOf(kMpls, 1));
  message.responseRequested = 0;
  EXPECT_EQ(answerTo(*chip, message).status, SchanStatus::noResponse);
  EXPECT_TRUE(has(kMpls, 1));
}

TEST_F(ExactMatch, FapsKeepTheirOwnEntries) {
  write(kMpls, 1, 5, 0);
  write(kMpls, 1, 6, 1);
  EXPECT_EQ(bitsOf(*look(kMpls, 1, 0), 64, 17), 5U);
  EXPECT_EQ(bitsOf(*look(kMpls, 1, 1), 64, 17), 6U);
  EXPECT_EQ(write(kMpls, 1, 6, 2).status, SchanStatus::noResponse);
  EXPECT_FALSE(look(kMpls, 1, 2).has_value());
  EXPECT_TRUE(entries(kMpls, 2).empty());
}

TEST_F(ExactMatch, AResetTakesAllEntriesOfTheFap) {
  for (Database const& database : kDatabases)
    for (unsigned fap : {0U, 1U}) write(database, 9, 1, fap);
  chip->reset(0);
  EXPECT_FALSE(chip->programmed(0));
  for (Database const& database : kDatabases) {
    EXPECT_TRUE(entries(database, 0).empty());
    EXPECT_FALSE(look(database, 9, 0).has_value());
    EXPECT_EQ(entries(database, 1).size(), 1U);
  }
  write(kMpls, 9);
  EXPECT_EQ(entries(kMpls).size(), 1U);
}

TEST_F(ExactMatch, IsProgrammedByAnEntry) {
  write(kMpls, 9);
  EXPECT_TRUE(chip->programmed(0));
  EXPECT_FALSE(chip->programmed(1));
}

TEST_F(ExactMatch, LooksNothingUpInADatabaseThatThereIsNot) {
  write(kMpls, 9);
  EXPECT_FALSE(chip->lookUp(0, 64, 1, entryOf(kMpls, 9)).has_value());
  EXPECT_FALSE(chip->lookUp(0, 63, 0, entryOf(kMpls, 9)).has_value());
  EXPECT_TRUE(chip->lookUp(0, 64, 0, entryOf(kSVlan, 9, 123, 0)).has_value());
}

TEST_F(ExactMatch, CountsEntries) {
  write(kMpls, 1);
  del(kMpls, 1);
  bulk(kMpls, {entryOf(kMpls, 2), entryOf(kMpls, 3)});
  run(markOf(kMpls));
  Chip::ChipCounters const counters = chip->counters(0);
  EXPECT_EQ(counters.messages, 2U);
  EXPECT_EQ(counters.bulkTransfers, 1U);
  EXPECT_EQ(counters.passes, 1U);
  EXPECT_EQ(counters.bytes, 24U * 6);
  EXPECT_EQ(counters.refused, 0U);
}

struct Change {
  unsigned fap;
  std::uint32_t physicalTable;
  std::uint32_t tid;
  RowBytes before;
  RowBytes after;

  bool operator==(Change const&) const = default;
};

class EntryWatcher : public Chip::ChipObserver {
 public:
  explicit EntryWatcher(Chip::SoftwareChip const& chip) : chip_(chip) {}
  void rowWritten(Sluice::FapId, std::uint32_t, std::uint32_t, std::span<std::byte const>,
                  std::span<std::byte const>) override {
    ADD_FAILURE();
  }
  void entryWritten(Sluice::FapId fap, std::uint32_t physicalTable, std::uint32_t tid,
                    std::span<std::byte const> before, std::span<std::byte const> after) override {
    EXPECT_TRUE(chip_.programmed(fap));
    auto const& entry = before.empty() ? after : before;
    auto const held = chip_.lookUp(fap, physicalTable, tid, entry.first<24>());
    EXPECT_EQ(held.has_value(), !before.empty());
    changes.push_back(
        {fap.value(), physicalTable, tid, {before.begin(), before.end()}, {after.begin(), after.end()}});
  }
  void wasReset(Sluice::FapId) override {}

  std::vector<Change> changes;

 private:
  Chip::SoftwareChip const& chip_;
};

TEST_F(ExactMatch, AnObserverIsToldOfEveryEntryBeforeItChanges) {
  EntryWatcher watcher(*chip);
  chip->observerIs(&watcher);
  auto const bytes = [](std::uint64_t result, bool marked) {
    Entry entry = entryOf(kSVlan, 8, result);
    bitsAre(entry, 63, 1, marked ? 1 : 0);
    return RowBytes(entry.begin(), entry.end());
  };
  write(kSVlan, 8, 1, 1);
  write(kSVlan, 8, 2, 1);
  run(markOf(kSVlan), 1);
  run(sweepOf(kSVlan), 1);
  del(kSVlan, 8);
  EXPECT_EQ(watcher.changes, (std::vector<Change>{{1, 65, 1, {}, bytes(1, false)},
                                                  {1, 65, 1, bytes(1, false), bytes(2, false)},
                                                  {1, 65, 1, bytes(2, false), bytes(2, true)},
                                                  {1, 65, 1, bytes(2, true), {}}}));
}

}  // namespace
