#include "platform/chip/ChipFaults.h"

#include <gtest/gtest.h>

#include "platform/chip/SchanChannel.h"
#include "tests/platform/chip/ChipSupport.h"

namespace {

using namespace TestSupport;
using Chip::ChipFault;
using Sluice::SchanResponse;
using Sluice::SchanStatus;
using Kind = ChipFault::Kind;

struct ChipFaults : testing::Test {
  Dovel::Ptr<Chip::SoftwareChip> const chip = chipOf(2);
  Dma const dma;
  Dovel::Ptr<Chip::SchanChannel> const channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);

  ChipFaults() { chip->dmaPoolIs(dma.pool()); }

  SchanStatus write(unsigned content, unsigned row = 0, unsigned fap = 0) {
    return answerTo(*chip, writeOf(after(kAds, row), content), fap).status;
  }
  std::vector<SchanStatus> writes(unsigned count) {
    std::vector<SchanStatus> statuses;
    for (unsigned number = 0; number < count; ++number) statuses.push_back(write(number, number));
    return statuses;
  }
};

TEST_F(ChipFaults, TheNthCommandIsRefusedAndDoesNothing) {
  chip->faults().faultIs({.kind = Kind::refuse, .fap = 0, .nth = 2, .status = SchanStatus::bucketFull});
  EXPECT_EQ(write(1, 0, 1), SchanStatus::ok);
  EXPECT_EQ(write(1, 1, 1), SchanStatus::ok);
  EXPECT_EQ(writes(3), (std::vector{SchanStatus::ok, SchanStatus::bucketFull, SchanStatus::ok}));
  EXPECT_EQ(rowIn(*chip, after(kAds, 1)), RowBytes(16));
  EXPECT_EQ(rowIn(*chip, after(kAds, 2)), rowOf(kAds, 2));
  EXPECT_EQ(chip->counters(0).refused, 1U);
}

TEST_F(ChipFaults, MessagesAndBulkTransfersCountAlike) {
  chip->faults().faultIs({.kind = Kind::refuse, .nth = 2});
  EXPECT_EQ(answerTo(*chip, readOf(kAds)).status, SchanStatus::ok);
  EXPECT_EQ(answerTo(*chip, dma.write(kAds, 1)).status, SchanStatus::badAddress);
  EXPECT_FALSE(chip->programmed(0));
}

TEST_F(ChipFaults, RowsOfARangeAreRefusedEachTimeAndOnEveryFap) {
  chip->faults().refusedRowsAre(282, kAds.row + 2, 2, SchanStatus::badDatabase);
  for (unsigned fap : {0U, 1U}) {
    EXPECT_EQ(write(1, 1, fap), SchanStatus::ok);
    EXPECT_EQ(write(1, 2, fap), SchanStatus::badDatabase);
    EXPECT_EQ(write(1, 3, fap), SchanStatus::badDatabase);
    EXPECT_EQ(write(1, 4, fap), SchanStatus::ok);
  }
  EXPECT_EQ(write(1, 3), SchanStatus::badDatabase);
  EXPECT_EQ(answerTo(*chip, dma.write(kAds, 2)).status, SchanStatus::ok);
  EXPECT_EQ(answerTo(*chip, dma.write(kAds, 3)).status, SchanStatus::badDatabase);
  EXPECT_EQ(answerTo(*chip, dma.read(after(kAds, 3), 9)).status, SchanStatus::badDatabase);
  EXPECT_EQ(answerTo(*chip, writeOf({144, kSniff.row, 68}, 1)).status, SchanStatus::ok);
}

TEST_F(ChipFaults, ALostAnswerIsOfACommandThatTookEffect) {
  chip->faults().faultIs({.kind = Kind::loseAnswer, .nth = 2});
  EXPECT_EQ(writes(3), (std::vector{SchanStatus::ok, SchanStatus::noResponse, SchanStatus::ok}));
  EXPECT_EQ(rowIn(*chip, after(kAds, 1)), rowOf(kAds, 1));
  EXPECT_EQ(chip->counters(0).refused, 0U);
}

