#include "platform/chip/SchanChannel.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/TraceChannel.h"
#include "tests/platform/chip/ChipSupport.h"

namespace {

using namespace TestSupport;
using Sluice::BulkTransfer;
using Sluice::SchanResponse;
using Sluice::SchanStatus;
using Sluice::SendOutcome;
using testing::ElementsAre;
using testing::HasSubstr;

// Writes down what it is given, and answers as the test says.
class Script : public Dovel::Tracked<Script, Chip::ChipAccess> {
 public:
  bool present(Sluice::FapId fap) const override { return there.fapId(fap); }
  void message(Sluice::FapId fap, Sluice::schan_xmsg_user_ const& message, SchanResponse& response) override {
    given.push_back(fmt::format("{}:{:#x}", fap, message.address));
    lastMessage = message;
    if (message.responseRequested != 0) answer(response);
  }
  void bulk(Sluice::FapId fap, BulkTransfer const& transfer, SchanResponse& response) override {
    given.push_back(fmt::format("{}:{}x{}", fap, transfer.row, transfer.rows));
    answer(response);
  }
  void flush(Sluice::FapId fap, Sluice::FlushPass const& pass, SchanResponse& response) override {
    given.push_back(fmt::format("{}:pass {}/{}", fap, pass.physicalTableId, pass.tid));
    answer(response);
  }
  bool programmed(Sluice::FapId) const override { return true; }
  void reset(Sluice::FapId) override { ++resetCount; }
  std::uint64_t resets(Sluice::FapId) const override { return resetCount; }
  void forget(Sluice::FapId fap) override { forgotten.push_back(fap.value()); }

  std::function<void(SchanResponse&)> answer = [](SchanResponse& response) {
    responseIs(response, {.status = SchanStatus::ok});
  };
  Sluice::Fapmask there = fapsOf({0, 1, 2, 5, 127});
  std::uint64_t resetCount = 0;
  std::vector<std::string> given;
  Sluice::schan_xmsg_user_ lastMessage{};
  std::vector<unsigned> forgotten;
};

struct SchanChannel : testing::Test {
  Dovel::Ptr<Script> const chip = Dovel::ptrIsImpl<Script>();
  Dovel::Ptr<Chip::SchanChannel> channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);

  SendOutcome send(std::initializer_list<Dovel::Ptr<TestCmd>> cmds) { return channel->send(listOf(cmds)); }
  void answersAre(std::vector<SchanStatus> const& statuses) {
    chip->answer = [statuses, next = std::size_t{0}](SchanResponse& response) mutable {
      SchanStatus const status = next < statuses.size() ? statuses[next++] : SchanStatus::ok;
      if (status != SchanStatus::noResponse) responseIs(response, {.status = status, .image = {}});
    };
  }
  // Keeps the response, to be answered by the test.
  void answerIsHeld(SchanResponse*& held) {
    chip->answer = [&held](SchanResponse& response) { held = &response; };
  }
};

TEST_F(SchanChannel, OfNoListIsNothingToDo) {
  SendOutcome const outcome = channel->send(nullptr);
  EXPECT_TRUE(outcome.ok());
  EXPECT_EQ(outcome.commands, 0U);
}

TEST_F(SchanChannel, EmptiesTheListAndLetsGoOfItsCommands) {
  auto const live =
      TestCmd::memAllocationTracker_ == nullptr ? 0 : TestCmd::memAllocationTracker_->liveCount();
  auto const list = listOf({cmd(fapsOf({0}), readOf(kAds)), cmd(fapsOf({0}), readOf(kTcam))});
  EXPECT_EQ(channel->send(list).commands, 2U);
  EXPECT_TRUE(list->empty());
  EXPECT_EQ(TestCmd::memAllocationTracker_->liveCount(), live);
}

