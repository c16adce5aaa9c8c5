// What the keys of all tables have in common. A key is a plain value that is stored in shared memory: of
// fixed size, without pointers, and without padding that isn't written. Hash, comparison and getters work on
// any bytes, also on those of a torn copy. One thread at a time changes a key.
#pragma once

#include <array>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "runtime/Dovel/String.h"
#include "runtime/Orlo/BoundedInteger.h"
#include "runtime/Orlo/CharRange.h"
#include "runtime/Orlo/Hash.h"

namespace LoamSharedHwTables {

// The bounds of a key member, with the names under which messages tell them. Every minimum is 0.
struct KeyBounds {
  std::string_view member;
  std::string_view minName;
  std::string_view maxName;
  std::uint32_t max;

  // Throws Dovel::RangeException: "<type>::<member> < <type>::<minName> or > <type>::<maxName> not allowed".
  constexpr void check(std::string_view typeName, std::uint32_t value) const {
    if (value > max) [[unlikely]]
      throwOutOfRange(typeName);
  }

 private:
  [[noreturn]] void throwOutOfRange(std::string_view typeName) const;
};

struct KeyRecordTag {};

// Key gives typeName(), memberNames (an array), members(self), a tie of the members in declaration order,
// and, where its members have bounds beyond their types, check(), which throws Dovel::RangeException.
template <class Key>
class KeyRecord : public KeyRecordTag {
 public:
  // The same in every process: stores keep it.
  [[gnu::always_inline]] std::uint32_t hash(unsigned int seed) const {
    Orlo::Hash state(seed);
    forEachMember([&state](auto const& member)
                      __attribute__((always_inline)) { state.hashMix(Orlo::hashSingleAttr(member)); });
    return state.result();
  }

  // Both point to keys of this type.
  static bool isEq(void const* a, void const* b) {
    return a == b || *static_cast<Key const*>(a) == *static_cast<Key const*>(b);
  }

  friend bool operator==(Key const& a, Key const& b) {
    return &a == &b || Key::members(a) == Key::members(b);
  }
  friend std::strong_ordering operator<=>(Key const& a, Key const& b) {
    return &a == &b ? std::strong_ordering::equal : Key::members(a) <=> Key::members(b);
  }

 protected:
  KeyRecord() = default;

  // Stores all members once more, in words as large as those in which a key is copied. A copy of what was
  // stored in narrower pieces has to wait until these are in the cache, and everything begun before them has
  // ended: a look-up of a key that was just made would wait for the look-up before it.
  [[gnu::always_inline]] constexpr void storeInWords() {
    if (std::is_constant_evaluated()) return;
    std::array<std::uint64_t, (sizeof(Key) + 7) / 8> words{};
    std::size_t at = 0;
    forEachMember([&](auto const& member) __attribute__((always_inline)) {
      at = (at + sizeof member - 1) / sizeof member * sizeof member;
      words[at / 8] |= Orlo::numberOf(member) << at % 8 * 8;
      at += sizeof member;
    });
    std::memcpy(static_cast<void*>(&self()), words.data(), sizeof(Key));
  }

  // Reads "Type(name:value,name:value)"; the bounds are checked after the last member.
  void read(Orlo::CharRange& range) {
    if constexpr (kCount == 1) {
      using Member =
          std::remove_reference_t<std::tuple_element_t<0, decltype(Key::members(std::declval<Key&>()))>>;
      std::get<0>(Key::members(self())) = static_cast<Member>(range.deserializeOnlyAttr(
          Key::typeName(), Key::memberNames[0], std::numeric_limits<Member>::max()));
    } else {
      readMembers(range, std::make_index_sequence<kCount - 1>());
    }
    self().check();
  }

 private:
  friend Key;
  void check() const {}

  static constexpr std::size_t kCount = std::tuple_size_v<decltype(Key::memberNames)>;

  constexpr Key& self() { return static_cast<Key&>(*this); }
  constexpr Key const& self() const { return static_cast<Key const&>(*this); }

  // In declaration order. Inlined whole, which std::apply is not.
  template <class Visit>
  [[gnu::always_inline]] constexpr void forEachMember(Visit&& visit) const {
    [&]<std::size_t... At>(std::index_sequence<At...>) __attribute__((always_inline)) {
      auto const members = Key::members(self());
      (visit(std::get<At>(members)), ...);
    }
    (std::make_index_sequence<kCount>());
  }

  template <std::size_t... Further>
  void readMembers(Orlo::CharRange& range, std::index_sequence<Further...>) {
    auto members = Key::members(self());
    range.needPre(Key::typeName(), Key::memberNames[0]);
    Orlo::DesAttrPost const post(range);
    readMember(range, Key::memberNames[0], std::get<0>(members));
    ((range.needSep(Key::memberNames[Further + 1]),
      readMember(range, Key::memberNames[Further + 1], std::get<Further + 1>(members))),
     ...);
  }

  template <class Member>
  static void readMember(Orlo::CharRange& range, std::string_view name, Member& member) {
    if constexpr (Orlo::isBounded<Member>) {
      try {
        member = Member(range);
      } catch (Dovel::RangeException const& exception) {
        Orlo::rethrowFromDeserializeAttr(exception, name);
      }
    } else {
      member = static_cast<Member>(range.deserializeAttr(name, std::numeric_limits<Member>::max()));
    }
  }
};

namespace Impl {

void appendMember(Dovel::String& text, std::string_view separator, std::string_view name,
                  std::uint64_t value);

}  // namespace Impl

// The text that the key's constructor reads.
template <std::derived_from<KeyRecordTag> Key>
Dovel::String valueToStrep(Key const& key) {
  Dovel::String text = Key::typeName();
  std::size_t at = 0;
  std::apply(
      [&](auto const&... member) {
        ((Impl::appendMember(text, at == 0 ? "(" : ",", Key::memberNames[at], Orlo::numberOf(member)), ++at),
         ...);
      },
      Key::members(key));
  return text.append(")");
}

}  // namespace LoamSharedHwTables

template <std::derived_from<LoamSharedHwTables::KeyRecordTag> Key>
struct fmt::formatter<Key> : Dovel::PlainFormatter {
  auto format(Key const& key, fmt::format_context& context) const {
    return write(valueToStrep(key), context);
  }
};
