// A hash map for local collections of plain values that carry their key. It grows with its members; a walk
// may go on while the map changes (HashMap2018Generic.h tells what it meets). Not safe for threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/Hash.h"
#include "runtime/Orlo/HashMap2018Generic.h"

namespace Orlo {

// The node of a map: a value and, told by KeyFunktor, its key. The constant is a number of the map's type.
template <std::uint32_t constant, class Key, class Value, class KeyFunktor>
class Hm2018NII {
 public:
  explicit Hm2018NII(Value const& value) : value_(value) {}

  Key fwkKey() const { return KeyFunktor()(value_); }
  Value const& value() const { return value_; }
  // A node keeps its key for life; a value with another key ends the process.
  void valueIs(Value const& _value) {
    DOVEL_ASSERT(fwkKey() == KeyFunktor()(_value), "Orlo::Hm2018NII", "fwkKey() == KeyFunktor()( _value )");
    value_ = _value;
  }

  static inline AllocTrackTypeInfo* memAllocationTracker_ = nullptr;

 private:
  Value value_;
};

// Key has operator==, operator<=> and hash(seed); KeyFunktor()(value) is the value's key. The constant keeps
// two maps from sharing the bad spots of one hash.
template <std::uint32_t constant, class Key, class Value, class KeyFunktor>
class HashMap2018 {
 public:
  using Node = Hm2018NII<constant, Key, Value, KeyFunktor>;

  class Iterator {
   public:
    using difference_type = std::ptrdiff_t;
    using value_type = Value;

    explicit Iterator(HashMap2018Generic const& map) : walk_(map) {}
    explicit operator bool() const { return walk_.node() != nullptr; }
    Value const& operator*() const { return static_cast<Node const*>(walk_.node())->value(); }
    Value const* operator->() const { return &**this; }
    Iterator& operator++() {
      walk_.inc();
      return *this;
    }
    void operator++(int) { walk_.inc(); }
    friend bool operator==(Iterator const& at, std::default_sentinel_t) { return !at; }

   private:
    HashMap2018IteratorGeneric walk_;
  };

  HashMap2018() : map_(HashMap2018VTable::Impl<Node, Key>::vtable) {}

  std::size_t size() const { return map_.size(); }

  // The value of a key, or null. It stays where it is until the next change of the map.
  Value const* lookup(Key const& key) const {
    auto const equals = [&](void const* node) { return static_cast<Node const*>(node)->fwkKey() == key; };
    auto const* const node = static_cast<Node const*>(map_.lookupNode(hash(key), equals));
    return node == nullptr ? nullptr : &node->value();
  }

  // Adds a value or replaces the one with its key. True if the key is a new one.
  bool insert(Value const& value) {
    Node const node(value);
    Key const key = node.fwkKey();
    return map_.newMemberG(&key, hash(key), &node);
  }

  // False where there is no such key.
  bool del(Key const& key) { return map_.deleteMemberG(&key, hash(key)); }
  void deleteAll() { map_._memberDelAll(); }

  Iterator iterator() const { return Iterator(map_); }
  Iterator begin() const { return iterator(); }
  std::default_sentinel_t end() const { return {}; }

  // The hash that places a key in this map.
  static std::uint32_t hash(Key const& key) { return key.hash(HashHelper::hashSeed32() ^ constant); }

 private:
  HashMap2018Generic map_;
};

}  // namespace Orlo
