// Stops a writing process behind every single machine instruction of a message: whatever instant a process
// ends in, its file shows whole messages only.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include "runtime/FastLog/Decoder.h"
#include "runtime/FastLog/FastLog.h"
#include "tests/runtime/SelfCheck.h"
#include "tests/support/Files.h"

namespace {

using TestSupport::TempDir;
constexpr int kNoTracing = 77;
constexpr std::uint64_t kBefore = 40;    // the ring has been full for long
constexpr std::uint64_t kStepped = 149;  // takes four cells

// Logs, stops to be stepped through one more message, and stops again.
[[noreturn]] void write(std::string const& path) {
  FastLog::TraceHandle handle(path, {.cells = 20, .descriptorBytes = 65536});
  for (std::uint64_t i = 0; i < kBefore; ++i) SelfCheck::log(&handle, 0, i);
  if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(kNoTracing);
  ::raise(SIGSTOP);
  SelfCheck::log(&handle, 0, kStepped);
  ::raise(SIGSTOP);
  ::_exit(0);
}

// Whether every message is whole; tells whether the last one is there.
void check(std::string const& path, bool& complete) {
  FastLog::DecodedLog const log = FastLog::decode(path);
  ASSERT_LE(log.tornMessages, 1U);
  for (auto const& message : log.messages) {
    SelfCheck const parsed = SelfCheck::parse(message.text);
    ASSERT_TRUE(parsed.sound) << message.text;
    ASSERT_TRUE(parsed.number < kBefore || parsed.number == kStepped);
    complete = parsed.number == kStepped;
  }
}

TEST(FastLogStep, FileOfAProcessThatEndsAtAnyInstructionShowsWholeMessagesOnly) {
  TempDir const dir;
  std::string const path = dir.file("a.fastlog");
  pid_t const pid = ::fork();
  if (pid == 0) write(path);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoTracing)
    GTEST_SKIP() << "processes can't be traced here";
  ::ptrace(PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_EXITKILL);
  int steps = 0;
  bool complete = false;
  bool wasComplete = false;
  while (::ptrace(PTRACE_SINGLESTEP, pid, nullptr, nullptr) == 0 && ::waitpid(pid, &status, 0) == pid &&
         WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP) {
    ++steps;
    ASSERT_NO_FATAL_FAILURE(check(path, complete)) << "behind instruction " << steps;
    ASSERT_TRUE(complete || !wasComplete);
    wasComplete = complete;
  }
  EXPECT_GT(steps, 100);
  EXPECT_TRUE(complete);
  ::kill(pid, SIGKILL);
  ::waitpid(pid, &status, 0);
}

}  // namespace
