// The base library's string. A plain value: copy it freely, share it between threads only as any std value.
#pragma once

#include <fmt/core.h>

#include <algorithm>
#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace Dovel {
namespace Impl {

// The body of Dovel::String. The bytes are not interpreted; data() is NUL-terminated.
class StrB {
 public:
  StrB() = default;
  StrB(char const* text) : body_(text) {}
  StrB(std::string_view text) : body_(text) {}
  StrB(std::string text) : body_(std::move(text)) {}

  StrB& operator=(char const* text) { return assign(text); }
  StrB& assign(std::string_view text) {
    body_.assign(text);
    return *this;
  }
  StrB& append(std::string_view text) {
    body_.append(text);
    return *this;
  }

  char const* data() const { return body_.c_str(); }
  std::size_t size() const { return body_.size(); }
  bool empty() const { return body_.empty(); }
  std::string_view view() const { return body_; }
  operator std::string_view() const { return body_; }

  // The bytes from pos on, at most len of them; empty where pos lies past the end.
  StrB substrOrEmpty(std::size_t pos, std::size_t len = std::string::npos) const {
    return pos >= body_.size() ? StrB() : StrB(body_.substr(pos, len));
  }

  friend bool operator==(StrB const& a, StrB const& b) = default;
  friend std::strong_ordering operator<=>(StrB const& a, StrB const& b) = default;
  friend bool operator==(StrB const& a, char const* b) { return a.body_ == b; }
  friend bool operator==(StrB const& a, std::string_view b) { return a.body_ == b; }
  friend std::ostream& operator<<(std::ostream& out, StrB const& text) { return out << text.body_; }

 private:
  std::string body_;
};

}  // namespace Impl

using String = Impl::StrB;

// Base of the fmt formatters of types that are always written as one plain text: "{}" is the only form.
struct PlainFormatter {
  constexpr fmt::format_parse_context::iterator parse(fmt::format_parse_context& context) {
    return context.begin();
  }

 protected:
  static fmt::format_context::iterator write(std::string_view text, fmt::format_context& context) {
    return std::copy(text.begin(), text.end(), context.out());
  }
};

}  // namespace Dovel

template <>
struct fmt::formatter<Dovel::String> : Dovel::PlainFormatter {
  auto format(Dovel::String const& text, fmt::format_context& context) const { return write(text, context); }
};

template <>
struct std::hash<Dovel::String> {
  std::size_t operator()(Dovel::String const& text) const {
    return std::hash<std::string_view>()(text.view());
  }
};
