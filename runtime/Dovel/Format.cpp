#include "runtime/Dovel/Format.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>

namespace Dovel::Impl {
namespace {

// Every format was checked at compile time, but a formatter of a user's type may still throw.
std::string message(fmt::string_view format, fmt::format_args args) {
  try {
    return fmt::vformat(format, args);
  } catch (std::exception const& failure) {
    return std::string(format.data(), format.size()) + " (not formatted: " + failure.what() + ")";
  }
}

}  // namespace

String vfmtracestr(bool withPlace, char const* className, char const* file, char const* function, int line,
                   fmt::string_view format, fmt::format_args args) {
  std::string text = message(format, args);
  if (!withPlace) return text;
  bool const inClass = className != nullptr && *className != '\0';
  return fmt::format("{}:{} {}{}{} {}", file, line, inClass ? className : "", inClass ? "::" : "", function, text);
}

void vfmthrow(Raise raise, char const* className, char const* file, char const* function, int line,
              fmt::string_view format, fmt::format_args args) {
  raise(vfmtracestr(false, className, file, function, line, format, args));
  std::abort();
}

void vfmassert(char const* className, char const* file, char const* function, int line, fmt::string_view format,
               fmt::format_args args) {
  String text = vfmtracestr(false, className, file, function, line, format, args).append("\n");
  [[maybe_unused]] auto written = ::write(STDERR_FILENO, text.data(), text.size());
  std::abort();
}

}  // namespace Dovel::Impl