TEST_F(ChipFaults, ALateAnswerComesSoManyCommandsLater) {
  chip->faults().faultIs({.kind = Kind::lateAnswer, .nth = 1, .after = 2});
  SchanResponse late;
  chip->message(0, readOf(kBuckets), late);
  EXPECT_EQ(late.status, SchanStatus::noResponse);
  write(0, 0, 1);
  write(0);
  EXPECT_EQ(late.status, SchanStatus::noResponse);
  answerTo(*chip, dma.write(kAds, 1));
  EXPECT_EQ(late.status, SchanStatus::badAddress);
  late.status = SchanStatus::ok;
  writes(5);
  EXPECT_EQ(late.status, SchanStatus::ok);
}

TEST_F(ChipFaults, ALateAnswerGoesToItsOwnResponseThroughTheChannel) {
  auto const late = cmd(fapsOf({0}), readOf(kTcam));
  std::vector<Dovel::Ptr<TestCmd>> others;
  auto const list = listOf({late});
  for (unsigned number = 0; number < 6; ++number) {
    others.push_back(cmd(fapsOf({0}), readOf(after(kAds, number))));
    write(number + 1, number, 0);
    list->cmdEnq(others.back());
  }
  chip->faults().faultIs({.kind = Kind::lateAnswer, .nth = 1, .after = 3});
  EXPECT_EQ(channel->send(list).unanswered, 1U);
  EXPECT_EQ(late->status(), SchanStatus::noResponse);
  for (unsigned number = 0; number < 6; ++number)
    EXPECT_EQ(std::memcmp(&others[number]->answers[2], rowOf(kAds, number + 1).data(), 16), 0) << number;
  EXPECT_EQ(channel->slots().aside().size(), 1U);
  channel->send(listOf({}));
  EXPECT_EQ(channel->lateResponses(), 1U);
  EXPECT_TRUE(channel->slots().aside().empty());
}

TEST_F(ChipFaults, AResetDropsAnswersThatAreOutstanding) {
  chip->faults().faultIs({.kind = Kind::lateAnswer, .nth = 1, .after = 1});
  SchanResponse late;
  chip->message(0, writeOf(kAds, 1), late);
  chip->reset(0);
  writes(3);
  EXPECT_EQ(late.status, SchanStatus::noResponse);
}

TEST_F(ChipFaults, WhatIsToBeForgottenIsNeverAnsweredButDone) {
  chip->faults().faultIs({.kind = Kind::lateAnswer, .nth = 1, .after = 1});
  SchanResponse late;
  chip->message(0, writeOf(kAds, 1), late);
  chip->forget(0);
  answerTo(*chip, readOf(kTcam));
  EXPECT_EQ(late.status, SchanStatus::noResponse);
  EXPECT_EQ(rowIn(*chip, kAds), rowOf(kAds, 1));
}

TEST_F(ChipFaults, AChannelMayGoWhileAnswersAreOutstanding) {
  chip->faults().faultIs({.kind = Kind::lateAnswer, .nth = 1, .after = 2});
  Dovel::ptrIsImpl<Chip::SchanChannel>(chip)->send(listOf({cmd(fapsOf({0}), writeOf(kAds, 1))}));
  writes(5);
}

TEST_F(ChipFaults, AFlippedBitIsOfTheNthWrite) {
  chip->faults().faultIs({.kind = Kind::flipBit, .nth = 2, .bit = 13});
  write(1, 0);
  answerTo(*chip, readOf(kAds));
  EXPECT_EQ(write(1, 1), SchanStatus::ok);
  write(1, 2);
  RowBytes flipped = rowOf(kAds, 1);
  EXPECT_EQ(rowIn(*chip, kAds), flipped);
  EXPECT_EQ(rowIn(*chip, after(kAds, 2)), flipped);
  flipped[1] ^= std::byte{1 << 5};
  EXPECT_EQ(rowIn(*chip, after(kAds, 1)), flipped);
}

