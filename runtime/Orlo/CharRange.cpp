#include "runtime/Orlo/CharRange.h"

#include <charconv>
#include <exception>

#include "runtime/Dovel/Format.h"

namespace Orlo {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isNameChar(char c) { return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }

// Whether the given name is the type's whole name or its last components.
bool namesType(std::string_view given, std::string_view typeName) {
  if (!typeName.ends_with(given)) return false;
  std::string_view const before = typeName.substr(0, typeName.size() - given.size());
  return before.empty() || before.ends_with("::");
}

}  // namespace

ParseException::~ParseException() = default;
void ParseException::throwException(Dovel::String const& message) { throw ParseException(message); }

void CharRange::failExpected(std::string_view what) const {
  DOVEL_THROW(ParseException, "CharRange", "cannot read \"{}\": expected {} at offset {}", text_, what, at_);
}

void CharRange::need(std::string_view literal) {
  if (!rest().starts_with(literal)) failExpected(literal);
  at_ += literal.size();
}

bool CharRange::startsWithDigit() const { return !atEnd() && isDigit(text_[at_]); }

void CharRange::needPre(std::string_view typeName, std::string_view attrName) {
  desAttrPre(typeName);
  desAttrIntra(attrName);
}

void CharRange::needSep(std::string_view attrName) {
  need(",");
  desAttrIntra(attrName);
}

void CharRange::desAttrPre(std::string_view typeName) {
  std::size_t const open = rest().find('(');
  if (open == std::string_view::npos || !namesType(rest().substr(0, open), typeName)) {
    failExpected(Dovel::String(typeName).append("("));
  }
  at_ += open + 1;
}

void CharRange::desAttrIntra(std::string_view attrName) {
  need(attrName);
  need(":");
}

void CharRange::desAttrPost() { need(")"); }

std::uint64_t CharRange::deserializeAttr(std::string_view attrName, std::uint64_t max) {
  std::uint64_t const number = needNumber();
  if (number > max) {
    DOVEL_THROW(Dovel::RangeException, "CharRange", "{}: {} not allowed, 0 to {}", attrName, number, max);
  }
  return number;
}

std::uint64_t CharRange::deserializeOnlyAttr(std::string_view typeName, std::string_view attrName,
                                             std::uint64_t max) {
  if (startsWithDigit()) return deserializeAttr(attrName, max);
  needPre(typeName, attrName);
  std::uint64_t const number = deserializeAttr(attrName, max);
  desAttrPost();
  return number;
}

std::uint64_t CharRange::needNumber() {
  if (!startsWithDigit()) failExpected("a number");
  int const base = rest().starts_with("0x") ? 16 : 10;
  std::string_view const digits = base == 16 ? rest().substr(2) : rest();
  std::uint64_t number = 0;
  auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
  if (error == std::errc::invalid_argument) failExpected("a number");
  if (error == std::errc::result_out_of_range) number = std::numeric_limits<std::uint64_t>::max();
  at_ = static_cast<std::size_t>(end - text_.data());
  return number;
}

std::string_view CharRange::needName() {
  std::string_view const from = rest();
  std::size_t length = 0;
  while (length < from.size() && isNameChar(from[length])) ++length;
  if (length == 0) failExpected("a name");
  at_ += length;
  return from.substr(0, length);
}

DesAttrPost::DesAttrPost(CharRange& range) : range_(range), exceptions_(std::uncaught_exceptions()) {}

DesAttrPost::~DesAttrPost() noexcept(false) {
  if (std::uncaught_exceptions() == exceptions_) range_.desAttrPost();
}

void CharRangeCheckAllDataConsumed(CharRange const& range) {
  if (!range.atEnd()) range.failExpected("the end of the text");
}

void rethrowFromDeserializeAttr(Dovel::RangeException const& exception, std::string_view attrName) {
  DOVEL_THROW(Dovel::RangeException, "CharRange", "{}: {}", attrName, exception.msg());
}

}  // namespace Orlo
