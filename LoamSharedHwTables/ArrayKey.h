// The key of a memory of several arrays: an array and a row in it. Traits gives entryKeyTypeName,
// arrayIndexMax and entryIndexMax. See KeyRecord.h for the thread rule.
#pragma once

#include <array>

#include "LoamSharedHwTables/KeyRecord.h"

namespace LoamSharedHwTables {

template <class Traits>
class ArrayKey : public KeyRecord<ArrayKey<Traits>> {
 public:
  static constexpr std::array<std::string_view, 2> memberNames{"arrayIndex", "entryIndex"};
  static constexpr std::string_view typeName() { return Traits::entryKeyTypeName; }

  constexpr ArrayKey() = default;
  // Throws Dovel::RangeException where an index is out of its bounds.
  ArrayKey(std::uint8_t arrayIndex, std::uint32_t entryIndex)
      : arrayIndex_(arrayIndex), entryIndex_(entryIndex) {
    check();
    this->storeInWords();
  }
  explicit ArrayKey(Orlo::CharRange& range) { this->read(range); }

  static constexpr std::uint8_t arrayIndexMin() { return 0; }
  static constexpr std::uint8_t arrayIndexMax() { return Traits::arrayIndexMax; }
  static constexpr std::uint32_t entryIndexMin() { return 0; }
  static constexpr std::uint32_t entryIndexMax() { return Traits::entryIndexMax; }

  std::uint8_t arrayIndex() const { return arrayIndex_; }
  std::uint32_t entryIndex() const { return entryIndex_; }

  // A setter takes the value already held without a check, so that a key from a damaged record can be set to
  // itself; any other value out of bounds throws Dovel::RangeException and changes nothing.
  void arrayIndexIs(std::uint8_t value) {
    if (value == arrayIndex_) return;
    kArrayBounds.check(typeName(), value);
    arrayIndex_ = value;
  }
  void entryIndexIs(std::uint32_t value) {
    if (value == entryIndex_) return;
    kEntryBounds.check(typeName(), value);
    entryIndex_ = value;
  }

  // The members in declaration order, for whoever walks them.
  template <class Self>
  static constexpr auto members(Self& self) {
    return std::tie(self.arrayIndex_, self.entryIndex_);
  }

 private:
  friend class KeyRecord<ArrayKey>;
  static constexpr KeyBounds kArrayBounds{"arrayIndex", "arrayIndexMin", "arrayIndexMax",
                                          Traits::arrayIndexMax};
  static constexpr KeyBounds kEntryBounds{"entryIndex", "entryIndexMin", "entryIndexMax",
                                          Traits::entryIndexMax};

  void check() const {
    kArrayBounds.check(typeName(), arrayIndex_);
    kEntryBounds.check(typeName(), entryIndex_);
  }

  std::uint8_t arrayIndex_ = 0;
  std::uint8_t pad_[3] = {};
  std::uint32_t entryIndex_ = 0;
};

}  // namespace LoamSharedHwTables
