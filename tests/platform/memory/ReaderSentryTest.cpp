#include "platform/memory/ReaderSentry.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>

#include "tests/platform/memory/SentrySupport.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Seed.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;

class ReaderSentryTest : public TestSupport::SentryTest {
 protected:
  void watch(std::string const& table) { sentry_.emplace(handler_, root(table), recorder_); }

  std::optional<Mem::ReaderSentry> sentry_;
};

TEST_F(ReaderSentryTest, TableThatIsThereIsToldInTheNextTurnAndNotBefore) {
  makeTable("t", 7);
  watch("t");
  EXPECT_THAT(recorder_.seen, IsEmpty());
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared"));
  turn();
  EXPECT_THAT(recorder_.seen, SizeIs(1));
}

TEST_F(ReaderSentryTest, TableMadeAtOnceWithItsDeepParentsIsTold) {
  watch("a/b/c/d");
  turn();
  makeTable("a/b/c/d", 7);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared"));
}

TEST_F(ReaderSentryTest, TableMadeStepByStepIsToldWithTheLastStep) {
  watch("a/b");
  for (char const* directory : {"a", "a/b"}) {
    std::filesystem::create_directory(dir_.file(directory));
    turn();
  }
  TestSupport::writeFile(dir_.file("a/b/control"), "");
  turn();
  writeEmber("a/b", 0);
  turn();
  EXPECT_THAT(recorder_.seen, IsEmpty());
  storeEmberInPlace("a/b", 7);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared"));
}

TEST_F(ReaderSentryTest, OnlyTheNearestDirectoryThatIsThereIsWatched) {
  watch("a/b/c");
  EXPECT_EQ(TestSupport::watchedDirectories(), 1U);
  makeTable("a/b/c", 7);
  turn();
  EXPECT_EQ(TestSupport::watchedDirectories(), 1U);
  removeTable("a");
  turn();
  EXPECT_EQ(TestSupport::watchedDirectories(), 1U);
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared", "changed"));
}

TEST_F(ReaderSentryTest, ShortEmberIsNoTable) {
  makeTable("t", 7);
  TestSupport::writeFile(dir_.file("t/ember"), "abc");
  watch("t");
  turn();
  EXPECT_THAT(recorder_.seen, IsEmpty());
  writeEmber("t", 7);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared"));
}

TEST_F(ReaderSentryTest, DirectoryInPlaceOfAFileIsNoTable) {
  makeTable("t", 7);
  std::filesystem::remove(dir_.file("t/control"));
  std::filesystem::create_directory(dir_.file("t/control"));
  watch("t");
  turn();
  EXPECT_THAT(recorder_.seen, IsEmpty());
}

class CompleteTableTest : public ReaderSentryTest {
 protected:
  void SetUp() override {
    makeTable("a/b/t", 7);
    watch("a/b/t");
    turn();
    recorder_.seen.clear();
  }
};

TEST_F(CompleteTableTest, RemovedParentsEndItAndOnesMadeAgainBringItBack) {
  removeTable("a");
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed"));
  makeTable("a/b/t", 7);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed", "appeared"));
}

TEST_F(CompleteTableTest, ParentsRemovedAndMadeAgainAtOnceAreNoticed) {
  removeTable("a");
  makeTable("a/b/t", 8);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed", "appeared"));
  storeEmberInPlace("a/b/t", 0);  // and the new ones are watched
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed", "appeared", "changed"));
}

TEST_F(CompleteTableTest, DirectoryMovedAwayIsNoticed) {
  std::filesystem::rename(dir_.file("a/b/t"), dir_.file("elsewhere"));
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed"));
  std::filesystem::rename(dir_.file("elsewhere"), dir_.file("a/b/t"));
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed", "appeared"));
}

TEST_F(CompleteTableTest, EmberClearedInPlaceEndsItAndANewGenerationBringsAnother) {
  storeEmberInPlace("a/b/t", 0);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed"));
  storeEmberInPlace("a/b/t", 8);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed", "appeared"));
}

