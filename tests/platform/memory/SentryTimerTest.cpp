// Changes of which there is no event.
#include <gmock/gmock.h>

#include <filesystem>
#include <optional>

#include "tests/platform/memory/SentrySupport.h"
#include "tests/support/Sanitizers.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;

class SentryTimerTest : public TestSupport::SentryTest {
 protected:
  SentryTimerTest() { Mem::FileWatch::safetyPeriodIs(1s); }
  bool isTold(std::size_t times) {
    return turnUntil([=, this] { return recorder_.seen.size() == times; });
  }
};

TEST_F(SentryTimerTest, RenamedAncestorIsNoticed) {
  makeTable("a/b/c", 7);
  Mem::ReaderSentry const sentry(handler_, root("a/b/c"), recorder_);
  turn();
  std::filesystem::rename(dir_.file("a"), dir_.file("z"));
  EXPECT_TRUE(isTold(2));
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared", "changed"));
  std::filesystem::rename(dir_.file("z"), dir_.file("a"));
  EXPECT_TRUE(isTold(3));
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared", "changed", "appeared"));
}

TEST_F(SentryTimerTest, RemovalIsNoticedWhereInotifyWasNotToBeHadWhichIsTriedAgain) {
  if (HWTABLES_ASAN) GTEST_SKIP() << "the sanitizer needs descriptors to look at objects";
  makeTable("t", 7);
  std::optional<Mem::WriterSentry> sentry;
  {
    TestSupport::NoDescriptors const none;
    sentry.emplace(handler_, recorder_, root("t"), false);
    turn();
    std::filesystem::remove(dir_.file("t/control"));
    turn();
    EXPECT_THAT(recorder_.seen, IsEmpty());
    EXPECT_TRUE(isTold(1));
  }
  EXPECT_THAT(TestSupport::inotifyDescriptors(), IsEmpty());
  EXPECT_TRUE(turnUntil([] { return !TestSupport::inotifyDescriptors().empty(); }));
  turn();
  std::filesystem::remove(dir_.file("t/ember"));
  turn();
  EXPECT_THAT(recorder_.seen, SizeIs(2));
}

}  // namespace
