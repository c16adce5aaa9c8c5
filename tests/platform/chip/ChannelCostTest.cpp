// What the way to the chip costs: no memory is taken on it once it has been gone.
#include <gtest/gtest.h>

#include "platform/chip/SchanChannel.h"
#include "tests/platform/chip/ChipSupport.h"
#include "tests/support/Sanitizers.h"

#if !HWTABLES_ASAN && !HWTABLES_TSAN
#include "tests/support/CountedMalloc.h"

namespace {

using namespace TestSupport;

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
  for (auto const& one : cmds) one->answers.reserve(24);
  auto const list = Sluice::schanCmdsFactory();
  for (auto const& one : cmds) list->cmdEnq(one);
  channel->send(list);
  for (auto const& one : cmds) list->cmdEnq(one);
  std::uint64_t const before = allocations;
  Sluice::SendOutcome const outcome = channel->send(list);
  EXPECT_EQ(allocations, before);
  EXPECT_TRUE(outcome.ok());
  EXPECT_EQ(outcome.commands, 300U);
  EXPECT_GT(before, 300U);
}

}  // namespace

#endif
