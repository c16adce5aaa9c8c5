#include "runtime/Dovel/Format.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>

#include "runtime/Dovel/TraceOutput.h"

namespace Dovel::Impl {

// Every format was checked at compile time, but a formatter of a user's type may still throw.
String messageText(fmt::string_view format, fmt::format_args args) {
  auto const unformatted = [&](char const* reason) {
    return std::string(format.data(), format.size()) + " (not formatted: " + reason + ")";
  };
  try {
    return fmt::vformat(format, args);
  } catch (std::exception const& failure) {
    return unformatted(failure.what());
  } catch (...) {
    return unformatted("unknown exception");
  }
}

String vfmtracestr(bool withPlace, char const* className, char const* file, char const* function, int line,
                   fmt::string_view format, fmt::format_args args) {
  String text = messageText(format, args);
  if (!withPlace) return text;
  return String(placeText(className, file, function, line)).append(" ").append(text);
}

void vfmthrow(Raise raise, char const* className, char const* file, char const* function, int line,
              fmt::string_view format, fmt::format_args args) {
  raise(vfmtracestr(false, className, file, function, line, format, args));
  std::abort();
}

void vfmassert(char const* className, char const* file, char const* function, int line,
               fmt::string_view format, fmt::format_args args) noexcept {
  String const text = vfmtracestr(false, className, file, function, line, format, args).append("\n");
  writeText(STDERR_FILENO, text);
  std::abort();
}

}  // namespace Dovel::Impl
