// A count that readers watch for change: the version goes up by one with each new count, and both are one
// word. A plain value.
#pragma once

#include <cstdint>

#include "platform/memory/SharedWord.h"

namespace Mem {

template <class Count>
struct VersionedRef {
  static_assert(sizeof(Count) == 4);

  std::uint32_t version = 0;
  Count count = 0;

  static constexpr VersionedRef fromWord(Cell word) {
    return {lowHalf(word), static_cast<Count>(highHalf(word))};
  }
  constexpr Cell word() const { return fromHalves(version, count); }
  constexpr VersionedRef next(Count newCount) const { return {version + 1, newCount}; }

  // Of the words, which is one comparison; readers make it before every answer.
  friend constexpr bool operator==(VersionedRef const& a, VersionedRef const& b) {
    return a.word() == b.word();
  }
};

}  // namespace Mem
