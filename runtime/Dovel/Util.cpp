#include "runtime/Dovel/Util.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/Log.h"
#include "runtime/Orlo/TraceHandle.h"

namespace Dovel::Util {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("CoreDump")

constexpr char const* kFilterPath = "/proc/self/coredump_filter";

// As core(5) numbers them: anonymous, file-backed, huge-page and DAX mappings that are shared.
constexpr unsigned long kSharedMappings = 1UL << 1 | 1UL << 3 | 1UL << 6 | 1UL << 8;

class FilterFile {
 public:
  explicit FilterFile(int flags) : descriptor_(::open(kFilterPath, flags | O_CLOEXEC)) {}
  FilterFile(FilterFile const&) = delete;
  FilterFile& operator=(FilterFile const&) = delete;
  ~FilterFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }

  bool isOpen() const { return descriptor_ >= 0; }
  bool read(unsigned long& bits) const {
    char text[32];
    auto const length = ::read(descriptor_, text, sizeof text);
    return length > 0 && std::from_chars(text, text + length, bits, 16).ec == std::errc();
  }
  bool write(unsigned long bits) const {
    std::string const text = fmt::format("0x{:x}", bits);
    return ::write(descriptor_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }

 private:
  int descriptor_;
};

bool setBits() {
  FilterFile const file(O_RDWR);
  unsigned long bits = 0;
  return file.isOpen() && file.read(bits) && file.write(bits | kSharedMappings);
}

}  // namespace

void emitCanaryLog(Platform::DebugHandler const& handler, String const& text) noexcept {
  DOVEL_TRACE(handler, 1, "", "{}", text);
  Orlo::Impl::logText(LOG_INFO, text.data());
}

void includeShmemInCore() noexcept {
  int const before = errno;
  try {
    if (!setBits()) {
      DOVEL_TRACE(_defaultTraceHandle(), 1, "", "shared memory stays out of core dumps: {}: {}", kFilterPath,
                  ::strerrordesc_np(errno));
    }
  } catch (std::exception const& failure) {
    DOVEL_TRACE(_defaultTraceHandle(), 1, "", "shared memory stays out of core dumps: {}", failure.what());
  }
  errno = before;
}

}  // namespace Dovel::Util
