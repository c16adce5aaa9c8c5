#include "runtime/Asic/GracefulAssert.h"

#include <fmt/format.h>

#include <cstdlib>
#include <string_view>

namespace Asic {

OrderedTableException::~OrderedTableException() = default;
GracefulAssertException::~GracefulAssertException() = default;

bool Impl::modeOfProcess() {
  static bool const asserts = [] {
    char const* const value = std::getenv("GRACEFUL_ASSERT_MODE");
    return value != nullptr && std::string_view(value) == "assert";
  }();
  return asserts;
}

void Impl::vthrowGracefulAssertException(char const* file, int line, char const* condition,
                                         fmt::string_view format, fmt::format_args args) {
  Dovel::String const text = Dovel::Impl::messageText(format, args);
  throw GracefulAssertException(
      fmt::format("AssertionError at {}:{} ({}) - {}", file, line, condition, text));
}

}  // namespace Asic
