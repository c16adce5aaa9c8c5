// Looks at the instructions that a change of a use count really executes, by stepping a child through it.
// Sanitizers put calls of their own between the instructions, so their builds have no such test.
#include <gtest/gtest.h>

#include "tests/support/Sanitizers.h"

#if defined(__x86_64__) && !HWTABLES_ASAN && !HWTABLES_TSAN

#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "runtime/Dovel/PtrIs.h"

namespace {

struct Stone : Dovel::Tracked<Stone> {};

constexpr unsigned char kLockPrefix = 0xF0;

[[gnu::noinline]] void changeCount(Dovel::Node const& node) {
  node.incUseCount();
  node.decUseImpl();
}

struct Walk {
  int instructions = 0;
  int locked = 0;
  bool refused = false;
  std::uint32_t countSeen = 0;
};

// The lock prefix may stand among a few other legacy prefixes at the start of an instruction.
bool isLocked(pid_t child, unsigned long long at) {
  long const word = ::ptrace(PTRACE_PEEKTEXT, child, at, nullptr);
  unsigned char bytes[sizeof word];
  std::memcpy(bytes, &word, sizeof word);
  for (unsigned char byte : bytes) {
    if (byte == kLockPrefix) return true;
    if (byte != 0x66 && byte != 0x2E && byte != 0x3E && byte != 0xF2 && byte != 0xF3) return false;
  }
  return false;
}

[[noreturn]] void childSide(bool threads) {
  Dovel::ThreadControl::tsp_.store(threads);
  Dovel::Ptr<Stone> const first = Dovel::ptrIsImpl<Stone>();
  Dovel::Ptr<Stone> const second = first;
  if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(77);
  ::raise(SIGSTOP);
  changeCount(*first);
  ::raise(SIGSTOP);
  ::_exit(static_cast<int>(first->useCount()));
}

// Steps from one stop to the next. System calls of raise() itself are on the way; they are the same in both
// walks.
Walk walk(bool threads) {
  Walk seen;
  pid_t const child = ::fork();
  if (child == 0) childSide(threads);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!WIFSTOPPED(status)) {
    seen.refused = true;
    return seen;
  }
  for (bool first = true; first || WSTOPSIG(status) == SIGTRAP; first = false) {
    user_regs_struct registers{};
    ::ptrace(PTRACE_GETREGS, child, nullptr, &registers);
    ++seen.instructions;
    if (isLocked(child, registers.rip)) ++seen.locked;
    ::ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr);
    ::waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) return seen;
  }
  ::ptrace(PTRACE_CONT, child, nullptr, nullptr);
  ::waitpid(child, &status, 0);
  seen.countSeen = WIFEXITED(status) ? static_cast<std::uint32_t>(WEXITSTATUS(status)) : 0;
  return seen;
}

TEST(UseCount, ChangesWithoutALockedInstructionUntilThreadsMayRun) {
  Walk const alone = walk(false);
  if (alone.refused) GTEST_SKIP() << "this machine forbids ptrace";
  Walk const threaded = walk(true);
  EXPECT_GT(alone.instructions, 10);
  EXPECT_EQ(alone.countSeen, 2U);
  EXPECT_EQ(alone.locked, 0);
  EXPECT_EQ(threaded.countSeen, 2U);
  EXPECT_EQ(threaded.locked, 2);
}

}  // namespace
#endif
