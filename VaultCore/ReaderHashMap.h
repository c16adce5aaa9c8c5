// A reader's walks over the split-ordered list that WriterHashMap keeps. No lock, no system call, nothing is
// written; the writer may be at work all the while.
//
// A walk remembers the sequence of the link that it followed, and looks at it again after every copy: where
// it has changed, what was copied may no longer belong to the chain, and the walk begins again at the head.
// What no sequence explains throws Dovel::CorruptionDetectedException. The caller then has to ask whether a
// resize does.
//
// One thread.
#pragma once

#include <cstdint>
#include <optional>

#include "VaultCore/BucketReader.h"
#include "VaultCore/IterHint.h"
#include "VaultCore/ReaderCounters.h"
#include "VaultCore/ReaderHashMapCommon.h"
#include "VaultCore/SlotLink.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace VaultCore {

template <class Ops, class Slots>
class ReaderHashMap : public Dovel::Debuggable, private ReaderHashMapCommon {
 public:
  using Key = typename Ops::Key;
  using Value = typename Ops::Value;
  using SlotLink = Vault::SlotLink;
  using IterHint = Vault::IterHint;
  using Buckets = BucketReader<SlotLink>;

  // All outlive the map.
  ReaderHashMap(Dovel::Platform::DebugHandler const& handler, Buckets& buckets, Slots& slots,
                Vault::Reader::Counters& counters)
      : Dovel::Debuggable(handler), buckets_(buckets), slots_(slots), counters_(counters) {}

  // The short way of a look-up, along a chain that nobody is changing. What it comes to holds only where the
  // table was not resized meanwhile; where it can't say, lookup() can.
  enum class AtRest { found, absent, passed, unknown };
  struct StepAtRest {
    AtRest outcome = AtRest::unknown;
    // The slot that was passed, and its link.
    Mem::Cell const* cells = nullptr;
    SlotLink link{};
  };

  // The first slot of the chain, which holds two of three keys that are there.
  [[gnu::always_inline]] StepAtRest firstAtRest(Key const& key, void* out) {
    if (debugHandler().isOn(9)) [[unlikely]]
      return {};
    std::uint32_t const bucket = hashOf(key) & (buckets_.numBuckets() - 1);
    if (bucket >= buckets_.numBuckets()) return {};
    Mem::Cell const& head = buckets_.headCell(bucket);
    return stepAtRest(key, head, Slots::linkIn(head), out);
  }
  // All that follow a slot that was passed; the outcome is never that one.
  [[gnu::always_inline]] AtRest fartherAtRest(Key const& key, Mem::Cell const* cells, SlotLink link,
                                              void* out) {
    std::uint32_t const mask = buckets_.numBuckets() - 1;
    std::uint32_t const hash = hashOf(key);
    for (unsigned steps = 1; steps < kStepsAtRest; ++steps) {
      // By reversed hashes, the lowest bit in which two differ tells their order.
      std::uint32_t const slotHash = hashOf(Slots::keyIn(cells));
      std::uint32_t const differing = hash ^ slotHash;
      if (differing == 0 || (differing & mask) != 0) return AtRest::unknown;
      if ((slotHash & differing & -differing) != 0)
        return isUnchanged(*cells, link) ? AtRest::absent : AtRest::unknown;
      StepAtRest const step = stepAtRest(key, *cells, link, out);
      if (step.outcome != AtRest::passed) return step.outcome;
      cells = step.cells;
      link = step.link;
    }
    return AtRest::unknown;
  }

  // Copies the record of the key, which doesn't stand there, to `out` and returns true; `out` is the caller's
  // to set where there is none.
  bool lookup(Key const& key, void* out) {
    if (buckets_.numBuckets() == 0) {
      DOVEL_TRACE(debugHandler(), 5, "ReaderHashMap", "bucket table detached");
      return false;
    }
    std::uint32_t const hash = hashOf(key);
    std::uint32_t const bucket = hash & (buckets_.numBuckets() - 1);
    Place const place = walk<Goal::key>(key, reverseBits(hash), bucket, out);
    if (place.isKey) {
      slots_.lastValueIs({*place.cells, place.link.sequence});
      return true;
    }
    checkEnd(place.cells == nullptr ? place.link : SlotLink{});
    DOVEL_TRACE(debugHandler(), 9, "ReaderHashMap", "{} not found", key);
    return false;
  }

  // The first record at or after the bucket, in the order of reversed hashes.
  bool first(std::uint32_t bucket, Value& value, IterHint& hint) {
    if (!takeFrom(bucket, value, hint)) return false;
    DOVEL_TRACE(debugHandler(), 9, "ReaderHashMap", "{} found at bucket {}, saving {}", keyOf(value),
                hint.bucket, hint);
    return true;
  }