TEST_F(SchanChannel, DropsACommandBeforeItRunsTheNext) {
  unsigned liveAtSecond = 0;
  auto const list = listOf({cmd(fapsOf({0}), readOf(kAds)), cmd(fapsOf({0}), readOf(kTcam))});
  auto const live = TestCmd::memAllocationTracker_->liveCount();
  chip->answer = [&](SchanResponse& response) {
    liveAtSecond = static_cast<unsigned>(TestCmd::memAllocationTracker_->liveCount());
    responseIs(response, {.status = SchanStatus::ok});
  };
  channel->send(list);
  EXPECT_EQ(liveAtSecond, live - 1);
}

TEST_F(SchanChannel, RunsEachCommandOnItsFapsInAscendingOrder) {
  send({cmd(fapsOf({127, 0, 5}), readOf(kAds)), cmd(fapsOf({1, 0}), readOf(kTcam))});
  EXPECT_THAT(chip->given,
              ElementsAre("0:0x3130000", "5:0x3130000", "127:0x3130000", "0:0x3100000", "1:0x3100000"));
}

TEST_F(SchanChannel, RunsThePassOfACommandOnEachFapAndAddsUpWhatTheyFlushed) {
  auto const pass = cmd(fapsOf({0, 2}), Sluice::FlushPass{.physicalTableId = 64, .tid = 62});
  chip->answer = [](SchanResponse& response) {
    responseIs(response, {.status = SchanStatus::ok, .image = {7, 0}});
  };
  SendOutcome const outcome = send({pass});
  EXPECT_THAT(chip->given, ElementsAre("0:pass 64/62", "2:pass 64/62"));
  EXPECT_EQ(outcome.flushPasses, 2U);
  EXPECT_EQ(outcome.flushed, 14U);
  EXPECT_EQ(outcome.bulkCommands, 0U);
}

TEST_F(SchanChannel, CountsNothingAsFlushedByAPassThatIsRefused) {
  answersAre({SchanStatus::badDatabase, SchanStatus::noResponse});
  SendOutcome const outcome = send({cmd(fapsOf({0, 1}), Sluice::FlushPass{})});
  EXPECT_EQ(outcome.status, SchanStatus::badDatabase);
  EXPECT_EQ(outcome.failed, fapsOf({0, 1}));
  EXPECT_EQ(outcome.flushPasses, 0U);
}

TEST_F(SchanChannel, PutsTheAnswersIntoTheBlockOfACommandThatHasOne) {
  SchanResponse block[3];
  auto const one = cmd(fapsOf({1, 5, 9}), readOf(kAds));
  one->block = block;
  answersAre({SchanStatus::ok, SchanStatus::bucketFull});
  send({one});
  EXPECT_EQ(block[0].status, SchanStatus::ok);
  EXPECT_EQ(block[1].status, SchanStatus::bucketFull);
  EXPECT_EQ(block[2].status, SchanStatus::noResponse);  // no chip
}

TEST_F(SchanChannel, FillsAMessageOnceForAllFaps) {
  auto const one = cmd(fapsOf({0, 1, 2}), readOf(kAds));
  send({one});
  EXPECT_EQ(one->fills, 1U);
  EXPECT_EQ(one->reads, 1U);
}

TEST_F(SchanChannel, AShortMessageIsFollowedByZeroes) {
  auto const wide = message(Sluice::SchanOpcode::memoryWrite, kBuckets, rowOf(kBuckets, 1));
  auto const half = cmd(fapsOf({0}), wide);
  half->messageWords = 16;
  send({cmd(fapsOf({0}), wide), half});
  EXPECT_EQ(std::memcmp(&chip->lastMessage, &wide, 64), 0);
  EXPECT_NE(wide.data[6], 0U);
  for (unsigned word = 6; word < 22; ++word) EXPECT_EQ(chip->lastMessage.data[word], 0U);
}

