// Reading values from text. A CharRange is a cursor over bytes that it does not own; one thread at a time.
//
// The grammar: a number is decimal or 0x and hex digits. A value with attributes is
//     Type(attr:value,attr:value)
// with its attributes in declaration order; Type is the type's whole name or its last components. A value of
// one attribute may be given as its bare number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/String.h"

namespace Orlo {

// Text that is not of the grammar. The message shows the text, what was expected, and where.
class ParseException : public Dovel::RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~ParseException() override;
  [[noreturn]] static void throwException(Dovel::String const& message);
};

class CharRange {
 public:
  explicit CharRange(std::string_view text) : text_(text) {}

  std::string_view rest() const { return text_.substr(at_); }
  bool atEnd() const { return at_ == text_.size(); }

  // Reads "Type(attr:", the start of a value with attributes.
  void needPre(std::string_view typeName, std::string_view attrName);
  // Reads ",attr:", what stands before each further attribute.
  void needSep(std::string_view attrName);

  // The same three steps for a value of one plain attribute: "Type(", "attr:", ")".
  void desAttrPre(std::string_view typeName);
  void desAttrIntra(std::string_view attrName);
  void desAttrPost();

  // Reads a number. Throws RangeException, naming the attribute and the legal range, where it is above max.
  std::uint64_t deserializeAttr(std::string_view attrName,
                                std::uint64_t max = std::numeric_limits<std::uint64_t>::max());
  // Reads the only attribute of a type: "Type(attr:number)" or the bare number.
  std::uint64_t deserializeOnlyAttr(std::string_view typeName, std::string_view attrName, std::uint64_t max);

  // Reads a number; one past 64 bits reads as the largest.
  std::uint64_t needNumber();
  // Reads an identifier: letters, digits and underscores.
  std::string_view needName();

  [[noreturn]] void failExpected(std::string_view what) const;

 private:
  void need(std::string_view literal);
  bool startsWithDigit() const;

  std::string_view text_;
  std::size_t at_ = 0;
};

// Closes the text of a value with attributes when it goes out of scope. An error thrown while reading the
// attributes takes precedence over a missing end.
class DesAttrPost {
 public:
  explicit DesAttrPost(CharRange& range);
  ~DesAttrPost() noexcept(false);
  DesAttrPost(DesAttrPost const&) = delete;
  DesAttrPost& operator=(DesAttrPost const&) = delete;

 private:
  CharRange& range_;
  int const exceptions_;
};

// Throws ParseException where the text goes on after the value.
void CharRangeCheckAllDataConsumed(CharRange const& range);

// Throws the exception again with the attribute's name before its message.
[[noreturn]] void rethrowFromDeserializeAttr(Dovel::RangeException const& exception,
                                             std::string_view attrName);

// Reads *value from the whole string. Throws ParseException or RangeException, and then leaves *value as it
// was.
template <class T>
void strepToValue(Dovel::String const& text, T* value) {
  CharRange range(text.view());
  T read(range);
  CharRangeCheckAllDataConsumed(range);
  *value = read;
}

}  // namespace Orlo
