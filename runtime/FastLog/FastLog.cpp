#include "runtime/FastLog/FastLog.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <exception>

#include "runtime/Dovel/TraceOutput.h"

namespace FastLog {
namespace {

// The time, beside the pid, keeps apart the programs that one process runs one after the other.
std::string defaultPath(char const* directory) {
  using namespace std::chrono;
  auto const now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
  return fmt::format("{}/hwtables-{}-{}.{:06}.fastlog", directory, ::getpid(), now / 1'000'000,
                     now % 1'000'000);
}

// A process that had nothing to log, such as one that prints a help text, leaves no file behind.
void removeEmptyLog() {
  if (defaultFastLogHandle == nullptr) return;
  TraceFile const& file = *defaultFastLogHandle->mtTraceFile();
  if (file.isEmpty()) ::unlink(file.path().c_str());
}

}  // namespace

TraceHandle* defaultFastLogHandle = nullptr;

// The handle is never deleted: sites may log until the very end of the process.
void openDefaultLog() {
  char const* const directory = ::secure_getenv("HWTABLES_FASTLOG");
  if (defaultFastLogHandle != nullptr || directory == nullptr || *directory == '\0') return;
  try {
    defaultFastLogHandle = new TraceHandle(defaultPath(directory));
    [[maybe_unused]] static bool const registered = std::atexit(removeEmptyLog) == 0;
  } catch (std::exception const& failure) {
    Dovel::Impl::tellUser(std::string("no fast log: ") + failure.what());
  }
}

namespace {

[[maybe_unused]] bool const opened = (openDefaultLog(), true);

}  // namespace
}  // namespace FastLog