TEST_F(CompleteTableTest, GenerationThatFollowsAnotherInPlaceIsAnotherTable) {
  storeEmberInPlace("a/b/t", 8);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed", "appeared"));
}

TEST_F(CompleteTableTest, SameGenerationStoredAgainIsNoChange) {
  storeEmberInPlace("a/b/t", 7);
  turn();
  EXPECT_THAT(recorder_.seen, IsEmpty());
}

TEST_F(CompleteTableTest, RemovedControlFileEndsIt) {
  std::filesystem::remove(dir_.file("a/b/t/control"));
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed"));
}

TEST_F(CompleteTableTest, ControlFileMovedElsewhereEndsIt) {
  std::filesystem::rename(dir_.file("a/b/t/control"), dir_.file("control"));
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed"));
}

TEST_F(CompleteTableTest, OtherFileOfTheSameGenerationIsAnotherTable) {
  for (char const* file : {"a/b/t/ember", "a/b/t/control"}) {
    recorder_.seen.clear();
    replace(file);
    turn();
    EXPECT_THAT(recorder_.seen, ElementsAre("changed", "appeared")) << file;
  }
}

TEST_F(CompleteTableTest, SentryMayGoWithTheCallThatTellsOfTheChange) {
  recorder_.then = [this] { sentry_.reset(); };
  storeEmberInPlace("a/b/t", 8);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed"));
  EXPECT_THAT(TestSupport::inotifyDescriptors(), IsEmpty());
}

TEST_F(CompleteTableTest, LackOfDescriptorsIsNotTakenForItsEnd) {
  if (HWTABLES_ASAN) GTEST_SKIP() << "the sanitizer needs descriptors to look at an exception";
  auto const failed = scheduler_->failedCallbacks();
  storeEmberInPlace("a/b/t", 7);
  {
    TestSupport::NoDescriptors const none;
    turn();
  }
  EXPECT_EQ(scheduler_->failedCallbacks(), failed + 1);
  EXPECT_THAT(recorder_.seen, IsEmpty());
  storeEmberInPlace("a/b/t", 8);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed", "appeared"));
}

TEST_F(ReaderSentryTest, SentryMayGoWithTheCallThatTellsOfTheTable) {
  makeTable("t", 7);
  watch("t");
  recorder_.then = [this] { sentry_.reset(); };
  turn();
  storeEmberInPlace("t", 8);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared"));
}

TEST_F(ReaderSentryTest, SentryMayGoBeforeItsFirstLook) {
  makeTable("t", 7);
  watch("t");
  sentry_.reset();
  turn();
  EXPECT_THAT(recorder_.seen, IsEmpty());
}

TEST_F(ReaderSentryTest, CallMayEndOtherSentriesAndMakeNewOnes) {
  makeTable("t", 7);
  TestSupport::Recorder other;
  std::vector<std::unique_ptr<Mem::ReaderSentry>> others;
  for (int i = 0; i < 10; ++i) {
    others.push_back(std::make_unique<Mem::ReaderSentry>(handler_, root("t"), other));
  }
  other.then = [&] {
    others.clear();
    watch("t");
  };
  turn();
  EXPECT_THAT(other.seen, ElementsAre("appeared"));
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared"));
}

TEST_F(ReaderSentryTest, CallThatThrowsKeepsNobodyElseWaiting) {
  TestSupport::Recorder throwing;
  throwing.then = [] { throw std::runtime_error("refused"); };
  Mem::ReaderSentry const before(handler_, root("t"), throwing);
  watch("t");
  Mem::ReaderSentry const after(handler_, root("t"), throwing);
  turn();
  makeTable("t", 7);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared"));
  EXPECT_THAT(throwing.seen, SizeIs(2));
}

