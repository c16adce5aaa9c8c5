#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>

#include "runtime/FastLog/FastLog.h"
#include "tests/host/Program.h"
#include "tests/support/Files.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using TestSupport::TempDir;

class FastLogCommandTest : public testing::Test {
 protected:
  TempDir dir_;
  std::string path_ = dir_.file("a.fastlog");
};

TEST_F(FastLogCommandTest, PrintsOneLineAMessageAndASummaryToStandardError) {
  FastLog::TraceHandle handle(path_);
  FASTLOG(&handle, "slot {} of {}", 7, "MplsIsem");
  FASTLOG(&handle, "two\nlines and \033[31m a {}", "colour\t.");
  Outcome const outcome = runShell("HWTABLES fastlog " + path_);
  EXPECT_EQ(outcome.exitCode, 0);
  std::string const time = "[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+[.][0-9]+Z";
  std::string const place =
      fmt::format("\\[{}:{}\\] tests/host/FastLogCommandTest.cpp:[0-9]+ ", ::getpid(), ::gettid());
  EXPECT_THAT(outcome.out, MatchesRegex(time + " " + place + "slot 7 of MplsIsem\n" + time + " " + place +
                                        "two\\\\nlines and \\\\x1b\\[31m a colour\\\\t.\n"));
  EXPECT_THAT(outcome.err,
              MatchesRegex(fmt::format("hwtables: 2 messages of test_host \\(pid {}\\) since {}\n",
                                       ::getpid(), time)));
}

TEST_F(FastLogCommandTest, TellsWhatWasLostAndWhatWasCut) {
  FastLog::TraceHandle handle(path_, {.cells = 16, .descriptorBytes = 65536});
  for (int i = 0; i < 100; ++i) FASTLOG(&handle, "number {}", i);
  Outcome const overwritten = runShell("HWTABLES fastlog " + path_);
  EXPECT_THAT(overwritten.err, HasSubstr(", 84 overwritten by newer ones\n"));
  FASTLOG(&handle, "{}", std::string(1000, 'x'));
  Outcome const cut = runShell("HWTABLES fastlog " + path_);
  EXPECT_THAT(cut.out, testing::EndsWith("xxx [cut]\n"));
}

TEST_F(FastLogCommandTest, BadFileExitsWithOneAndNamesItAndWhatIsWrong) {
  Outcome const missing = runShell("HWTABLES fastlog /nonexistent");
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "hwtables: /nonexistent: cannot open: No such file or directory\n");
  std::ofstream(path_) << "just some text";
  Outcome const foreign = runShell("HWTABLES fastlog " + path_);
  EXPECT_EQ(foreign.exitCode, 1);
  EXPECT_EQ(foreign.err, "hwtables: " + path_ + ": not a fast log file\n");
  EXPECT_EQ(foreign.out, "");
}

class FullLogTest : public FastLogCommandTest {
 protected:
  // More than a pipe holds.
  FullLogTest() {
    FastLog::TraceHandle handle(path_);
    for (int i = 0; i < 20000; ++i) FASTLOG(&handle, "number {}", i);
  }
};

TEST_F(FullLogTest, EndsBySigpipeAsFiltersDoWhenItsReaderGoesAway) {
  Outcome const outcome = runShell("HWTABLES fastlog " + path_ + " | head -n 1; echo ${PIPESTATUS[0]}");
  EXPECT_THAT(outcome.out, testing::EndsWith("number 0\n141\n"));
  EXPECT_EQ(outcome.err, "");
}

TEST_F(FullLogTest, OutputThatCannotBeWrittenIsAFailure) {
  for (std::string const redirection : {">/dev/full", ">&-"}) {
    Outcome const outcome = runShell("HWTABLES fastlog " + path_ + " " + redirection);
    EXPECT_EQ(outcome.exitCode, 1) << redirection;
    EXPECT_THAT(outcome.err, HasSubstr("hwtables: cannot write to standard output: ")) << redirection;
  }
  Outcome const ignored =
      runShell("trap '' PIPE; HWTABLES fastlog " + path_ + " | true; echo ${PIPESTATUS[0]}");
  EXPECT_EQ(ignored.out, "1\n");
}

}  // namespace
