// Reporting calls: trace, text, throw, assert. Each call packs its arguments and makes one call of a function
// that is not a template, so that a call site costs little code. Formats are checked by the compiler. Any
// thread may call them. The sinks are Orlo::TraceHandle and Dovel::Platform::DebugHandler.
#pragma once

#include <fmt/core.h>

#include <type_traits>

#include "runtime/Dovel/String.h"

namespace Dovel {

// A format in brace syntax that was checked against its arguments at compile time; written as a literal.
template <class... Args>
class FormatText {
 public:
  template <std::size_t N>
  consteval FormatText(char const (&format)[N]) : text_(format, N - 1) {
    [[maybe_unused]] fmt::format_string<Args...> check(format);
  }
  fmt::string_view view() const { return text_; }

 private:
  fmt::string_view text_;
};

namespace Impl {

template <class Sink>
void vfmtrace(Sink const& sink, unsigned short level, char const* className, char const* file,
              char const* function, int line, fmt::string_view format, fmt::format_args args);

// The message alone. Where a formatter throws, the bare format and the reason.
String messageText(fmt::string_view format, fmt::format_args args);

String vfmtracestr(bool withPlace, char const* className, char const* file, char const* function, int line,
                   fmt::string_view format, fmt::format_args args);

using Raise = void (*)(String const& message);

[[noreturn]] void vfmthrow(Raise raise, char const* className, char const* file, char const* function,
                           int line, fmt::string_view format, fmt::format_args args);

template <class Sink>
[[noreturn]] void vfmthrow(Raise raise, Sink const& sink, unsigned short level, char const* className,
                           char const* file, char const* function, int line, fmt::string_view format,
                           fmt::format_args args);

[[noreturn]] void vfmassert(char const* className, char const* file, char const* function, int line,
                            fmt::string_view format, fmt::format_args args) noexcept;

template <class Sink>
[[noreturn]] void vfmassert(Sink const& sink, char const* className, char const* file, char const* function,
                            int line, fmt::string_view format, fmt::format_args args) noexcept;

}  // namespace Impl

// Writes one trace line. The caller has tested the sink's mask; DOVEL_TRACE does both. className is null or
// empty for free functions. A trace that can't be written or formatted is dropped; it never fails the caller.
template <class Sink, class... Args>
void fmtrace(Sink const& sink, unsigned short level, char const* file, char const* function, int line,
             char const* className, FormatText<std::type_identity_t<Args>...> format, Args const&... args) {
  Impl::vfmtrace<Sink>(sink, level, className, file, function, line, format.view(),
                       fmt::make_format_args(args...));
}

// The text that a trace would print: the message alone, or with its place in the source before it.
template <class... Args>
String fmtracestr(bool withPlace, char const* className, char const* file, char const* function, int line,
                  FormatText<std::type_identity_t<Args>...> format, Args const&... args) {
  return Impl::vfmtracestr(withPlace, className, file, function, line, format.view(),
                           fmt::make_format_args(args...));
}

// Throws Exception with the formatted message.
template <class Exception, class... Args>
[[noreturn]] void fmthrow(char const* className, char const* file, char const* function, int line,
                          FormatText<std::type_identity_t<Args>...> format, Args const&... args) {
  Impl::vfmthrow(&Exception::throwException, className, file, function, line, format.view(),
                 fmt::make_format_args(args...));
}

// The same, and traces the message at the given level where it is on.
template <class Exception, class Sink, class... Args>
[[noreturn]] void fmthrow(Sink const& sink, unsigned short level, char const* className, char const* file,
                          char const* function, int line, FormatText<std::type_identity_t<Args>...> format,
                          Args const&... args) {
  Impl::vfmthrow<Sink>(&Exception::throwException, sink, level, className, file, function, line,
                       format.view(), fmt::make_format_args(args...));
}

// Prints the message to standard error and ends the process by abort(); nothing unwinds.
template <class... Args>
[[noreturn]] void fmassert(char const* className, char const* file, char const* function, int line,
                           FormatText<std::type_identity_t<Args>...> format, Args const&... args) {
  Impl::vfmassert(className, file, function, line, format.view(), fmt::make_format_args(args...));
}

// The same, after a level 0 trace of the message where that level is on: a trace file then tells the end,
// too.
template <class Sink, class... Args>
[[noreturn]] void fmassert(Sink const& sink, char const* className, char const* file, char const* function,
                           int line, FormatText<std::type_identity_t<Args>...> format, Args const&... args) {
  Impl::vfmassert<Sink>(sink, className, file, function, line, format.view(), fmt::make_format_args(args...));
}

}  // namespace Dovel

// Traces at a level of 0 to 15 where it is on; otherwise nothing of the call is evaluated.
#define DOVEL_TRACE(sink, level, className, ...)                                                    \
  do {                                                                                              \
    auto const& dovelSink = (sink);                                                                 \
    if (dovelSink.isOn(level)) [[unlikely]]                                                         \
      ::Dovel::fmtrace(dovelSink, static_cast<unsigned short>(level), __FILE__, __func__, __LINE__, \
                       className, __VA_ARGS__);                                                     \
  } while (false)

// The text that a trace at this place would print.
#define DOVEL_TRACESTR(className, ...) \
  ::Dovel::fmtracestr(false, static_cast<char const*>(className), __FILE__, __func__, __LINE__, __VA_ARGS__)

#define DOVEL_THROW(Exception, className, ...) \
  ::Dovel::fmthrow<Exception>(static_cast<char const*>(className), __FILE__, __func__, __LINE__, __VA_ARGS__)

// Ends the process with the message where the condition fails. It is tested in every build.
#define DOVEL_ASSERT(condition, className, ...)                                                          \
  do {                                                                                                   \
    if (!(condition)) [[unlikely]]                                                                       \
      ::Dovel::fmassert(static_cast<char const*>(className), __FILE__, __func__, __LINE__, __VA_ARGS__); \
  } while (false)
