#include "platform/memory/WriterSentry.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "tests/platform/memory/SentrySupport.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

class WriterSentryTest : public TestSupport::SentryTest {
 protected:
  void SetUp() override {
    makeTable("a/t", 7);
    for (char const* file : {"slots", "buckets"}) TestSupport::writeFile(path_ + "/" + file, file);
  }
  void guard(bool isComplete = true) { sentry_.emplace(handler_, recorder_, root("a/t"), isComplete); }

  std::string const path_ = dir_.file("a/t");
  std::optional<Mem::WriterSentry> sentry_;
};

class WriterSentryFileTest : public WriterSentryTest, public testing::WithParamInterface<char const*> {
 protected:
  std::string const file_ = path_ + "/" + GetParam();
};

INSTANTIATE_TEST_SUITE_P(, WriterSentryFileTest,
                         testing::Values("slots", "buckets", "owner", "ember", "control"),
                         [](auto const& file) { return std::string(file.param); });

TEST_P(WriterSentryFileTest, RemovalIsToldOnceWithThePathOfTheTable) {
  guard();
  turn();
  EXPECT_THAT(recorder_.seen, IsEmpty());
  std::filesystem::remove(file_);
  turn();
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_));
}

TEST_P(WriterSentryFileTest, ReplacementIsToldOnce) {
  guard();
  turn();
  replace("a/t/" + std::string(GetParam()));
  turn();
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_));
}

TEST_P(WriterSentryFileTest, FileRemovedAndMadeAgainAtOnceIsTold) {
  std::this_thread::sleep_for(20ms);  // the clock of file times is coarse
  guard();
  turn();
  std::string const content = TestSupport::contentOf(file_);
  std::filesystem::remove(file_);
  TestSupport::writeFile(file_, content);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_));
}

TEST_P(WriterSentryFileTest, FileMissingFromTheBeginningIsToldWhereTheTableIsSaidToBeComplete) {
  std::filesystem::remove(file_);
  guard();
  EXPECT_THAT(recorder_.seen, IsEmpty());
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_));
}

TEST_P(WriterSentryFileTest, FileMissingFromTheBeginningMayComeAndIsGuardedThen) {
  std::filesystem::remove(file_);
  guard(false);
  turn();
  TestSupport::writeFile(file_, "");
  turn();
  EXPECT_THAT(recorder_.seen, IsEmpty());
  std::filesystem::remove(file_);
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_));
}

TEST_F(WriterSentryTest, ChangeBeforeTheFirstTurnIsTold) {
  guard(false);
  std::filesystem::remove(path_ + "/control");
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_));
}

TEST_F(WriterSentryTest, DirectoryRemovedAndMadeAgainIsTold) {
  guard();
  turn();
  removeTable("a");
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_));
  makeTable("a/t", 7);
  turn();
  std::filesystem::remove(path_ + "/control");
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_, path_));
}

TEST_F(WriterSentryTest, WhatTheWriterDoesWithinItsFilesIsNoChange) {
  guard();
  turn();
  storeEmberInPlace("a/t", 8);
  std::ofstream(path_ + "/slots", std::ios::app) << "more";
  TestSupport::writeFile(path_ + "/.writer.lock", "");
  turn();
  EXPECT_THAT(recorder_.seen, IsEmpty());
}

TEST_F(WriterSentryTest, FilePutBackInAnswerIsGuardedAgain) {
  guard();
  turn();
  recorder_.then = [this] { TestSupport::writeFile(path_ + "/control", ""); };
  for (std::size_t round = 1; round <= 3; ++round) {
    std::filesystem::remove(path_ + "/control");
    turn();
    turn();
    EXPECT_EQ(recorder_.seen.size(), round);
  }
}

TEST_F(WriterSentryTest, FilesReplacedInAnswerAreNotToldAgain) {
  guard();
  turn();
  recorder_.then = [this] { replace("a/t/slots"); };
  replace("a/t/control");
  for (int i = 0; i < 10; ++i) turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_));
}

TEST_F(WriterSentryTest, ReplacementAfterAnAnswerIsTold) {
  guard();
  turn();
  for (std::size_t round = 1; round <= 3; ++round) {
    replace("a/t/slots");
    turn();
    EXPECT_EQ(recorder_.seen.size(), round);
  }
}

TEST_F(WriterSentryTest, FileRemovedWhileAnotherIsAnsweredIsTold) {
  guard();
  turn();
  recorder_.then = [this] {
    recorder_.then = [] {};
    std::filesystem::remove(path_ + "/slots");
  };
  std::filesystem::remove(path_ + "/control");
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_, path_));
}

TEST_F(WriterSentryTest, SentryMayGoWithTheCall) {
  guard();
  turn();
  recorder_.then = [this] { sentry_.reset(); };
  std::filesystem::remove(path_ + "/control");
  turn();
  EXPECT_THAT(recorder_.seen, ElementsAre(path_));
  EXPECT_THAT(TestSupport::inotifyDescriptors(), IsEmpty());
}

}  // namespace
