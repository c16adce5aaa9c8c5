// The forms of the reporting calls that take a sink.
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>

#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Dovel/TraceOutput.h"
#include "runtime/Orlo/TraceHandle.h"

namespace Dovel::Impl {
namespace {

using Line = fmt::memory_buffer;

// By the calendar of std::chrono: gmtime_r takes a lock that a child of fork() may find held for ever.
void appendTime(Line& line) {
  using namespace std::chrono;
  auto const now = floor<microseconds>(system_clock::now());
  auto const day = floor<days>(now);
  year_month_day const date(day);
  hh_mm_ss const time(now - day);
  fmt::format_to(fmt::appender(line), "{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:06}Z",
                 static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                 static_cast<unsigned>(date.day()), time.hours().count(), time.minutes().count(),
                 time.seconds().count(), time.subseconds().count());
}

// Further lines of a message begin with a tab, so that a line that doesn't is always a trace of its own.
void appendMessage(Line& line, std::string_view message) {
  while (message.ends_with('\n')) message.remove_suffix(1);
  for (auto end = message.find('\n'); end != std::string_view::npos; end = message.find('\n')) {
    line.append(message.substr(0, end + 1));
    line.push_back('\t');
    message.remove_prefix(end + 1);
  }
  line.append(message);
  line.push_back('\n');
}

struct Place {
  char const* className;
  char const* file;
  char const* function;
  int line;
};

void writeLine(std::string_view name, unsigned short level, Place const& place, std::string_view message) {
  Line line;
  appendTime(line);
  fmt::format_to(fmt::appender(line), " {} {} {} {} ", ::getpid(), name, level,
                 placeText(place.className, place.file, place.function, place.line));
  appendMessage(line, message);
  writeTrace({line.data(), line.size()});
}

// No failure of a trace is its caller's business: neither an exception nor errno gets out.
void trace(std::string_view name, unsigned short level, Place const& place, fmt::string_view format,
           fmt::format_args args) noexcept {
  int const before = errno;
  try {
    writeLine(name, level, place, messageText(format, args));
  } catch (...) {
    writeTrace("a trace was lost for want of memory\n");
  }
  errno = before;
}

void trace(std::string_view name, unsigned short level, Place const& place, String const& message) noexcept {
  trace(name, level, place, "{}", fmt::make_format_args(message));
}

}  // namespace

template <class Sink>
void vfmtrace(Sink const& sink, unsigned short level, char const* className, char const* file,
              char const* function, int line, fmt::string_view format, fmt::format_args args) {
  trace(sink.name(), level, {className, file, function, line}, format, args);
}

template <class Sink>
void vfmthrow(Raise raise, Sink const& sink, unsigned short level, char const* className, char const* file,
              char const* function, int line, fmt::string_view format, fmt::format_args args) {
  String const message = messageText(format, args);
  if (sink.isOn(level)) trace(sink.name(), level, {className, file, function, line}, message);
  raise(message);
  std::abort();
}

template <class Sink>
void vfmassert(Sink const& sink, char const* className, char const* file, char const* function, int line,
               fmt::string_view format, fmt::format_args args) noexcept {
  String const message = messageText(format, args);
  if (sink.isOn(0)) trace(sink.name(), 0, {className, file, function, line}, message);
  vfmassert(className, file, function, line, "{}", fmt::make_format_args(message));
}

#define DOVEL_INSTANTIATE_SINK(Sink)                                                                     \
  template void vfmtrace(Sink const&, unsigned short, char const*, char const*, char const*, int,        \
                         fmt::string_view, fmt::format_args);                                            \
  template void vfmthrow(Raise, Sink const&, unsigned short, char const*, char const*, char const*, int, \
                         fmt::string_view, fmt::format_args);                                            \
  template void vfmassert(Sink const&, char const*, char const*, char const*, int, fmt::string_view,     \
                          fmt::format_args) noexcept;

DOVEL_INSTANTIATE_SINK(Orlo::TraceHandle)
DOVEL_INSTANTIATE_SINK(Platform::DebugHandler)

}  // namespace Dovel::Impl
