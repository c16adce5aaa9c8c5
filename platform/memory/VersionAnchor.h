// Marks a value in a mapping that its holder wants to keep a pointer to: as long as the word at the anchor
// still equals the version, the value is the one that was handed out. Plain values.
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

  // Ends the process for an anchor that never marked anything.
  void assertNotDefaultConstructed() const;

  // Whether the marked word is still what it was.
  bool matches() const {
    if (offset >= kDefaultOffset) return false;
    return lowHalf(SharedWord::ownWord(*reinterpret_cast<Cell const*>(base + offset))) == version;
  }

  friend bool operator==(VersionAnchor const&, VersionAnchor const&) = default;
};

// The value that was handed out last: where its version stands, and the version. An anchor is made of it when
// somebody asks, which is seldom.
class LastValue {
 public:
  LastValue() = default;
  LastValue(Cell const& cell, std::uint32_t version) : cell_(&cell), version_(version) {}

  // In the mapping that begins at the base.
  VersionAnchor anchor(std::byte const* base) const;
  // The mapping begins elsewhere. A value that it no longer reaches has an anchor that never matches.
  void rebase(std::byte const* base, std::byte const* newBase, std::uint64_t newSize);

  friend bool operator==(LastValue const&, LastValue const&) = default;

 private:
  std::uint64_t offsetFrom(std::byte const* base) const;

  Cell const* cell_ = nullptr;
  std::uint32_t version_ = 0;
};

// Throws Dovel::CorruptionDetectedException.
[[noreturn]] void throwVersionMismatch(VersionAnchor const& anchor);

}  // namespace Mem