TEST_F(ReaderSentryTest, ManySentriesShareOneDescriptorWhichGoesWithTheLast) {
  EXPECT_THAT(TestSupport::inotifyDescriptors(), IsEmpty());
  std::vector<std::unique_ptr<Mem::ReaderSentry>> sentries;
  for (int i = 0; i < 200; ++i) {
    sentries.push_back(
        std::make_unique<Mem::ReaderSentry>(handler_, root("tables/" + std::to_string(i)), recorder_));
  }
  EXPECT_THAT(TestSupport::inotifyDescriptors(), SizeIs(1));
  turn();
  for (int i = 0; i < 200; ++i) makeTable("tables/" + std::to_string(i), 7);
  turn();
  EXPECT_THAT(recorder_.seen, SizeIs(200));
  EXPECT_THAT(TestSupport::inotifyDescriptors(), SizeIs(1));
  sentries.clear();
  EXPECT_THAT(TestSupport::inotifyDescriptors(), IsEmpty());
}

TEST_F(ReaderSentryTest, LostEventsMakeEverySentryLook) {
  int const queue = std::stoi(TestSupport::contentOf("/proc/sys/fs/inotify/max_queued_events"));
  if (queue > 200'000) GTEST_SKIP() << "a queue of " << queue << " events is too long to be filled";
  makeTable("busy", 7);
  TestSupport::Recorder busy;
  Mem::ReaderSentry const crowded(handler_, root("busy"), busy);
  std::filesystem::create_directory(dir_.file("t"));
  watch("t");
  turn();
  for (int i = 0; i < queue; ++i) {
    std::string const file = dir_.file("busy/" + std::to_string(i));
    TestSupport::writeFile(file, "");
    std::filesystem::remove(file);
  }
  makeTable("t", 7);
  EXPECT_TRUE(turnUntil([this] { return !recorder_.seen.empty(); }));
  EXPECT_THAT(recorder_.seen, ElementsAre("appeared"));
}

// Makes and removes a table, directory by directory, while the sentry follows.
class Busybody {
 public:
  Busybody(std::string directory, std::uint64_t seed) : directory_(std::move(directory)), random_(seed) {}

  void make(std::uint32_t emberId) {
    for (std::string part : {"", "/b", "/b/c"}) {
      pause();
      std::filesystem::create_directory(directory_ + part);
    }
    TestSupport::SentryTest::makeTableAt(directory_ + "/b/c", emberId);
  }
  void remove() {
    pause();
    std::filesystem::remove_all(directory_);
  }

 private:
  void pause() {
    auto const end = std::chrono::steady_clock::now() + std::chrono::microseconds(random_() % 60);
    while (std::chrono::steady_clock::now() < end) {
    }
  }

  std::string const directory_;
  std::mt19937_64 random_;
};

TEST_F(ReaderSentryTest, TablesMadeAndRemovedMeanwhileAreAllNoticed) {
  PRINT_SEED_ON_FAILURE();
  Busybody busybody(dir_.file("a"), TestSupport::seed());
  watch("a/b/c");
  for (std::uint32_t round = 1; round <= 500; ++round) {
    recorder_.seen.clear();
    std::thread maker([&, round] { busybody.make(round); });
    bool const appeared = turnUntil([this] { return !recorder_.seen.empty(); });
    maker.join();
    ASSERT_TRUE(appeared) << "round " << round;
    std::thread remover([&] { busybody.remove(); });
    bool const changed = turnUntil([this] { return recorder_.seen.back() == "changed"; });
    remover.join();
    ASSERT_TRUE(changed) << "round " << round;
    turn();
  }
}

TEST_F(CompleteTableTest, ForkedChildTakesNoWatchAwayAndMayHaveItsOwn) {
  pid_t const child = ::fork();
  if (child == 0) {
    TestSupport::Recorder own;
    Mem::ReaderSentry const sentry(handler_, root("a/b/t"), own);
    sentry_.reset();  // when the number of its descriptor is another's
    auto const scheduler = Dovel::schedulerRootDovel();
    for (int i = 0; i < 3; ++i) scheduler->runOnce(0ms);
    bool const isRight = own.seen.size() == 1 && TestSupport::inotifyDescriptors().size() == 1;
    ::_exit(isRight ? 0 : 1);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  storeEmberInPlace("a/b/t", 0);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre("changed"));
}

}  // namespace
