// Assertions of table code: by default a failed one throws, so that the agent's top level can decide to
// restart; with GRACEFUL_ASSERT_MODE=assert it ends the process where it stands. Any thread may assert; the
// mode never changes once static initialisation is over.
#pragma once

#include <exception>
#include <string>

#include "runtime/Dovel/Format.h"

namespace Asic {

namespace Impl {

// Reads the environment once per process, whichever unit or library comes first.
bool modeOfProcess();

[[noreturn]] void vthrowGracefulAssertException(char const* file, int line, char const* condition,
                                                fmt::string_view format, fmt::format_args args);

}  // namespace Impl

// True where failed assertions end the process: GRACEFUL_ASSERT_MODE is exactly "assert". Every unit that
// includes this may read it in its own static initialisers.
inline bool const mode = Impl::modeOfProcess();

class OrderedTableException : public std::exception {
 public:
  explicit OrderedTableException(std::string message) : message_(std::move(message)) {}
  OrderedTableException(OrderedTableException const&) = default;
  OrderedTableException& operator=(OrderedTableException const&) = default;
  ~OrderedTableException() override;

  char const* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};

class GracefulAssertException : public OrderedTableException {
 public:
  using OrderedTableException::OrderedTableException;
  ~GracefulAssertException() override;
};

// Throws GracefulAssertException with the place and the text of the condition before the formatted message.
template <class... Args>
[[noreturn]] void throwGracefulAssertException(char const* file, int line, char const* condition,
                                               Dovel::FormatText<std::type_identity_t<Args>...> format,
                                               Args const&... args) {
  Impl::vthrowGracefulAssertException(file, line, condition, format.view(), fmt::make_format_args(args...));
}

}  // namespace Asic

// Asserts the condition in the style of the process; conditionText is what the exception shows for it,
// followed by the format and its arguments. Where the process would end, the condition is evaluated once
// more: one that holds by then lets the caller go on.
#define ASIC_GRACEFUL_ASSERT(condition, conditionText, ...)                                   \
  do {                                                                                        \
    if (!(condition)) [[unlikely]] {                                                          \
      if (!::Asic::mode)                                                                      \
        ::Asic::throwGracefulAssertException(__FILE__, __LINE__, conditionText, __VA_ARGS__); \
      DOVEL_ASSERT(condition, nullptr, __VA_ARGS__);                                          \
    }                                                                                         \
  } while (false)

// For a place that is wrong to reach: fails in the style of the process, and never goes on.
#define ASIC_GRACEFUL_FAIL(conditionText, ...)                                                               \
  do {                                                                                                       \
    if (!::Asic::mode) ::Asic::throwGracefulAssertException(__FILE__, __LINE__, conditionText, __VA_ARGS__); \
    ::Dovel::fmassert(static_cast<char const*>(nullptr), __FILE__, __func__, __LINE__, __VA_ARGS__);         \
  } while (false)
