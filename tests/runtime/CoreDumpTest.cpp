#include <gmock/gmock.h>
#include <sys/resource.h>

#include <fstream>

#include "runtime/Dovel/Util.h"
#include "tests/runtime/ChildProcess.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

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

void includeShmemWithoutFiles() {
  rlimit const none{3, 3};
  ::setrlimit(RLIMIT_NOFILE, &none);
  Dovel::Util::includeShmemInCore();
}
TestSupport::ChildRole const includeShmemWithoutFilesRole("includeShmemWithoutFiles",
                                                          includeShmemWithoutFiles);

TEST(IncludeShmemInCore, TracesAFailureAndGoesOn) {
  auto const child = TestSupport::runChild("includeShmemWithoutFiles", {{"HWTABLES_TRACE", "CoreDump/1"}});
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_THAT(child.errors(), HasSubstr(" CoreDump 1 runtime/Dovel/Util.cpp:"));
  EXPECT_THAT(child.errors(),
              EndsWith("shared memory stays out of core dumps: /proc/self/coredump_filter: Too many "
                       "open files\n"));
}

}  // namespace
