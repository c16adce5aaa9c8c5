#include "runtime/Dovel/TraceOutput.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "runtime/Dovel/WriteSignals.h"

namespace Dovel::Impl {
namespace {

class KeepErrno {
 public:
  KeepErrno() = default;
  KeepErrno(KeepErrno const&) = delete;
  KeepErrno& operator=(KeepErrno const&) = delete;
  ~KeepErrno() { errno = before_; }

 private:
  int before_ = errno;
};

int openOutput() {
  char const* const path = ::secure_getenv("HWTABLES_TRACE_FILE");
  if (path == nullptr || *path == '\0') return STDERR_FILENO;
  // A pipe without a reader is an error here instead of a wait; later writes do wait for a slow one.
  int const file = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644);
  if (file >= 0) {
    ::fcntl(file, F_SETFL, O_APPEND);
    return file;
  }
  int const error = errno;
  tellUser(fmt::format("cannot open HWTABLES_TRACE_FILE {}: {}; traces go to standard error", path,
                       ::strerrordesc_np(error)));
  return STDERR_FILENO;
}

}  // namespace

void writeText(int descriptor, std::string_view text) noexcept {
  KeepErrno const keep;
  WriteSignals signals;
  while (!text.empty()) {
    auto const written = ::write(descriptor, text.data(), text.size());
    if (written == 0) return;
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      signals.failedWith(errno);
      return;
    }
  }
}

void writeTrace(std::string_view text) noexcept {
  KeepErrno const keep;
  try {
    static int const output = openOutput();
    writeText(output, text);
  } catch (...) {
    return;
  }
}

void tellUser(std::string_view message) noexcept {
  try {
    writeText(STDERR_FILENO, fmt::format("hwtables: {}\n", message));
  } catch (...) {
    return;
  }
}

std::string placeText(char const* className, char const* file, char const* function, int line) {
  bool const inClass = className != nullptr && *className != '\0';
  return fmt::format("{}:{} {}{}{}", file == nullptr ? "" : file, line, inClass ? className : "",
                     inClass ? "::" : "", function == nullptr ? "" : function);
}

}  // namespace Dovel::Impl
