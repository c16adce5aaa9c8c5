// Where the row of a key lies among a memory's arrays, and the key of a row. Any thread.
#pragma once

#include <cstdint>

#include "platform/switch/LoamAsicUtils/BcmGroupAddrInfo.h"

namespace LoamSharedHwTables {

struct RowPosition {
  std::uint8_t array;
  std::uint32_t entry;
};

// A key of one value names rows of the memory's first array.
template <class Key>
RowPosition positionOf(Key const& key, LoamAsicUtils::BcmRegMemInfo const& memory) {
  if constexpr (requires { key.arrayIndex(); }) {
    return {key.arrayIndex(), key.entryIndex()};
  } else {
    return {memory.firstArray(), key.entryIndex()};
  }
}

// Throws Dovel::RangeException for a row that the key can't name.
template <class Key>
Key keyAt(std::uint8_t array, std::uint32_t entry) {
  if constexpr (requires { Key(array, entry); }) {
    return Key(array, entry);
  } else {
    return Key(entry);
  }
}

}  // namespace LoamSharedHwTables