TEST_F(SchanChannel, RunsTheBulkTransfersOfEachFapInTheirOrder) {
  BulkTransfer const first{.row = 1, .rows = 10, .rowBytes = 4};
  BulkTransfer const second{.row = 2, .rows = 20, .rowBytes = 4};
  auto const one = cmd(fapsOf({0, 1}), std::vector{first, second});
  SendOutcome const outcome = send({one});
  EXPECT_THAT(chip->given, ElementsAre("0:1x10", "0:2x20", "1:1x10", "1:2x20"));
  EXPECT_EQ(one->fills, 0U);
  EXPECT_EQ(outcome.commands, 1U);
  EXPECT_EQ(outcome.bulkCommands, 1U);
  EXPECT_EQ(outcome.bulkBytes, 2U * (40 + 80));
  EXPECT_EQ(one->answers.size(), 16U);
}

TEST_F(SchanChannel, GivesACommandTheAnswersOfItsFapsInAscendingOrder) {
  chip->answer = [number = 0U](SchanResponse& response) mutable {
    ++number;
    responseIs(response, {.status = SchanStatus::ok, .image = {number, 0, 0, 0, 0, number * 10}});
  };
  auto const one = cmd(fapsOf({5, 1, 2}), readOf(kAds));
  send({one});
  EXPECT_EQ(one->answers, (Words{0, 0, 1, 0, 0, 0, 0, 10, 0, 0, 2, 0, 0, 0, 0, 20, 0, 0, 3, 0, 0, 0, 0, 30}));
}

TEST_F(SchanChannel, ACommandThatReadsNoAnswersIsGivenNone) {
  answersAre({SchanStatus::bucketFull});
  auto const one = cmd(fapsOf({0}), readOf(kAds));
  one->answerWords = 0;
  EXPECT_EQ(send({one}).refused, 1U);
  EXPECT_EQ(one->reads, 0U);
}

TEST_F(SchanChannel, OfAMessageThatAsksForNoAnswerNoneIsMissed) {
  Sluice::schan_xmsg_user_ message = readOf(kAds);
  message.responseRequested = 0;
  auto const one = cmd(fapsOf({0, 9}), message);
  one->answerWords = 0;
  SendOutcome const outcome = send({one});
  EXPECT_TRUE(outcome.ok());
  EXPECT_EQ(outcome.commands, 1U);
  EXPECT_EQ(channel->noResponse(), 0U);
  EXPECT_TRUE(channel->slots().aside().empty());
}

TEST_F(SchanChannel, ACommandThatAnyFapRefusedIsRefused) {
  answersAre({SchanStatus::ok, SchanStatus::noResponse, SchanStatus::bucketFull});
  auto const one = cmd(fapsOf({0, 1, 2}), readOf(kAds));
  SendOutcome const outcome = send({one, cmd(fapsOf({0}), readOf(kAds))});
  EXPECT_EQ(outcome.commands, 2U);
  EXPECT_EQ(outcome.refused, 1U);
  EXPECT_EQ(outcome.unanswered, 0U);
  EXPECT_EQ(outcome.status, SchanStatus::noResponse);
  EXPECT_EQ(outcome.failed, fapsOf({1, 2}));
  EXPECT_EQ(one->status(0), SchanStatus::ok);
  EXPECT_EQ(one->status(1), SchanStatus::noResponse);
  EXPECT_EQ(one->status(2), SchanStatus::bucketFull);
}

TEST_F(SchanChannel, TellsTheFirstStatusOfAllThatFailed) {
  answersAre({SchanStatus::ok, SchanStatus::badDatabase, SchanStatus::badAddress});
  SendOutcome const outcome =
      send({cmd(fapsOf({0}), readOf(kAds)), cmd(fapsOf({1}), readOf(kAds)), cmd(fapsOf({2}), readOf(kAds))});
  EXPECT_EQ(outcome.refused, 2U);
  EXPECT_EQ(outcome.status, SchanStatus::badDatabase);
  EXPECT_EQ(outcome.failed, fapsOf({1, 2}));
}

