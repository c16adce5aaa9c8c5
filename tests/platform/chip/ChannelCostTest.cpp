// What the way to the chip costs: no memory is taken on it once it has been gone.
#include <gtest/gtest.h>

#include "platform/chip/SchanChannel.h"
#include "tests/platform/chip/ExactMatchSupport.h"
#include "tests/support/Sanitizers.h"

#if !HWTABLES_ASAN && !HWTABLES_TSAN
#include "tests/support/CountedMalloc.h"

namespace {

using namespace TestSupport;

// What the commands came to when they were sent for the second time, which has taken no memory. Each has room
// for so many words of answers.
Sluice::SendOutcome sentTwice(Chip::SchanChannel& channel, std::vector<Dovel::Ptr<TestCmd>> const& cmds,
                              std::size_t answerWords) {
  for (auto const& one : cmds) one->answers.reserve(answerWords);
  auto const list = Sluice::schanCmdsFactory();
  for (auto const& one : cmds) list->cmdEnq(one);
  channel.send(list);
  for (auto const& one : cmds) list->cmdEnq(one);
  std::uint64_t const before = allocations;
  Sluice::SendOutcome const outcome = channel.send(list);
  EXPECT_EQ(allocations, before);
  EXPECT_GT(before, 300U);  // they are counted
  return outcome;
}

TEST(ChannelCost, NothingIsAllocatedOnTheWayToTheChip) {
  auto const chip = chipOf(3);
  Dma const dma;
  chip->dmaPoolIs(dma.pool());
  auto const channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);
  Sluice::Fapmask const faps = fapsOf({0, 1, 2});
  std::vector<Dovel::Ptr<TestCmd>> cmds;
  for (unsigned row = 0; row < 100; ++row) {
    cmds.push_back(cmd(fapsOf({0}), writeOf(after(kTcam, row), row)));
    cmds.push_back(cmd(faps, readOf(after(kTcam, row))));
    cmds.push_back(cmd(faps, std::vector{dma.write(kTcam, 100)}));
  }
  Sluice::SendOutcome const outcome = sentTwice(*channel, cmds, 24);
  EXPECT_TRUE(outcome.ok());
  EXPECT_EQ(outcome.commands, 300U);
}

struct ExactMatchCost : ExactMatchRig {};

TEST_F(ExactMatchCost, NothingIsAllocatedForAnEntry) {
  auto const channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);
  std::vector<Entry> some;
  for (std::uint64_t key = 0; key < 200; ++key) some.push_back(entryOf(kSrv6, key));
  std::vector<Dovel::Ptr<TestCmd>> cmds{cmd(fapsOf({0}), std::vector{transferOf(kSrv6, some)}),
                                        cmd(fapsOf({0}), markOf(kSrv6)), cmd(fapsOf({0}), sweepOf(kSrv6))};
  for (std::uint64_t key = 0; key < 100; ++key) {
    cmds.push_back(cmd(fapsOf({0}), messageOf(kSrv6, entryOf(kSrv6, 1000 + key))));
    cmds.push_back(cmd(fapsOf({0}), messageOf(kSrv6, entryOf(kSrv6, 1000 + key, 2))));
    cmds.push_back(cmd(fapsOf({0}), messageOf(kSrv6, entryOf(kSrv6, 1000 + key, 0, kDelete))));
  }
  Sluice::SendOutcome const outcome = sentTwice(*channel, cmds, 8);
  EXPECT_FALSE(has(kSrv6, 0));
  EXPECT_FALSE(has(kSrv6, 1000));
  EXPECT_TRUE(outcome.ok());
  EXPECT_EQ(outcome.commands, 303U);
  EXPECT_EQ(outcome.flushed, 400U);
}

}  // namespace

#endif
