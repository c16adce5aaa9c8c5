// One slot of a slot file, or the lookaside slot, seen as shared words. A pointer in size; it is stale once
// the file is mapped elsewhere. The steps are those of the writer; readers have their own.
#pragma once

#include <cstddef>
#include <cstring>

#include "Vault/SlotTable.h"
#include "VaultCore/SlotLink.h"

namespace Vault {

// V is the size of a value in bytes, a multiple of 4. Where it isn't one of 8, the value's last word also
// holds the hash.
template <std::uint32_t V>
class Slot {
 public:
  static constexpr SlotShape kShape{V};

  explicit Slot(Mem::Cell* cells) : cells_(cells) {}

  Mem::Cell& linkCell() const { return cells_[0]; }
  [[gnu::always_inline]] SlotLink link() const {
    return SlotLink::fromWord(Mem::SharedWord::ownWord(cells_[0]));
  }

  [[gnu::always_inline]] std::uint32_t hash() const {
    Mem::Cell const word = Mem::SharedWord::loadValueWord(cells_[kHashCell]);
    return kHashIsHigh ? Mem::highHalf(word) : Mem::lowHalf(word);
  }
  [[gnu::always_inline]] void hashIs(std::uint32_t hash) const {
    Mem::Cell const value = kHashIsHigh ? Mem::SharedWord::loadValueWord(cells_[kHashCell]) : 0;
    Mem::SharedWord::storeValueWord(cells_[kHashCell],
                                    kHashIsHigh ? Mem::fromHalves(Mem::lowHalf(value), hash) : hash);
  }

  // The first Bytes of the value.
  template <std::size_t Bytes>
  [[gnu::always_inline]] void copyOut(void* to) const {
    static_assert(Bytes <= V);
    auto* const out = static_cast<std::byte*>(to);
#pragma GCC unroll 8
    for (std::size_t at = 0; at < Bytes; at += sizeof(Mem::Cell)) {
      Mem::Cell const word = Mem::SharedWord::loadValueWord(cells_[kFirstValueCell + at / 8]);
      std::memcpy(out + at, &word, Bytes - at < 8 ? Bytes - at : 8);
    }
  }

  // The hash stays.
  [[gnu::always_inline]] void valueIs(void const* from) const {
    auto const* const in = static_cast<std::byte const*>(from);
#pragma GCC unroll 8
    for (std::size_t word = 0; word < V / 8; ++word) {
      Mem::Cell bytes = 0;
      std::memcpy(&bytes, in + word * 8, 8);
      Mem::SharedWord::storeValueWord(cells_[kFirstValueCell + word], bytes);
    }
    if constexpr (kHashIsHigh) {
      std::uint32_t tail = 0;
      std::memcpy(&tail, in + V - 4, 4);
      Mem::SharedWord::storeValueWord(cells_[kHashCell], Mem::fromHalves(tail, hash()));
    }
  }

  // Value and hash of another slot.
  [[gnu::always_inline]] void contentsAre(Slot other) const {
#pragma GCC unroll 8
    for (std::size_t cell = kFirstValueCell; cell <= kHashCell; ++cell)
      Mem::SharedWord::storeValueWord(cells_[cell], Mem::SharedWord::loadValueWord(other.cells_[cell]));
  }
  // The value alone.
  [[gnu::always_inline]] void valueIs(Slot other) const {
    constexpr std::size_t kEnd = kHashIsHigh ? kHashCell : kFirstValueCell + V / 8;
#pragma GCC unroll 8
    for (std::size_t cell = kFirstValueCell; cell < kEnd; ++cell)
      Mem::SharedWord::storeValueWord(cells_[cell], Mem::SharedWord::loadValueWord(other.cells_[cell]));
    if constexpr (kHashIsHigh) {
      std::uint32_t const tail = Mem::lowHalf(Mem::SharedWord::loadValueWord(other.cells_[kHashCell]));
      Mem::SharedWord::storeValueWord(cells_[kHashCell], Mem::fromHalves(tail, hash()));
    }
  }

  // Where the value stands: for the writing thread, until its next call.
  void* valueAddress() const { return cells_ + kFirstValueCell; }

  // Asks for all of the slot, which may lie in two lines of the cache.
  void prefetch() const {
    __builtin_prefetch(cells_);
    __builtin_prefetch(cells_ + kHashCell);
  }

 private:
  static constexpr std::size_t kFirstValueCell = SlotShape::kValueOffset / 8;
  static constexpr std::size_t kHashCell = kShape.hashOffset() / 8;
  static constexpr bool kHashIsHigh = V % 8 != 0;

  Mem::Cell* cells_;
};

}  // namespace Vault
