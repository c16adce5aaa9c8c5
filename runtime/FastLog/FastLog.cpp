#include "runtime/FastLog/FastLog.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "runtime/Dovel/Exception.h"

namespace FastLog {
namespace {

// The time, beside the pid, keeps apart the programs that one process runs one after the other.
std::string defaultPath(char const* directory) {
  using namespace std::chrono;
  auto const now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
  return fmt::format("{}/hwtables-{}-{}.{:06}.fastlog", directory, ::getpid(), now / 1'000'000,
                     now % 1'000'000);
}

}  // namespace

TraceHandle* defaultFastLogHandle = nullptr;

// The handle is never deleted: sites may log until the very end of the process.
void openDefaultLog() {
  char const* const directory = ::secure_getenv("HWTABLES_FASTLOG");
  if (defaultFastLogHandle != nullptr || directory == nullptr || *directory == '\0') return;
  try {
    defaultFastLogHandle = new TraceHandle(defaultPath(directory));
  } catch (Dovel::Exception const& failure) {
    fmt::print(stderr, "hwtables: no fast log: {}\n", failure.msg());
  }
}

namespace {

[[maybe_unused]] bool const opened = (openDefaultLog(), true);

}  // namespace
}  // namespace FastLog
