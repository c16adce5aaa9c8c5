// The row of a table: its key and its bytes exactly as the chip stores them. An entry is a plain value that
// is stored in shared memory: of fixed size, without pointers, and without padding that isn't written.
// Nothing in it fails on arbitrary bytes. One thread at a time changes an entry.
#pragma once

#include <algorithm>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

#include "LoamSharedHwTables/KeyRecord.h"
#include "runtime/Ancillary/Utility.h"
#include "runtime/Detail/BitRange.h"
#include "runtime/Detail/CopyBits.h"
#include "runtime/Keel/PerUnitBitmap.h"

namespace LoamSharedHwTables {

// Raises RangeException: "<type>::value < <type>::min or > <type>::max not allowed".
[[noreturn]] void throwDataByte0IndexOutOfRange(std::string_view typeName);

// Ends the process: text can't be read into a record that holds a collection, and a default in its place
// would hide the fault.
[[noreturn]] void failStringConstructor(std::string_view className);

// The widest bitmap field, in bits: the functions below copy it through a buffer of that size.
inline constexpr unsigned kMaxBitmapWidth = 1024;

Keel::PerUnitBitmap bitmapFromBits(std::uint8_t const* data, std::size_t dataBytes, unsigned low,
                                   unsigned width);

// Bits past the bitmap's end are written as 0.
void bitmapToBits(Keel::PerUnitBitmap const& bitmap, std::uint8_t* data, std::size_t dataBytes, unsigned low,
                  unsigned width);

// The same for a bitmap that must cover the width: throws std::out_of_range where it is shorter, and changes
// nothing.
void wholeBitmapToBits(Keel::PerUnitBitmap const& bitmap, std::uint8_t* data, std::size_t dataBytes,
                       unsigned low, unsigned width);

struct EntryRecordTag {};

// Traits gives entryDataMaxSize, entryTypeName and dataByte0IndexTypeName.
template <class Traits, class Key>
class EntryRecord : public EntryRecordTag {
 public:
  // A place in the data bytes: 0 to max(). There is no value past the end.
  class DataByte0Index {
   public:
    // Throws Dovel::RangeException where the value is above max().
    explicit DataByte0Index(std::uint32_t value) : value_(value) {
      if (value_ > max()) [[unlikely]]
        throwDataByte0IndexOutOfRange(typeName());
    }
    explicit DataByte0Index(Orlo::CharRange& range)
        : DataByte0Index(static_cast<std::uint32_t>(
              range.deserializeOnlyAttr(typeName(), "value", std::numeric_limits<std::uint32_t>::max()))) {}

    static constexpr std::uint32_t min() { return 0; }
    static constexpr std::uint32_t max() { return Traits::entryDataMaxSize - 1; }
    static constexpr std::string_view typeName() { return Traits::dataByte0IndexTypeName; }
    std::uint32_t value() const { return value_; }

    friend bool operator==(DataByte0Index const&, DataByte0Index const&) = default;
    friend auto operator<=>(DataByte0Index const&, DataByte0Index const&) = default;
    friend Dovel::String valueToStrep(DataByte0Index const& index) {
      Dovel::String text = typeName();
      Impl::appendMember(text, "(", "value", index.value_);
      return text.append(")");
    }

   private:
    std::uint32_t value_;
  };

  // Visits the bytes that are not 0, in ascending order. It must not outlive the entry.
  class DataByte0Iterator {
   public:
    explicit DataByte0Iterator(EntryRecord const& entry) : entry_(&entry) { skipZeroes(); }
    explicit operator bool() const { return index_ < Traits::entryDataMaxSize; }
    std::uint32_t index() const { return index_; }
    std::uint8_t operator*() const { return entry_->byteAt(index_); }
    DataByte0Iterator& operator++() {
      ++index_;
      skipZeroes();
      return *this;
    }

   private:
    void skipZeroes() {
      while (*this && **this == 0) ++index_;
    }
    EntryRecord const* entry_;
    std::uint32_t index_ = 0;
  };

  static constexpr std::string_view typeName() { return Traits::entryTypeName; }

  Key const& entryKey() const { return entryKey_; }

  static constexpr std::uint32_t kDataBytes = Traits::entryDataMaxSize;

  // The row as the chip stores it.
  std::span<std::uint8_t const, Traits::entryDataMaxSize> dataBytes() const {
    return std::span<std::uint8_t const, Traits::entryDataMaxSize>(dataByte0_, Traits::entryDataMaxSize);
  }
  // Takes over kDataBytes bytes.
  void dataBytesIs(std::uint8_t const* data) { std::memcpy(dataByte0_, data, kDataBytes); }
  std::uint8_t dataByte0(DataByte0Index index) const { return byteAt(index.value()); }
  DataByte0Iterator dataByte0Iterator() const { return DataByte0Iterator(*this); }

