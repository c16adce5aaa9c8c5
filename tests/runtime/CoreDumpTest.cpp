#include <gmock/gmock.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "runtime/Dovel/Util.h"
#include "tests/support/ChildProcess.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr char const* kFilter = "/proc/self/coredump_filter";

std::string filter() {
  std::string text;
  std::ifstream(kFilter) >> text;
  return text.substr(text.find_first_not_of('0'));
}

void includeShmem() {
  for (char const* before : {"0x11", "0x33", "0x4"}) {
    std::ofstream(kFilter) << before << std::flush;
    errno = ENOTTY;
    Dovel::Util::includeShmemInCore();
    if (errno != ENOTTY) std::_Exit(1);
    ::fputs((filter() + " ").c_str(), stderr);
  }
}
TestSupport::ChildRole const includeShmemRole("includeShmem", includeShmem);

TEST(IncludeShmemInCore, AddsSharedMappingsAndKeepsTheRest) {
  auto const child = TestSupport::runChild("includeShmem", {{"HWTABLES_TRACE", "CoreDump/0-15"}});
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_EQ(child.errors(), "15b 17b 14e ");
}

constexpr int kMayNotChangeRoot = 77;

// A folder without /proc as root, which one may also have as root of a user namespace of one's own.
void includeShmemWithoutProc() {
  bool const changed = ::chroot("/sys") == 0;
  if (!changed && (::unshare(CLONE_NEWUSER) != 0 || ::chroot("/sys") != 0)) std::_Exit(kMayNotChangeRoot);
  Dovel::Util::includeShmemInCore();
  std::_Exit(0);  // a leak check at exit would need /proc
}
TestSupport::ChildRole const includeShmemWithoutProcRole("includeShmemWithoutProc", includeShmemWithoutProc);

TEST(IncludeShmemInCore, TracesAFailureAndGoesOn) {
  auto const child = TestSupport::runChild("includeShmemWithoutProc", {{"HWTABLES_TRACE", "CoreDump/1"}});
  if (child.exitCode == kMayNotChangeRoot) GTEST_SKIP() << "no right to change the root folder";
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_THAT(child.errors(), HasSubstr(" CoreDump 1 runtime/Dovel/Util.cpp:"));
  EXPECT_THAT(child.errors(), EndsWith("shared memory stays out of core dumps: /proc/self/coredump_filter: "
                                       "No such file or directory\n"));
}

}  // namespace