TEST_F(SchanChannel, TheAnswerOfSeveralTransfersIsTheFirstThatIsNotOk) {
  answersAre({SchanStatus::ok, SchanStatus::badAddress, SchanStatus::bucketFull});
  auto const one = cmd(fapsOf({0}), std::vector<BulkTransfer>(4));
  EXPECT_EQ(send({one}).refused, 1U);
  EXPECT_EQ(one->status(), SchanStatus::badAddress);
  EXPECT_EQ(chip->given.size(), 4U);
}

TEST_F(SchanChannel, AFapWithoutAChipIsUnansweredAndTheOthersAreServed) {
  auto const one = cmd(fapsOf({3, 5}), readOf(kAds));
  SendOutcome const outcome = send({one, cmd(fapsOf({6}), std::vector<BulkTransfer>(3))});
  EXPECT_EQ(outcome.unanswered, 2U);
  EXPECT_EQ(outcome.failed, fapsOf({3, 6}));
  EXPECT_EQ(outcome.bulkBytes, 0U);
  EXPECT_EQ(one->status(0), SchanStatus::noResponse);
  EXPECT_EQ(one->status(1), SchanStatus::ok);
  EXPECT_THAT(chip->given, ElementsAre("5:0x3130000"));
  EXPECT_EQ(channel->noResponse(), 2U);
  EXPECT_TRUE(channel->slots().aside().empty());
}

TEST_F(SchanChannel, CountsMissingAnswersAndLateOnes) {
  SchanResponse* held = nullptr;
  answerIsHeld(held);
  EXPECT_EQ(send({cmd(fapsOf({0}), readOf(kAds))}).unanswered, 1U);
  EXPECT_EQ(channel->noResponse(), 1U);
  EXPECT_EQ(channel->lateResponses(), 0U);
  responseIs(*held, {.status = SchanStatus::ok});
  send({});
  EXPECT_EQ(channel->noResponse(), 1U);
  EXPECT_EQ(channel->lateResponses(), 1U);
}

TEST_F(SchanChannel, NoCommandIsGivenTheResponseOfOneThatIsUnanswered) {
  SchanResponse* held = nullptr;
  answerIsHeld(held);
  send({cmd(fapsOf({0}), readOf(kAds))});
  SchanResponse* const owed = held;
  for (unsigned number = 0; number < 500; ++number) {
    send({cmd(fapsOf({0}), readOf(kAds))});
    ASSERT_NE(held, owed);
    responseIs(*held, {.status = SchanStatus::ok});
  }
  EXPECT_FALSE(isAnswered(*owed));
}

TEST_F(SchanChannel, ALateAnswerReachesNobody) {
  SchanResponse* held = nullptr;
  answerIsHeld(held);
  auto const first = cmd(fapsOf({0}), readOf(kAds));
  auto const second = cmd(fapsOf({0}), readOf(kAds));
  send({first});
  chip->answer = [&](SchanResponse& response) {
    responseIs(response, {.status = SchanStatus::ok, .image = {2}});
    responseIs(*held, {.status = SchanStatus::bucketFull, .image = {1}});
  };
  EXPECT_TRUE(send({second}).ok());
  EXPECT_EQ(first->status(), SchanStatus::noResponse);
  EXPECT_EQ(second->answers, (Words{0, 0, 2, 0, 0, 0, 0, 0}));
}

TEST_F(SchanChannel, AResetOfTheFapEndsTheWaitForItsAnswer) {
  answersAre({SchanStatus::noResponse});
  send({cmd(fapsOf({0}), readOf(kAds))});
  EXPECT_EQ(channel->slots().aside().size(), 1U);
  chip->reset(0);
  send({});
  EXPECT_TRUE(channel->slots().aside().empty());
  EXPECT_EQ(channel->lateResponses(), 0U);
}

TEST_F(SchanChannel, AResetInTheMiddleOfACommandEndsTheWaitToo) {
  chip->answer = [this](SchanResponse&) { ++chip->resetCount; };
  send({cmd(fapsOf({0}), readOf(kAds))});
  send({});
  EXPECT_TRUE(channel->slots().aside().empty());
}

