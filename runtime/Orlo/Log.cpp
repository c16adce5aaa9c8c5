#include "runtime/Orlo/Log.h"

#include <fmt/format.h>
#include <pthread.h>
#include <syslog.h>

#include <atomic>
#include <cerrno>
#include <mutex>

#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace Orlo {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("Log")

std::atomic<LogBackEnd> backEndOfProcess = nullptr;

// One mutex for the limits of all handles: messages are rare, and a child of fork() must find it free.
std::mutex& limitMutex() {
  static std::mutex& mutex = *[] {
    static auto* const made = new std::mutex;
    ::pthread_atfork([] { made->lock(); }, [] { made->unlock(); }, [] { made->unlock(); });
    return made;
  }();
  return mutex;
}

}  // namespace

LogHandle::LogHandle(LogDescriptor const& descriptor, Dovel::Duration interval, double growth,
                     unsigned perWindow, unsigned most, std::source_location place)
    : descriptor_(descriptor), place_(place), limit_(interval, growth, perWindow, most) {
  limitMutex();
}

LogHandle::~LogHandle() {
  try {
    if (limit_.suppressed() > 0) emit(fmt::format("{} similar messages suppressed", limit_.suppressed()));
  } catch (...) {
    return;
  }
}

void LogHandle::vlog(fmt::format_args args) noexcept {
  int const before = errno;
  try {
    LogLimit::Verdict verdict;
    {
      std::scoped_lock const lock(limitMutex());
      verdict = limit_.admit(std::chrono::steady_clock::now());
    }
    if (verdict.suppressed > 0) emit(fmt::format("{} similar messages suppressed", verdict.suppressed));
    if (verdict.passes) emit(Impl::printfText(descriptor_.format, args));
    if (verdict.isLast) emit("no more messages of this kind will be logged by this process");
  } catch (...) {
    Impl::logText(descriptor_.severity, descriptor_.name);
  }
  errno = before;
}

void LogHandle::emit(std::string_view text) const {
  std::string const message = fmt::format("{}: {}", descriptor_.name, text);
  auto const& trace = _defaultTraceHandle();
  if (trace.isOn(0)) {
    Dovel::fmtrace(trace, 0, place_.file_name(), "log", static_cast<int>(place_.line()), "LogHandle", "{}",
                   message);
  }
  Impl::logText(descriptor_.severity, message.c_str());
}

LogBackEnd logBackEndIs(LogBackEnd backEnd) { return backEndOfProcess.exchange(backEnd); }

void Impl::logText(int severity, char const* text) noexcept {
  int const before = errno;
  if (LogBackEnd const backEnd = backEndOfProcess.load(); backEnd != nullptr) {
    backEnd(severity, text);
  } else {
    ::syslog(LOG_PRI(severity), "%s", text);
  }
  errno = before;
}

}  // namespace Orlo