  void dataByte0Is(DataByte0Index index, std::uint8_t value) & {
    Ancillary::Utility::affirm(index.value() < Traits::entryDataMaxSize);
    dataByte0_[index.value()] = value;
  }
  // Sets the byte to 0, which is the same as its being absent, and returns what it was.
  std::uint8_t dataByte0Del(DataByte0Index index) & {
    std::uint8_t const old = byteAt(index.value());
    if (old != 0) dataByte0_[index.value()] = 0;
    return old;
  }
  // Throws Dovel::RangeException where the iterator is at its end.
  std::uint8_t dataByte0Del(DataByte0Iterator const& at) & {
    return dataByte0Del(DataByte0Index(at.index()));
  }
  void dataByte0DelAll() & {
    for (DataByte0Iterator at(*this); at; ++at) dataByte0Del(at);
  }

  // Both point to entries of this type.
  static bool isEq(void const* a, void const* b) {
    return a == b || *static_cast<EntryRecord const*>(a) == *static_cast<EntryRecord const*>(b);
  }
  friend bool operator==(EntryRecord const& a, EntryRecord const& b) {
    return &a == &b || (a.entryKey_ == b.entryKey_ && std::ranges::equal(a.dataByte0_, b.dataByte0_));
  }

 protected:
  EntryRecord() = default;
  explicit EntryRecord(Key const& entryKey) : entryKey_(entryKey) {}

  void entryKeyIs(Key const& entryKey) { entryKey_ = entryKey; }

  // The field in bits Low to High: a U type, a plain integer or a bitmap. Setters change the bits and nothing
  // else: the key beside them stays.
  template <class T, unsigned Low, unsigned High>
  T field() const {
    if constexpr (std::is_same_v<T, Keel::PerUnitBitmap>) {
      static_assert(High - Low < kMaxBitmapWidth);
      return bitmapFromBits(dataByte0_, Traits::entryDataMaxSize, Low, High - Low + 1);
    } else if constexpr (Orlo::isBounded<T>) {
      return T::fromBits(Detail::BitRange<Low, High, Traits::entryDataMaxSize>::get(dataByte0_));
    } else {
      return static_cast<T>(Detail::BitRange<Low, High, Traits::entryDataMaxSize>::get(dataByte0_));
    }
  }
  template <class T, unsigned Low, unsigned High>
  void fieldIs(T const& value) {
    if constexpr (std::is_same_v<T, Keel::PerUnitBitmap>) {
      bitmapToBits(value, dataByte0_, Traits::entryDataMaxSize, Low, High - Low + 1);
    } else {
      Detail::BitRange<Low, High, Traits::entryDataMaxSize>::set(dataByte0_, Orlo::numberOf(value));
    }
  }
  template <class T, unsigned Low, unsigned High>
  void wholeFieldIs(T const& value) {
    wholeBitmapToBits(value, dataByte0_, Traits::entryDataMaxSize, Low, High - Low + 1);
  }

 private:
  std::uint8_t byteAt(std::uint32_t index) const {
    Ancillary::Utility::affirm(index < Traits::entryDataMaxSize);
    return dataByte0_[index];
  }

  // What the compiler would add as padding is part of the array, so that it is always written, as 0.
  static constexpr std::size_t kStoredBytes =
      (Traits::entryDataMaxSize + alignof(Key) - 1) / alignof(Key) * alignof(Key);

  Key entryKey_;
  std::uint8_t dataByte0_[kStoredBytes] = {};
};

namespace Impl {

Dovel::String entryText(std::string_view typeName, Dovel::String const& key,
                        std::span<std::uint8_t const> bytes, std::string_view view);

}  // namespace Impl

// The key, the bytes in hex, byte 0 first, and the view where the table has views. There is no way back: see
// failStringConstructor.
template <std::derived_from<EntryRecordTag> Entry>
Dovel::String valueToStrep(Entry const& entry) {
  Dovel::String view;
  if constexpr (requires { entry.viewT(); }) view = stringValue(entry.viewT());
  return Impl::entryText(Entry::typeName(), valueToStrep(entry.entryKey()), entry.dataBytes(), view);
}

}  // namespace LoamSharedHwTables

template <std::derived_from<LoamSharedHwTables::EntryRecordTag> Entry>
struct fmt::formatter<Entry> : Dovel::PlainFormatter {
  auto format(Entry const& entry, fmt::format_context& context) const {
    return write(valueToStrep(entry), context);
  }
};
