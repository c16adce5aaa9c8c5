// The printf syntax of log messages.
#include <fmt/args.h>
#include <fmt/printf.h>

#include <type_traits>

#include "runtime/Orlo/Log.h"

namespace Orlo {
namespace {

using PrintfArguments = fmt::dynamic_format_arg_store<fmt::printf_context>;

// Carries one packed argument over to the other syntax.
class Carry {
 public:
  explicit Carry(PrintfArguments& to) : to_(to) {}

  template <class Value>
  void operator()(Value const& value) const {
    if constexpr (std::is_arithmetic_v<Value> || std::is_same_v<Value, void const*>) {
      to_.push_back(value);
    } else if constexpr (std::is_same_v<Value, char const*>) {
      to_.push_back(std::string(value == nullptr ? "(null)" : value));
    } else if constexpr (std::is_same_v<Value, fmt::string_view>) {
      to_.push_back(std::string(value.data(), value.size()));
    } else if constexpr (std::is_same_v<Value, fmt::format_args::format_arg::handle>) {
      to_.push_back(ownText(value));
    } else {
      throw fmt::format_error("an argument of this type cannot be logged");
    }
  }

 private:
  static std::string ownText(fmt::format_args::format_arg::handle value) {
    fmt::memory_buffer text;
    fmt::format_parse_context parse("");
    fmt::format_context context(fmt::appender(text), {});
    value.format(parse, context);
    return fmt::to_string(text);
  }

  PrintfArguments& to_;
};

std::string filled(char const* format, fmt::format_args args) {
  PrintfArguments arguments;
  for (int i = 0; auto const argument = args.get(i); ++i) fmt::visit_format_arg(Carry(arguments), argument);
  return fmt::vsprintf(fmt::string_view(format), fmt::basic_format_args<fmt::printf_context>(arguments));
}

}  // namespace

std::string Impl::printfText(char const* format, fmt::format_args args) {
  try {
    return filled(format, args);
  } catch (std::exception const& failure) {
    return std::string(format) + " (not formatted: " + failure.what() + ")";
  }
}

}  // namespace Orlo
