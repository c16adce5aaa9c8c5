// The slot table of a reader, and how it copies a slot that its writer may be changing.
#pragma once

#include <cstring>

#include "Vault/SlotReaderCommon.h"
#include "VaultCore/SlotLink.h"

namespace Vault {

// A copy is consistent: the link, the hash and the words of the value were together at one moment.
template <class Ops>
class SlotReaderTable : public SlotReaderTableCommon {
 public:
  using Key = typename Ops::Key;
  static constexpr SlotShape kShape{Ops::valueSize};

  SlotReaderTable(Dovel::Platform::DebugHandler const& handler, std::unique_ptr<Mem::Mapping> mapping,
                  Reader::Counters& counters)
      : SlotReaderTableCommon(
            handler, std::move(mapping),
            {.shape = kShape, .marshalledSize = Ops::valueSize, .typeName = Ops::typeName()}, counters) {}

  // What a walk has to know of a slot.
  struct Step {
    SlotLink link;
    std::uint32_t hash;
    Key key;
  };

  // The words of a slot, until the next doResize(). Throws Dovel::CorruptionDetectedException.
  [[gnu::always_inline]] Mem::Cell const* operator[](std::uint32_t index) const {
    if (index >= numSlots_) [[unlikely]]
      throwOutOfRange(index);
    return slots_ + std::size_t{index} * kShape.slotCells();
  }

  // Copies the key and, where it is wanted of a slot with such a hash, the whole value to `out`.
  template <class Wants>
  [[gnu::always_inline]] Step readStep(Mem::Cell const* cells, Wants const& wants, void* out) {
    std::uint32_t hash;
    Key key;
    SlotLink const link = readConsistently(cells, [&](Mem::Cell const* from) {
      hash = hashIn(from);
      if (wants(hash)) copyOut<Ops::valueSize>(from, out);
      key = keyIn(from);
    });
    return {link, hash, key};
  }

  // Of a slot that may be changed meanwhile: what is copied vouches for nothing.
  [[gnu::always_inline]] static Key keyIn(Mem::Cell const* cells) {
    Key key;
    copyOut<sizeof key>(cells, &key);
    return key;
  }
  [[gnu::always_inline]] static void copyValue(Mem::Cell const* cells, void* out) {
    copyOut<Ops::valueSize>(cells, out);
  }

  // Copies the whole value and marks it as the one that was read last.
  [[gnu::always_inline]] SlotLink readValue(Mem::Cell const* cells, void* out) {
    SlotLink const link =
        readConsistently(cells, [&](Mem::Cell const* from) { copyOut<Ops::valueSize>(from, out); });
    lastValueIs({*cells, link.sequence});
    return link;
  }

  [[gnu::always_inline]] static SlotLink linkIn(Mem::Cell const& cell) {
    return SlotLink::fromWord(Mem::SharedWord::readLink(cell));
  }

 private:
  static constexpr std::size_t kFirstValueCell = SlotShape::kValueOffset / sizeof(Mem::Cell);

  // Copies until the sequence is the same before and after. The writer ends a change in bounded time, and
  // while it is at it the former contents are in the lookaside slot, so this never waits for it.
  template <class Copy>
  [[gnu::always_inline]] SlotLink readConsistently(Mem::Cell const* cells, Copy&& copy) {
    SlotLink link = linkIn(*cells);
    for (;;) {
      Mem::Cell const* from = cells;
      if (link.inLookaside()) [[unlikely]] {
        ++counters_.lookasideReads;
        from = lookasideCells();
      }
      copy(from);
      Mem::SharedWord::beforeRecheck();
      SlotLink const again = linkIn(*cells);
      bool const isSame = again.sequence == link.sequence;
      link = again;
      if (isSame) [[likely]]
        return link;
    }
  }

  [[gnu::always_inline]] static std::uint32_t hashIn(Mem::Cell const* cells) {
    Mem::Cell const word = Mem::SharedWord::loadValueWord(cells[kShape.hashOffset() / sizeof(Mem::Cell)]);
    return kShape.hashOffset() % sizeof(Mem::Cell) == 0 ? Mem::lowHalf(word) : Mem::highHalf(word);
  }

  template <std::size_t Bytes>
  [[gnu::always_inline]] static void copyOut(Mem::Cell const* cells, void* to) {
    auto* const out = static_cast<std::byte*>(to);
#pragma GCC unroll 8
    for (std::size_t at = 0; at < Bytes; at += sizeof(Mem::Cell)) {
      Mem::Cell const word = Mem::SharedWord::loadValueWord(cells[kFirstValueCell + at / sizeof(Mem::Cell)]);
      std::memcpy(out + at, &word, Bytes - at < sizeof word ? Bytes - at : sizeof word);
    }
  }
};

}  // namespace Vault
