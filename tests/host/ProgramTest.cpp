#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/host/Program.h"
#include "tests/support/Files.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(Program, VersionAndHelpGoToStandardOutput) {
  Outcome const version = runShell("HWTABLES --version");
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_THAT(version.out, testing::MatchesRegex("hwtables [0-9]+[.][0-9]+[.][0-9]+\n"));
  Outcome const help = runShell("HWTABLES --help");
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_THAT(help.out, HasSubstr("fastlog"));
  EXPECT_EQ(help.err, "");
}

TEST(Program, UsageErrorsExitWithTwoAndSayWhatIsWrong) {
  EXPECT_EQ(runShell("HWTABLES").exitCode, 2);
  Outcome const unknown = runShell("HWTABLES fastlgo");
  EXPECT_EQ(unknown.exitCode, 2);
  EXPECT_EQ(unknown.out, "");
  EXPECT_THAT(unknown.err, StartsWith("hwtables: not understood: fastlgo\n"));
  Outcome const missing = runShell("HWTABLES fastlog");
  EXPECT_EQ(missing.exitCode, 2);
  EXPECT_THAT(missing.err, StartsWith("FILE is required\n"));
  EXPECT_EQ(runShell("HWTABLES fastlog a b").exitCode, 2);
  EXPECT_EQ(runShell("HWTABLES fastlog --bad a").exitCode, 2);
}

TEST(Program, DoesNotWaitForAReaderOfItsTraceFile) {
  Outcome const outcome = runShell(
      "cd $(mktemp -d) && mkfifo trace && HWTABLES_TRACE_FILE=$PWD/trace timeout 10 HWTABLES --version; "
      "code=$?; "
      "rm -r $PWD; exit $code");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.err, HasSubstr("traces go to standard error"));
}

// Whoever starts it could write with its rights else. Its exit code is left aside: a leak checker is not
// allowed to look into such a process and says so at its end.
TEST(Program, WithRaisedPrivilegesMakesNoFileThatTheEnvironmentNames) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a program of another user";
  TestSupport::TempDir const dir;
  std::string const program = dir.file("program");
  Outcome const outcome =
      runShell("chmod 777 " + dir.path() + " && cp HWTABLES " + program + " && chown 65534 " + program +
               " && chmod 4755 " + program + " && HWTABLES_TRACE_FILE=" + dir.file("trace") +
               " HWTABLES_FASTLOG=" + dir.path() + " " + program + " --version");
  EXPECT_THAT(outcome.out, StartsWith("hwtables ")) << outcome.err;
  EXPECT_THAT(dir.files(), testing::ElementsAre(program));
}

TEST(Program, HelpThatCannotBeWrittenIsAFailure) {
  Outcome const full = runShell("HWTABLES --help >/dev/full");
  EXPECT_EQ(full.exitCode, 1);
  EXPECT_THAT(full.err, HasSubstr("cannot write to standard output"));
  EXPECT_EQ(runShell("HWTABLES --help >&-").exitCode, 1);
}

}  // namespace
