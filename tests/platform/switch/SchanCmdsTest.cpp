#include <gtest/gtest.h>
#include <malloc.h>

#include <cstring>
#include <vector>

#include "platform/switch/Sluice/SchanCmds.h"
#include "tests/support/Sanitizers.h"

namespace {

using Dovel::Ptr;
using Sluice::SchanCmd;
using Sluice::SchanCmds;

class Echo : public Dovel::Tracked<Echo, Sluice::SchanCmdBase> {
 public:
  explicit Echo(unsigned ordinal) : number(ordinal) {}
  Sluice::Fapmask const& fapmask() const override { return faps; }
  unsigned int dwc_write() const override { return 32; }
  unsigned int dwc_read() const override { return 2; }

  Sluice::Fapmask faps;
  unsigned number;
  std::uint32_t answer = 0;

 protected:
  void fillCmd(std::span<std::uint32_t> buf) override {
    Sluice::schan_xmsg_user_ message;
    std::memset(&message, 0xFF, sizeof message);
    fillCmdletHeader(&message, Sluice::SchanOpcode::exactMatch, 1, 282, 64);
    std::memcpy(buf.data(), &message, sizeof message);
  }
  void readResp(std::span<std::uint32_t const> buf) override { answer = buf[1]; }
};

unsigned numberOf(Ptr<SchanCmd> const& cmd) { return Dovel::ptrDynamicCast<Echo>(cmd)->number; }

Ptr<SchanCmds> listOf(std::initializer_list<unsigned> numbers) {
  Ptr<SchanCmds> cmds = Sluice::schanCmdsFactory();
  for (unsigned number : numbers) cmds->cmdEnq(Dovel::ptrIsImpl<Echo>(number));
  return cmds;
}

std::vector<unsigned> drained(SchanCmds& cmds) {
  std::vector<unsigned> numbers;
  while (Ptr<SchanCmd> const cmd = cmds.cmdDeq()) numbers.push_back(numberOf(cmd));
  return numbers;
}

TEST(SchanCmds, TheFactoryMakesAnEmptyListWhichIsNotANullOne) {
  Ptr<SchanCmds> const cmds = Sluice::schanCmdsFactory();
  EXPECT_NE(cmds, nullptr);
  EXPECT_TRUE(cmds->empty());
  EXPECT_EQ(cmds->cmdDeq(), nullptr);
}

TEST(SchanCmds, GivesCommandsOutInTheOrderInWhichTheyCame) {
  Ptr<SchanCmds> const cmds = listOf({1, 2});
  EXPECT_EQ(numberOf(cmds->cmdDeq()), 1U);
  cmds->cmdEnq(Dovel::ptrIsImpl<Echo>(3U));
  EXPECT_EQ(cmds->size(), 2U);
  EXPECT_EQ(drained(*cmds), (std::vector<unsigned>{2, 3}));
  cmds->cmdEnq(Dovel::ptrIsImpl<Echo>(4U));
  EXPECT_EQ(drained(*cmds), (std::vector<unsigned>{4}));
}

TEST(SchanCmds, MovedIntoAnotherListCommandsKeepTheirOrder) {
  Ptr<SchanCmds> const source = listOf({3, 4, 5});
  Ptr<SchanCmds> const target = listOf({1, 2});
  target->cmdsEnq(*source);
  EXPECT_TRUE(source->empty());
  target->cmdsEnq(*target);
  EXPECT_EQ(drained(*target), (std::vector<unsigned>{1, 2, 3, 4, 5}));
}

TEST(SchanCmdsDeathTest, ANullCommandEndsTheProcess) {
  Ptr<SchanCmds> const cmds = Sluice::schanCmdsFactory();
  EXPECT_DEATH(cmds->cmdEnq(nullptr), "a null command");
}

#if !HWTABLES_ASAN && !HWTABLES_TSAN  // their allocators don't tell what is in use
TEST(SchanCmds, AListThatIsNeverEmptyKeepsNoMemoryOfTheCommandsThatLeft) {
  Ptr<SchanCmds> const cmds = listOf({0});
  auto const inUse = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
  std::size_t const before = inUse();
  for (unsigned number = 1; number <= 1000000; ++number) {
    cmds->cmdEnq(Dovel::ptrIsImpl<Echo>(number));
    cmds->cmdDeq();
  }
  EXPECT_LT(inUse(), before + 10000);
}
#endif

TEST(SchanCmds, LetsACommandGoWhenItIsTakenOut) {
  Ptr<SchanCmds> const cmds = listOf({1, 2, 3});
  auto const live = Echo::memAllocationTracker_->liveCount();
  cmds->cmdDeq();
  EXPECT_EQ(Echo::memAllocationTracker_->liveCount(), live - 1);
}

TEST(SchanCmdBatches, KeepsItsListsInOrder) {
  auto const batches = Dovel::ptrIsImpl<Sluice::SchanCmdBatches>();
  batches->batchIs(listOf({1}));
  batches->batchIs(listOf({2, 3}));
  ASSERT_EQ(batches->batches().size(), 2U);
  EXPECT_EQ(batches->batches()[1]->size(), 2U);
}

TEST(SchanCmd, FillsItsMessagesHeaderAndTakesItsAnswer) {
  Ptr<Echo> const echo = Dovel::ptrIsImpl<Echo>(1U);
  std::vector<std::uint32_t> words(32);
  echo->fillCmdIntoBuf(words);
  EXPECT_EQ((std::vector<std::uint32_t>(words.begin(), words.begin() + 11)),
            (std::vector<std::uint32_t>{53U << 24 | 64, 282, 1, 0, 0, 0, 0, 0, 0, 0, 0xFFFFFFFF}));
  std::vector<std::uint32_t> const answer{1, 99};
  echo->readRespFromBuf(answer);
  EXPECT_EQ(echo->answer, 99U);
}

TEST(SchanCmdDeathTest, ABufferOfAnotherSizeEndsTheProcess) {
  Ptr<Echo> const echo = Dovel::ptrIsImpl<Echo>(1U);
  std::vector<std::uint32_t> words(31);
  EXPECT_DEATH(echo->fillCmdIntoBuf(words), "a command of 32 words for a buffer of 31");
  EXPECT_DEATH(echo->readRespFromBuf(words), "an answer of 2 words in a buffer of 31");
}

}  // namespace