TEST_F(ChipFaults, AFlippedBitOfABulkTransferIsOneOfTheRowInTheMiddle) {
  chip->faults().faultIs({.kind = Kind::flipBit, .bit = 16 * 8 + 1});
  dma.fill(kAds, 3, 1);
  EXPECT_EQ(answerTo(*chip, dma.write(kAds, 3)).status, SchanStatus::ok);
  EXPECT_EQ(rowIn(*chip, kAds), rowOf(kAds, 1));
  RowBytes flipped = rowOf(kAds, 2);
  EXPECT_EQ(dma.row(kAds, 1), flipped);
  flipped[0] ^= std::byte{2};
  EXPECT_EQ(rowIn(*chip, after(kAds, 1)), flipped);
  EXPECT_EQ(rowIn(*chip, after(kAds, 2)), rowOf(kAds, 3));
}

struct RowCounter : Chip::ChipObserver {
  void rowWritten(Sluice::FapId, std::uint32_t, std::uint32_t, std::span<std::byte const>,
                  std::span<std::byte const>) override {
    ++rows;
  }
  void wasReset(Sluice::FapId) override { rowsAtReset = rows; }
  unsigned rows = 0;
  unsigned rowsAtReset = 0;
};

TEST_F(ChipFaults, AResetInATransferLeavesTheFapBlankAndTheCommandUnanswered) {
  RowCounter counter;
  chip->observerIs(&counter);
  chip->faults().faultIs({.kind = Kind::resetInTransfer, .nth = 2});
  write(1, 500);
  dma.fill(kAds, 10, 1);
  auto const cmds = {cmd(fapsOf({0, 1}), std::vector{dma.write(kAds, 10)}),
                     cmd(fapsOf({0, 1}), std::vector{dma.write(after(kAds, 20), 10)})};
  Sluice::SendOutcome const outcome = channel->send(listOf(cmds));
  EXPECT_EQ(outcome.unanswered, 1U);
  EXPECT_EQ(outcome.failed, fapsOf({0}));
  EXPECT_EQ(counter.rowsAtReset, 1U + 10 + 10 + 5);
  EXPECT_FALSE(chip->programmed(0));
  EXPECT_EQ(chip->resets(0), 1U);
  for (unsigned row : {0U, 20U, 24U, 500U}) EXPECT_EQ(rowIn(*chip, after(kAds, row)), RowBytes(16));
  EXPECT_EQ(rowIn(*chip, after(kAds, 29), 1), rowOf(kAds, 10));
  channel->send(listOf({}));
  EXPECT_TRUE(channel->slots().aside().empty());
}

TEST_F(ChipFaults, RandomRefusalsDependOnTheSeedAlone) {
  auto const run = [this](std::uint64_t seed) {
    chip->faults().randomRefusalIs(seed, 0.25, SchanStatus::bucketFull);
    return writes(1000);
  };
  auto const first = run(1);
  auto const refused = std::count(first.begin(), first.end(), SchanStatus::bucketFull);
  EXPECT_GT(refused, 150);
  EXPECT_LT(refused, 350);
  EXPECT_EQ(std::count(first.begin(), first.end(), SchanStatus::ok), 1000 - refused);
  EXPECT_NE(run(2), first);
  EXPECT_EQ(run(1), first);
}

TEST_F(ChipFaults, AreOverWhenTheyAreTakenBack) {
  chip->faults().faultIs({.kind = Kind::refuse});
  chip->faults().refusedRowsAre(282, kAds.row, 9, SchanStatus::badAddress);
  chip->faults().randomRefusalIs(1, 1.0, SchanStatus::badAddress);
  EXPECT_EQ(write(1), SchanStatus::badAddress);
  chip->faults().faultsDel();
  EXPECT_EQ(writes(2), (std::vector{SchanStatus::ok, SchanStatus::ok}));
}

}  // namespace