  // The record after the key, whether or not the key is still there. The hint of the call that returned the
  // key makes it fast.
  bool next(Key const& after, Value& value, IterHint& hint) {
    // The key may be part of the value that is about to be filled.
    Key const key = after;
    try {
      if (std::optional<bool> const found = nextByHint(key, value, hint)) return *found;
    } catch (Dovel::CorruptionDetectedException const& caught) {
      // Since the hint was given its bucket may have been split more than once, which other calls have
      // followed.
      DOVEL_TRACE(debugHandler(), 5, "ReaderHashMap", "{} goes by the key, for its hint is no good: {}", key,
                  caught.msg());
    }
    return nextByKey(key, value, hint);
  }

 private:
  static decltype(auto) keyOf(Value const& value) { return Ops::KeyOps::key(value); }

  [[gnu::always_inline]] std::uint32_t hashOf(Key const& key) const {
    return Ops::KeyOps::hash(key, slots_.hashSeed());
  }

  // Longer chains are left to the walk, which tells them from a cycle.
  static constexpr unsigned kStepsAtRest = 16;

  // To where the link leads. The look at it afterwards vouches for what was read of the slot before, too.
  [[gnu::always_inline]] StepAtRest stepAtRest(Key const& key, Mem::Cell const& from, SlotLink link,
                                               void* out) {
    if (link.target() >= slots_.numSlots()) [[unlikely]] {
      bool const isEnd = !link.leadsToSlot() && (link.isNil() || link.id() < buckets_.numBuckets());
      return {isEnd ? AtRest::absent : AtRest::unknown};
    }
    Mem::Cell const* const cells = slots_[link.target()];
    SlotLink const own = Slots::linkIn(*cells);
    if (!own.isAtRest()) return {};
    bool const isKey = Slots::keyIn(cells) == key;
    if (isKey) Slots::copyValue(cells, out);
    if (!isUnchanged(from, link)) [[unlikely]] {
      ++counters_.restarts;
      return {};
    }
    if (!isKey) return {AtRest::passed, cells, own};
    if (!isUnchanged(*cells, own)) return {};
    slots_.lastValueIs({*cells, own.sequence});
    return {AtRest::found};
  }

  // Whether the link that led here is still the one that was followed.
  [[gnu::always_inline]] static bool isUnchanged(Mem::Cell const& cell, SlotLink link) {
    Mem::SharedWord::beforeRecheck();
    return Slots::linkIn(cell).sequence == link.sequence;
  }

  // What a walk along a chain looks for.
  enum class Goal { key, successor };

  // Where it has come to: a slot, with its link and its words, or the end of the chain, with the link that
  // ends it.
  struct Place {
    SlotLink link;
    std::uint32_t slot = 0;
    Mem::Cell const* cells = nullptr;  // none at the end
    bool isKey = false;
  };

  // To the key or to what stands where it would, copying the value to `out` where that is the goal.
  template <Goal goal>
  Place walk(Key const& key, std::uint32_t reversed, std::uint32_t bucket, void* out) {
    auto const wants = [=](std::uint32_t hash) {
      return goal == Goal::key ? hash == reversed : hash >= reversed;
    };
    Mem::Cell const& head = buckets_.headCell(bucket);
    std::uint32_t const limit = slots_.numSlots();
    for (;;) {
      Mem::Cell const* before = &head;
      SlotLink link = Slots::linkIn(head);
      std::uint32_t steps = 0;
      for (;;) {  // left, but with the result, only to begin again
        if (!link.leadsToSlot()) return {.link = link};
        if (++steps > limit) [[unlikely]]
          throwHashChainCycle(steps, limit);
        std::uint32_t const slot = link.id();
        Mem::Cell const* const cells = slots_[slot];
        auto const step = slots_.readStep(cells, wants, out);
        if (!isUnchanged(*before, link)) [[unlikely]]
          break;
        if (!step.link.occupied()) [[unlikely]]
          throwFree<goal>(slot, key);
        DOVEL_TRACE(debugHandler(), 9, "ReaderHashMap", "{} comparing slot {} {}", key, slot, step.key);
        bool const isKey = step.hash == reversed && step.key == key;
        if (goal == Goal::key && isKey) return {step.link, slot, cells, true};
        checkBelongs(step.key, bucket);
        if (step.hash > reversed || (step.hash == reversed && key < step.key))
          return {step.link, slot, cells, false};
        before = cells;
        link = step.link;
      }
      ++counters_.restarts;
    }
  }

  template <Goal goal>
  [[noreturn]] static void throwFree(std::uint32_t slot, Key const& key) {
    if (goal == Goal::key) throwNotOccupied(slot, &key, sizeof key);
    throwSlowPathNotOccupied(slot, &key, sizeof key);
  }

  // A miss is only told of a table that was not resized meanwhile.
  [[gnu::always_inline]] void checkEnd(SlotLink link) const {
    if (!link.isNil() && link.id() >= buckets_.numBuckets()) [[unlikely]]
      buckets_.throwOutOfRange(link.id());
    if (!buckets_.isCurrent()) [[unlikely]]
      buckets_.throwNumBucketsMismatch(buckets_.published());
  }

