// What a store knows of the records that it keeps, in one bundle that all its classes take: how to find and
// hash a record's key, how a record becomes the words of a slot, and which record stands for none. No state;
// any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "runtime/OrloVault/ValWrap.h"

namespace Vault {

// Keys are asked of records by fwkKey(). A record is stored with its key first, so that a search needs no
// more than the first words of a slot.
template <class Value>
struct KeyRetrieval {
  using Key = typename Value::KeyType;

  static decltype(auto) key(Value const& value) { return value.fwkKey(); }
};

// KeyIsHashed: the key is a hash already, and its value is taken as it is.
template <class Key, bool KeyIsHashed>
struct Hash {
  [[gnu::always_inline]] static std::uint32_t hash(Key const& key, std::uint32_t seed) {
    if constexpr (KeyIsHashed) {
      return static_cast<std::uint32_t>(key) ^ seed;
    } else {
      return key.hash(seed);
    }
  }
};

template <class Retrieval, class Hashing>
struct KeyOps : Retrieval, Hashing {
  using typename Retrieval::Key;
};

// Records are stored as the bytes that they are.
template <class V>
struct Marshall {
  static_assert(std::is_trivially_copyable_v<V> && sizeof(V) % 4 == 0 && alignof(V) <= 8);
  static constexpr std::uint32_t kSize = sizeof(V);
};

template <class V>
struct AllocBase {
  // The answer of a look-up that finds nothing, and what an unused slot holds.
  static inline V const type_default_{};
};

template <class Marshalling, class Alloc>
struct ValueOps : Marshalling, Alloc {};

// Slots come from the free list of the store itself.
struct SlotAllocator {};

template <class V, class Keys, class Values, class Allocator>
struct Ops {
  using Value = V;
  using Key = typename Keys::Key;
  using KeyOps = Keys;
  using ValueOps = Values;

  // In bytes.
  static constexpr std::uint32_t valueSize = Values::kSize;
  static_assert(sizeof(Key) <= valueSize && std::is_trivially_copyable_v<Key> &&
                std::is_default_constructible_v<Key>);

  // The name under which the files know what they hold; at most 511 bytes.
  static std::string_view typeName() { return V::typeName(); }
};

// The bundle for a wrapped record whose key hashes itself: that of every table.
template <class V>
using OpsOf = Ops<V, KeyOps<KeyRetrieval<V>, Hash<typename V::KeyType, false>>,
                  ValueOps<Marshall<V>, AllocBase<V>>, SlotAllocator>;

}  // namespace Vault
