// The faults of chips, shown by exact-match messages, bulk transfers of entries and passes.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "tests/platform/chip/ExactMatchSupport.h"

namespace {

using namespace TestSupport;
using Chip::ChipFault;
using Sluice::SchanResponse;
using Sluice::SchanStatus;
using Kind = ChipFault::Kind;

struct ExactMatchFaults : ExactMatchRig {
  std::vector<Entry> entriesFor(std::uint64_t keys) const {
    std::vector<Entry> made;
    for (std::uint64_t key = 0; key < keys; ++key) made.push_back(entryOf(kMpls, key, key + 1));
    return made;
  }
  std::vector<SchanStatus> writes(unsigned count) const {
    std::vector<SchanStatus> statuses;
    for (unsigned number = 0; number < count; ++number) statuses.push_back(write(kMpls, number % 500).status);
    return statuses;
  }
  std::size_t marked() const {
    auto const held = entries(kMpls);
    return static_cast<std::size_t>(std::count_if(
        held.begin(), held.end(), [](auto const& one) { return bitsOf(one.second, 63, 1) == 1; }));
  }
};

TEST_F(ExactMatchFaults, MessagesTransfersAndPassesCountAlike) {
  for (std::uint64_t nth : {1U, 2U, 3U}) {
    chip->reset(0);
    chip->faults().faultIs({.kind = Kind::refuse, .nth = nth, .status = SchanStatus::bucketFull});
    SchanResponse const one = write(kMpls, 50);
    SchanResponse const many = bulk(kMpls, entriesFor(10));
    SchanResponse const pass = run(markOf(kMpls));
    EXPECT_EQ(one.status, nth == 1 ? SchanStatus::bucketFull : SchanStatus::ok);
    EXPECT_EQ(many.status, nth == 2 ? SchanStatus::bucketFull : SchanStatus::ok);
    EXPECT_EQ(pass.status, nth == 3 ? SchanStatus::bucketFull : SchanStatus::ok);
    EXPECT_EQ(bulkAnswer(many).refused, nth == 2 ? 10U : 0U);
    EXPECT_EQ(has(kMpls, 50), nth != 1);
    EXPECT_EQ(has(kMpls, 3), nth != 2);
    EXPECT_EQ(marked() != 0, nth != 3);
  }
  EXPECT_EQ(chip->counters(0).refused, 3U);
}

TEST_F(ExactMatchFaults, RefusedRowsAreNoConcernOfDatabases) {
  chip->faults().refusedRowsAre(282, 0, ~0U, SchanStatus::badAddress);
  EXPECT_EQ(write(kMpls, 1).status, SchanStatus::ok);
  EXPECT_EQ(bulk(kMpls, entriesFor(3)).status, SchanStatus::ok);
  EXPECT_EQ(run(markOf(kMpls)).status, SchanStatus::ok);
}

TEST_F(ExactMatchFaults, ALostAnswerIsOfACommandThatTookEffect) {
  for (std::uint64_t nth : {1U, 2U, 3U}) chip->faults().faultIs({.kind = Kind::loseAnswer, .nth = nth});
  EXPECT_EQ(write(kMpls, 50).status, SchanStatus::noResponse);
  EXPECT_EQ(bulk(kMpls, entriesFor(10)).status, SchanStatus::noResponse);
  EXPECT_EQ(run(markOf(kMpls)).status, SchanStatus::noResponse);
  EXPECT_EQ(marked(), 11U);
}

TEST_F(ExactMatchFaults, ALateAnswerIsTheOneThatWasOwed) {
  chip->faults().faultIs({.kind = Kind::lateAnswer, .nth = 2, .after = 2});
  write(kMpls, 1);
  SchanResponse late;
  chip->flush(0, markOf(kMpls), late);
  write(kMpls, 2);
  EXPECT_EQ(late.status, SchanStatus::noResponse);
  bulk(kMpls, entriesFor(1));
  EXPECT_EQ(late.status, SchanStatus::ok);
  EXPECT_EQ(flushAnswer(late).entries, 1U);
}

TEST_F(ExactMatchFaults, AFlippedBitOfAMessageIsOfTheEntry) {
  chip->faults().faultIs({.kind = Kind::flipBit, .nth = 2, .bit = 24 * 8 + 65});
  write(kMpls, 1, 0);
  run(markOf(kMpls));
  write(kMpls, 2, 0);
  EXPECT_EQ(resultOf(kMpls, 1), 0U);
  EXPECT_EQ(resultOf(kMpls, 2), 2U);
}

TEST_F(ExactMatchFaults, AFlippedBitMayMakeAnotherKeyOrAnotherDatabase) {
  chip->faults().faultIs({.kind = Kind::flipBit, .nth = 1, .bit = 10});
  write(kMpls, 0);
  EXPECT_TRUE(has(kMpls, 2));
  chip->faults().faultIs({.kind = Kind::flipBit, .nth = 1, .bit = 170});
  EXPECT_EQ(write(kMpls, 0).status, SchanStatus::badDatabase);
  EXPECT_FALSE(has(kMpls, 0));
}

TEST_F(ExactMatchFaults, AFlippedBitOfATransferIsOfTheEntryInTheMiddle) {
  chip->faults().faultIs({.kind = Kind::flipBit, .bit = 64});
  bulk(kMpls, entriesFor(5));
  for (std::uint64_t key = 0; key < 5; ++key)
    EXPECT_EQ(resultOf(kMpls, key), key == 2 ? (key + 1) ^ 1 : key + 1);
}

struct EntryCounter : Chip::ChipObserver {
  void rowWritten(Sluice::FapId, std::uint32_t, std::uint32_t, std::span<std::byte const>,
                  std::span<std::byte const>) override {}
  void entryWritten(Sluice::FapId, std::uint32_t, std::uint32_t, std::span<std::byte const>,
                    std::span<std::byte const>) override {
    ++entries;
  }
  void wasReset(Sluice::FapId) override { entriesAtReset = entries; }
  unsigned entries = 0;
  unsigned entriesAtReset = 0;
};

TEST_F(ExactMatchFaults, AResetInATransferComesAfterHalfOfTheEntries) {
  EntryCounter counter;
  chip->observerIs(&counter);
  chip->faults().faultIs({.kind = Kind::resetInTransfer});
  write(kSVlan, 1);
  EXPECT_EQ(bulk(kMpls, entriesFor(9)).status, SchanStatus::noResponse);
  EXPECT_EQ(counter.entriesAtReset, 1U + 4);
  EXPECT_EQ(chip->resets(0), 1U);
  EXPECT_FALSE(chip->programmed(0));
  for (Database const& database : kDatabases) EXPECT_TRUE(entries(database).empty());
}

TEST_F(ExactMatchFaults, APassBreaksOffHalfWayAndAnswersTheStatus) {
  bulk(kMpls, entriesFor(11));
  chip->faults().faultIs({.kind = Kind::failPass, .nth = 2, .status = SchanStatus::badDatabase});
  write(kMpls, 0);
  EXPECT_EQ(run(markOf(kSrv6)).status, SchanStatus::ok);
  EXPECT_EQ(run(markOf(kMpls)).status, SchanStatus::badDatabase);
  EXPECT_EQ(marked(), 5U);
  EXPECT_EQ(run(markOf(kMpls)).status, SchanStatus::ok);
  EXPECT_EQ(marked(), 11U);
}

TEST_F(ExactMatchFaults, APassMayBreakOffWithoutAnAnswer) {
  bulk(kMpls, entriesFor(10));
  chip->faults().faultIs({.kind = Kind::failPass, .status = SchanStatus::noResponse});
  EXPECT_EQ(run(passOf(kMpls, Action::remove)).status, SchanStatus::noResponse);
  EXPECT_EQ(entries(kMpls).size(), 5U);
}

TEST_F(ExactMatchFaults, WhatIsNotAnsweredLeavesTheResponseAsItIs) {
  chip->faults().faultIs({.kind = Kind::refuse, .status = SchanStatus::noResponse});
  SchanResponse const answer = bulk(kMpls, entriesFor(10));
  EXPECT_EQ(answer.status, SchanStatus::noResponse);
  EXPECT_EQ(bulkAnswer(answer).refused, 0U);
  EXPECT_TRUE(entries(kMpls).empty());
}

TEST_F(ExactMatchFaults, ASlowPassPausesEverySoManyEntries) {
  bulk(kMpls, entriesFor(100));
  chip->faults().faultIs({.kind = Kind::slowPass, .after = 2000, .every = 10});
  auto const timed = [this] {
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(flushAnswer(run(markOf(kMpls))).entries, 100U);
    return std::chrono::steady_clock::now() - begin;
  };
  EXPECT_GE(timed(), std::chrono::milliseconds(20));
  EXPECT_LT(timed(), std::chrono::milliseconds(20));
}

TEST_F(ExactMatchFaults, AKeyIsRefusedEachTimeAndOnEveryFap) {
  chip->faults().refusedKeyIs(64, Chip::ExactMatchEntry::of(entryOf(kMpls, 5).data()),
                              SchanStatus::bucketFull);
  for (unsigned fap : {0U, 1U}) {
    EXPECT_EQ(write(kMpls, 4, 1, fap).status, SchanStatus::ok);
    EXPECT_EQ(write(kMpls, 5, 1, fap).status, SchanStatus::bucketFull);
  }
  EXPECT_EQ(write(kSrv6, 5).status, SchanStatus::ok);
  SchanResponse const answer = bulk(kMpls, entriesFor(7));
  EXPECT_EQ(answer.status, SchanStatus::bucketFull);
  EXPECT_EQ(bulkAnswer(answer).refused, 1U);
  EXPECT_EQ(bulkAnswer(answer).first, 5U);
  EXPECT_FALSE(has(kMpls, 5));
  EXPECT_EQ(entries(kMpls).size(), 6U);
}

TEST_F(ExactMatchFaults, RandomLossesDependOnTheSeedAlone) {
  auto const lost = [this](std::uint64_t seed) {
    chip->faults().randomLossIs(seed, 0.25);
    return writes(1000);
  };
  auto const first = lost(1);
  auto const count = std::count(first.begin(), first.end(), SchanStatus::noResponse);
  EXPECT_GT(count, 150);
  EXPECT_LT(count, 350);
  EXPECT_NE(lost(2), first);
  EXPECT_EQ(lost(1), first);
  chip->faults().faultsDel();
  EXPECT_EQ(entries(kMpls).size(), 500U);
}

TEST_F(ExactMatchFaults, RandomlyLateAnswersDependOnTheSeedAlone) {
  // Which command each answer came with, counted from its own.
  auto const late = [this](std::uint64_t seed) {
    chip->faults().randomLateIs(seed, 0.3, 4);
    std::vector<SchanResponse> answers(500);
    std::vector<unsigned> came(answers.size(), 99);
    for (unsigned number = 0; number < answers.size(); ++number) {
      chip->message(0, messageOf(kMpls, entryOf(kMpls, number % 100)), answers[number]);
      for (unsigned before = number < 10 ? 0 : number - 10; before <= number; ++before)
        if (came[before] == 99 && answers[before].status == SchanStatus::ok) came[before] = number - before;
    }
    chip->forget(0);
    came.resize(490);
    return came;
  };
  auto const first = late(1);
  for (unsigned delay = 1; delay <= 4; ++delay) EXPECT_GT(std::count(first.begin(), first.end(), delay), 15);
  auto const atOnce = std::count(first.begin(), first.end(), 0U);
  EXPECT_GT(atOnce, 490 / 2);
  EXPECT_LT(atOnce, 490 * 9 / 10);
  EXPECT_EQ(*std::max_element(first.begin(), first.end()), 4U);
  EXPECT_NE(late(2), first);
  EXPECT_EQ(late(1), first);
}

TEST_F(ExactMatchFaults, AreOverWhenTheyAreTakenBack) {
  chip->faults().refusedKeyIs(64, Chip::ExactMatchEntry::of(entryOf(kMpls, 0).data()),
                              SchanStatus::bucketFull);
  chip->faults().randomLossIs(1, 1.0);
  chip->faults().randomLateIs(1, 1.0, 5);
  chip->faults().faultIs({.kind = Kind::failPass});
  EXPECT_EQ(write(kMpls, 1).status, SchanStatus::noResponse);
  chip->faults().faultsDel();
  EXPECT_EQ(write(kMpls, 0).status, SchanStatus::ok);
  EXPECT_EQ(run(markOf(kMpls)).status, SchanStatus::ok);
}

}  // namespace
