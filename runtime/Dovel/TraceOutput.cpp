#include "runtime/Dovel/TraceOutput.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace Dovel::Impl {
namespace {

// Holds back the signals that a failed write sends to its thread, so that they can be taken back.
class WriteSignals {
 public:
  WriteSignals() {
    ::sigemptyset(&blocked_);
    ::sigaddset(&blocked_, SIGPIPE);
    ::sigaddset(&blocked_, SIGXFSZ);
    ::pthread_sigmask(SIG_BLOCK, &blocked_, &before_);
  }
  WriteSignals(WriteSignals const&) = delete;
  WriteSignals& operator=(WriteSignals const&) = delete;
  ~WriteSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  void failedWith(int error) {
    int const number = error == EPIPE ? SIGPIPE : error == EFBIG ? SIGXFSZ : 0;
    // Where the caller holds the signal back itself, one more pending does no harm and may be the caller's
    // own.
    if (number == 0 || ::sigismember(&before_, number) == 1) return;
    sigset_t one;
    ::sigemptyset(&one);
    ::sigaddset(&one, number);
    timespec const now{};
    ::sigtimedwait(&one, nullptr, &now);
  }

 private:
  sigset_t blocked_;
  sigset_t before_;
};

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
  char const* const path = std::getenv("HWTABLES_TRACE_FILE");
  if (path == nullptr || *path == '\0') return STDERR_FILENO;
  int const file = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (file >= 0) return file;
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