  // With half and with double the buckets too, as long as a resize may be under way.
  [[gnu::always_inline]] void checkBelongs(Key const& key, std::uint32_t bucket) const {
    std::uint32_t const hash = hashOf(key);
    std::uint32_t const count = buckets_.numBuckets();
    if ((hash & (count - 1)) == bucket) [[likely]]
      return;
    if (count > 1 && (hash & (count / 2 - 1)) == bucket) return;
    if ((hash & (2 * count - 1)) == bucket) return;
    throwCorruptKey(bucket, &key, sizeof key);
  }

  bool isLast(std::uint32_t bucket) const {
    std::uint32_t const count = buckets_.numBuckets();
    return bucket == count - 1 || bucket == count / 2 - 1 || bucket == 2 * count - 1;
  }
  bool follows(std::uint32_t bucket, std::uint32_t named) const {
    unsigned const bits = buckets_.bits();
    return named == BucketTable::nextBucket(bucket, bits) ||
           named == BucketTable::nextBucket(bucket, bits + 1) ||
           (bits > 0 && named == BucketTable::nextBucket(bucket, bits - 1));
  }

  // The record that the link in the cell leads to. False where that link has changed.
  bool takeSlot(Mem::Cell const& cell, SlotLink link, std::uint32_t bucket, Value& value, IterHint& hint) {
    std::uint32_t const slot = link.id();
    SlotLink const own = slots_.readValue(slots_[slot], &value);
    if (!isUnchanged(cell, link)) return false;
    Key const key = keyOf(value);
    if (!own.occupied()) throwNotOccupied(slot, &key, sizeof key);
    checkBelongs(key, bucket);
    hint = {own.sequence, slot, bucket};
    return true;
  }

  bool takeFrom(std::uint32_t bucket, Value& value, IterHint& hint) {
    std::uint32_t hops = 0;
    for (;;) {
      Mem::Cell const& head = buckets_.headCell(bucket);
      SlotLink const link = Slots::linkIn(head);
      if (link.leadsToSlot()) {
        if (takeSlot(head, link, bucket, value, hint)) return true;
        ++counters_.restarts;
        continue;
      }
      if (isEnd(link, bucket)) {
        DOVEL_TRACE(debugHandler(), 9, "ReaderHashMap", "none found!");
        return false;
      }
      if (++hops >= buckets_.numBuckets()) throwHashBucketCycle(hops, buckets_.numBuckets());
      bucket = link.id();
    }
  }

  // Whether the link ends the table; else it names the bucket that follows.
  bool isEnd(SlotLink link, std::uint32_t bucket) const {
    if (link.isNil()) {
      if (!isLast(bucket)) throwHasBucket(bucket, link.target(), buckets_.numBuckets());
      return true;
    }
    if (!follows(bucket, link.id())) throwHasBucket(bucket, link.id(), buckets_.numBuckets());
    return false;
  }

  // Nothing where the slot of the hint has changed since.
  std::optional<bool> nextByHint(Key const& key, Value& value, IterHint& hint) {
    if (hint.slot >= slots_.numSlots() || hint.bucket >= buckets_.numBuckets()) return {};
    Mem::Cell const* const own = slots_[hint.slot];
    SlotLink const link = Slots::linkIn(*own);
    if (link.sequence != hint.sequence) return {};
    if (!link.leadsToSlot()) return follow(key, link, value, hint);
    if (!takeSlot(*own, link, hint.bucket, value, hint)) return {};
    DOVEL_TRACE(debugHandler(), 9, "ReaderHashMap", "{} success {} using {}, saving new slot hint {}", key,
                keyOf(value), hint.bucket, hint);
    return true;
  }

  // From the end of the chain of the hint's bucket on.
  bool follow(Key const& key, SlotLink link, Value& value, IterHint& hint) {
    DOVEL_TRACE(debugHandler(), 9, "ReaderHashMap", "{} next bucket {} using {}", key, link.id(), hint);
    if (!isEnd(link, hint.bucket) && first(link.id(), value, hint)) return true;
    DOVEL_TRACE(debugHandler(), 9, "ReaderHashMap", "{} failed", key);
    return false;
  }

  bool nextByKey(Key const& key, Value& value, IterHint& hint) {
    ++counters_.slowNexts;
    if (buckets_.numBuckets() == 0) return false;
    std::uint32_t const hash = hashOf(key);
    std::uint32_t const bucket = hash & (buckets_.numBuckets() - 1);
    Place const place = walk<Goal::successor>(key, reverseBits(hash), bucket, &value);
    if (place.cells == nullptr) {
      hint.bucket = bucket;
      return follow(key, place.link, value, hint);
    }
    slots_.lastValueIs({*place.cells, place.link.sequence});
    hint = {place.link.sequence, place.slot, bucket};
    DOVEL_TRACE(debugHandler(), 9, "ReaderHashMap", "{} success {}, saving {}", key, keyOf(value), hint);
    return true;
  }

  Buckets& buckets_;
  Slots& slots_;
  Vault::Reader::Counters& counters_;
};

}  // namespace VaultCore
