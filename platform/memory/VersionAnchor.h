// Marks a value in a mapping that its holder wants to keep a pointer to: as long as the word at the anchor
// still equals the version, the value is the one that was handed out. A plain value.
#pragma once

#include <cstdint>

#include "platform/memory/SharedWord.h"

namespace Mem {

struct VersionAnchor {
  // Of an anchor that marks nothing yet, and of one whose place is gone.
  static constexpr std::uint32_t kDefaultOffset = 0xfffffffe;
  static constexpr std::uint32_t kInvalidOffset = 0xffffffff;

  std::uint32_t version = 0;
  std::uint32_t offset = kDefaultOffset;
  std::byte const* base = nullptr;

  // A place farther than an offset reaches can't be anchored; its anchor never matches.
  static VersionAnchor at(std::uint32_t version, std::byte const* base, std::uint64_t offset) {
    return {version, offset < kDefaultOffset ? static_cast<std::uint32_t>(offset) : kInvalidOffset, base};
  }

  // Whether it marks a place that is there.
  bool isPlaced() const { return offset < kDefaultOffset; }

  // Ends the process for an anchor that never marked anything.
  void assertNotDefaultConstructed() const;

  // Keeps the anchor where its place lies within the new mapping, and makes it one that never matches
  // otherwise.
  void rebase(std::byte const* newBase, std::uint64_t newSize) {
    if (!isPlaced()) return;
    base = newBase;
    if (offset + sizeof(Cell) > newSize) offset = kInvalidOffset;
  }

  // Whether the marked word is still what it was.
  bool matches() const {
    if (!isPlaced()) return false;
    return lowHalf(SharedWord::ownWord(*reinterpret_cast<Cell const*>(base + offset))) == version;
  }

  friend bool operator==(VersionAnchor const&, VersionAnchor const&) = default;
};

// Throws Dovel::CorruptionDetectedException.
[[noreturn]] void throwVersionMismatch(VersionAnchor const& anchor);

}  // namespace Mem