TEST_F(SchanChannel, HasChipsForgetWhatTheyOweItBeforeItsMemoryGoes) {
  answersAre({SchanStatus::ok, SchanStatus::noResponse});
  send({cmd(fapsOf({1, 2}), readOf(kAds))});
  channel = nullptr;
  EXPECT_THAT(chip->forgotten, ElementsAre(2));
}

TEST_F(SchanChannel, TakesNoMoreMemoryOnceItHasRun) {
  auto const one = [] { return cmd(fapsOf({0, 1, 2}), readOf(kAds)); };
  send({one()});
  std::size_t const size = channel->slots().size();
  for (unsigned number = 0; number < 1000; ++number) send({one()});
  EXPECT_EQ(channel->slots().size(), size);
}

TEST_F(SchanChannel, TracesWhatFailed) {
  answersAre({SchanStatus::badAddress, SchanStatus::noResponse, SchanStatus::noResponse});
  Dovel::Trace::rulesIs("SchanChannel/1");
  testing::internal::CaptureStderr();
  send({cmd(fapsOf({0, 1}), readOf(kAds)), cmd(fapsOf({2}), std::vector{BulkTransfer{.block = 7}})});
  std::string const lines = testing::internal::GetCapturedStderr();
  Dovel::Trace::rulesIs("SchanChannel/0");
  EXPECT_THAT(lines, HasSubstr("refused of FAP 0: status 0x2, opcode 7 block 282 address 0x3130000"));
  EXPECT_THAT(lines, HasSubstr("No response of FAP 1: status 0xffffffff, opcode 7"));
  EXPECT_THAT(lines, HasSubstr("No response of FAP 2: status 0xffffffff, 1 bulk transfers from block 7"));
}

TEST_F(SchanChannel, AMaskOfRawMembersThatAreNoFapsIsRefused) {
  Sluice::Fapmask const raw(Sluice::Fapmask::Words{1, 0, 2, 0});
  EXPECT_THROW(send({Dovel::ptrIsImpl<TestCmd>(raw, readOf(kAds))}), Dovel::RangeException);
  EXPECT_THAT(chip->given, ElementsAre("0:0x3130000"));
  EXPECT_TRUE(send({cmd(fapsOf({0}), readOf(kAds))}).ok());
}

TEST(SchanChannelDeathTest, AMessageThatNoChipTakesEndsTheProcess) {
  auto const channel = Dovel::ptrIsImpl<Chip::SchanChannel>(Dovel::ptrIsImpl<Script>());
  auto const one = cmd(fapsOf({0}), readOf(kAds));
  one->messageWords = 33;
  EXPECT_DEATH(channel->send(listOf({one})), "a message of 33 words, where 32 is the most");
  EXPECT_DEATH(Dovel::ptrIsImpl<Chip::SchanChannel>(nullptr), "a channel to no chip");
}

TEST(SchanChannelToSoftwareChip, ReadsBackWhatItWrote) {
  auto const chip = chipOf(2);
  Dma const dma;
  chip->dmaPoolIs(dma.pool());
  auto const channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);
  auto const read = cmd(fapsOf({0, 1}), readOf(after(kTcam, 1)));
  dma.fill(kTcam, 3, 10);
  SendOutcome const outcome = channel->send(listOf({cmd(fapsOf({0, 1}), std::vector{dma.write(kTcam, 3)}),
                                                    cmd(fapsOf({1}), writeOf(after(kTcam, 1), 99)), read}));
  EXPECT_TRUE(outcome.ok());
  ASSERT_EQ(read->answers.size(), 16U);
  EXPECT_EQ(std::memcmp(&read->answers[2], rowOf(kTcam, 11).data(), 24), 0);
  EXPECT_EQ(std::memcmp(&read->answers[10], rowOf(kTcam, 99).data(), 24), 0);
}

}  // namespace
