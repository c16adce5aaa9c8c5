// The names of an enumerated type, for text forms. Static data; any thread.
#pragma once

#include <span>
#include <string_view>
#include <type_traits>

#include "runtime/Orlo/CharRange.h"

namespace Orlo {

class EnumType {
 public:
  struct Enumerator {
    std::string_view name;
    unsigned value;
  };

  // module and number name the type within the unit that defines it; the enumerators must outlive the object.
  constexpr EnumType(std::string_view module, unsigned number, std::string_view name,
                     std::span<Enumerator const> enumerators)
      : module_(module), number_(number), name_(name), enumerators_(enumerators) {}

  std::string_view module() const { return module_; }
  unsigned number() const { return number_; }
  std::string_view name() const { return name_; }
  std::span<Enumerator const> enumerators() const { return enumerators_; }

  // Each throws Dovel::RangeException, listing what is legal, where there is no such enumerator.
  Enumerator const& instance(unsigned value) const;
  Enumerator const& instance(std::string_view name) const;
  // Reads an enumerator's name.
  Enumerator const& sequenceToValue(CharRange& range) const { return instance(range.needName()); }
  // The name, or the bare number where a stored value is none of the enumerators: printing never fails.
  Dovel::String stringValue(unsigned value) const;

 private:
  [[noreturn]] void throwUnknown(std::string_view given) const;

  std::string_view module_;
  unsigned number_;
  std::string_view name_;
  std::span<Enumerator const> enumerators_;
};

// Reads *value from the whole string, for enumerated types with a sequenceToValue(CharRange&, Enum*).
template <class Enum>
  requires std::is_enum_v<Enum>
void strepToValue(Dovel::String const& text, Enum* value) {
  CharRange range(text.view());
  Enum read{};
  sequenceToValue(range, &read);
  CharRangeCheckAllDataConsumed(range);
  *value = read;
}

}  // namespace Orlo
