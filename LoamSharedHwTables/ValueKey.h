// The key of a table whose rows are numbered: one value. Traits gives entryKeyTypeName and nullKey, the
// number one past the last row, which is itself a legal value and names no row. See KeyRecord.h for the
// thread rule.
#pragma once

#include <array>

#include "LoamSharedHwTables/KeyRecord.h"

namespace LoamSharedHwTables {

template <class Traits>
class ValueKey : public KeyRecord<ValueKey<Traits>> {
 public:
  static constexpr std::array<std::string_view, 1> memberNames{"value"};
  static constexpr std::string_view typeName() { return Traits::entryKeyTypeName; }

  constexpr ValueKey() = default;
  // Throws Dovel::RangeException where the value is above null().
  explicit ValueKey(std::uint32_t value) : value_(value) { check(); }
  explicit ValueKey(Orlo::CharRange& range) { this->read(range); }

  static constexpr std::uint32_t min() { return 0; }
  static constexpr std::uint32_t null() { return Traits::nullKey; }

  std::uint32_t value() const { return value_; }
  // The name under which all indexed tables give their row.
  std::uint32_t entryIndex() const { return value_; }

  // Takes the value already held without a check, so that a key from a damaged record can be set to itself;
  // any other value out of bounds throws Dovel::RangeException and changes nothing.
  void valueIs(std::uint32_t value) {
    if (value == value_) return;
    kBounds.check(typeName(), value);
    value_ = value;
  }

  // The members in declaration order, for whoever walks them.
  template <class Self>
  static constexpr auto members(Self& self) {
    return std::tie(self.value_);
  }

 private:
  friend class KeyRecord<ValueKey>;
  static constexpr KeyBounds kBounds{"value", "min", "null", Traits::nullKey};

  void check() const { kBounds.check(typeName(), value_); }

  std::uint32_t value_ = 0;
};

}  // namespace LoamSharedHwTables
