// The writer's index over the slots: a split-ordered list. All records form one list sorted by the reversed
// hash of their keys, then by key; a bucket head is a shortcut into it, and the end of a bucket's chain names
// the bucket that follows. Doubling the buckets moves no record: it adds heads and cuts chains.
//
// One thread. Invariants, which hold after every single store while readers walk:
//  1. The head of a bucket reaches every record of it, under the count that readers see.
//  2. Growing: new heads stand before the count is published, and chains are cut after it.
//  3. Shrinking: chains are joined before the count is published.
// While a resize is under way, critical tasks may look things up: chains are then legal under the halved and
// the doubled count too, and the count itself changes with its publication.
#pragma once

#include <algorithm>
#include <cstdint>

#include "VaultCore/BucketWriter.h"
#include "VaultCore/Counters.h"
#include "VaultCore/IterHint.h"
#include "VaultCore/SlotLink.h"
#include "VaultCore/WriterChains.h"
#include "VaultCore/WriterHashMapCommon.h"
#include "platform/memory/VersionAnchor.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Dovel/Rdtsc.h"

namespace VaultCore {

// Slots gives slots by id, Owner the hash seed and the yielding to critical tasks; a Validator, while one
// runs, is told of every slot that an iteration comes to.
template <class Ops, class Slots, class Owner, class Validator>
class WriterHashMap : public Dovel::Debuggable, private WriterHashMapCommon {
 public:
  using Key = typename Ops::Key;
  using Value = typename Ops::Value;
  using SlotType = typename Slots::SlotType;
  using SlotLink = Vault::SlotLink;
  using IterHint = Vault::IterHint;
  using Buckets = BucketWriter<SlotLink>;
  using Chains = WriterChains<Slots>;

  // All outlive the map.
  WriterHashMap(Dovel::Platform::DebugHandler const& handler, Buckets& buckets, Slots& slots, Owner& owner,
                bool shrinkBuckets, Bucket::WriterCounters& counters)
      : Dovel::Debuggable(handler),
        buckets_(buckets),
        slots_(slots),
        owner_(owner),
        shrinkBuckets_(shrinkBuckets),
        counters_(counters) {}

  // After the bucket file was attached.
  void attached() { updateThresholds(); }

  std::uint32_t numBuckets() const { return buckets_.numBuckets(); }
  std::uint32_t bucketOf(std::uint32_t hash) const { return hash & (buckets_.numBuckets() - 1); }
  // More records than this make the table grow.
  std::uint32_t growThreshold() const { return growBuckets_; }
  // Fewer make it shrink; 0 where it never does.
  std::uint32_t shrinkThreshold() const { return shrinkBuckets_ ? shrinkThreshold_ : 0; }

  void validatorIs(Validator* validator) { validator_ = validator; }

  // Looks for the key in its bucket. prevLink: what leads to the record or to where it belongs; currLink: the
  // record's slot, or the last that was looked at. Every slot on the way is checked.
  // Throws Dovel::CorruptionDetectedException.
  [[gnu::always_inline]] bool find(Key const& key, std::uint32_t bucket, Mem::Cell*& prevLink,
                                   Mem::Cell*& currLink, std::uint32_t hash) const {
    if (bucket >= buckets_.numBuckets()) [[unlikely]]
      buckets_.throwOutOfRange(bucket);
    bool const isOn = debugHandler().isOn(9);
    Place const place = isOn ? searchTraced(key, bucket, hash) : search<false>(key, bucket, hash);
    prevLink = place.prev;
    currLink = place.curr;
    return place.found;
  }

  // The record of the key, as long as nothing is called; null where there is none. It is copied to `out` too,
  // unless that is null.
  Value const* lookup(Key const& key, std::uint32_t bucket, std::uint32_t hash, void* out) const {
    Mem::Cell* prevLink = nullptr;
    Mem::Cell* currLink = nullptr;
    if (!find(key, bucket, prevLink, currLink, hash)) {
      slots_.lastValueIs({});
      DOVEL_TRACE(debugHandler(), 9, "WriterHashMap", "{} not found bucket:{}", key, bucket);
      return nullptr;
    }
    DOVEL_TRACE(debugHandler(), 9, "WriterHashMap", "{} found bucket:{} slotId:{}", key, bucket,
                linkIn(*prevLink).id());
    return valueIn(SlotType(currLink), out);
  }

  // The slot of the key where it is the first of its chain, as for two of three keys that are there; nil says
  // nothing yet.
  [[gnu::always_inline]] std::uint32_t firstOf(Key const& key, std::uint32_t bucket) const {
    SlotLink const head = linkIn(buckets_.headCell(bucket));
    if (!head.leadsToSlot() || debugHandler().isOn(9)) return SlotLink::kNil;
    SlotType const slot = slots_[head.id()];
    return slot.link().occupied() && keyIn(slot) == key ? head.id() : SlotLink::kNil;
  }

  // The record in the slot, copied to `out` too, unless that is null.
  [[gnu::always_inline]] static Value const* valueIn(SlotType slot, void* out) {
    if (out != nullptr) slot.template copyOut<Ops::valueSize>(out);
    return static_cast<Value const*>(slot.valueAddress());
  }

  // The first record at or after the bucket, in the order of reversed hashes.
  bool first(std::uint32_t bucket, Value& value, IterHint& hint) const {
    if (bucket >= buckets_.numBuckets()) buckets_.throwOutOfRange(bucket);
    if (!take(buckets_.head(bucket), bucket, value, hint)) return false;
    DOVEL_TRACE(debugHandler(), 9, "WriterHashMap", "{} found at bucket {}", keyOf(value), hint.bucket);
    return true;
  }

  // The record after the key, whether or not the key is still there. The hint of the call that returned the
  // key makes it fast.
  bool next(Key const& after, Value& value, IterHint& hint) const {
    // The key may be part of the value that is about to be filled.
    Key const key = after;
    if (hint.slot < slots_.numSlots() && hint.bucket < buckets_.numBuckets()) {
      SlotLink const link = slots_[hint.slot].link();
      if (link.sequence == hint.sequence) {
        if (validator_ != nullptr) return step(key, link, hint.bucket, value, hint);
        try {
          return step(key, link, hint.bucket, value, hint);
        } catch (Dovel::RuntimeException const& caught) {
          DOVEL_TRACE(debugHandler(), 5, "WriterHashMap",
                      "saw exception in fast path: {}. This might be okay, dropping to slow path to find out",
                      caught.msg());
        }
      }
    }
    return nextByKey(key, value, hint);
  }

  // Doubles the buckets. Throws Dovel::MemoryResourceException before anything has changed.
  void growBuckets() {
    std::uint32_t const old = buckets_.numBuckets();
    std::uint32_t const grown = 2 * old;
    DOVEL_TRACE(debugHandler(), 2, "WriterHashMap", "growing from: {} to: {}", old, grown);
    Resize resize(*this);
    buckets_.resize(grown);
    Chains const chains(slots_, &buckets_.headCell(0));
    for (std::uint32_t bucket = 0; bucket < old; ++bucket) {
      chains.prefetch(bucket, old);
      relink(chains.head(bucket + old), linkIn(chains.splitPoint(bucket, old)).target());
      owner_.yieldIfDue();
    }
    buckets_.publish(grown);
    for (std::uint32_t bucket = 0; bucket < old; ++bucket) {
      chains.prefetch(bucket, old);
      relink(chains.cutPoint(bucket, bucket + old), SlotLink::endAt(bucket + old));
      owner_.yieldIfDue();
    }
    resize.finish(&Bucket::WriterCounters::maxGrowTime);
  }

  // Halves the buckets, of which there are at least two.
  void shrinkBuckets() {
    std::uint32_t const old = buckets_.numBuckets();
    std::uint32_t const shrunk = old / 2;
    Resize resize(*this);
    Chains const chains(slots_, &buckets_.headCell(0));
    for (std::uint32_t bucket = 0; bucket < shrunk; ++bucket) {
      chains.prefetch(bucket, shrunk);
      relink(chains.end(bucket), linkIn(chains.head(bucket + shrunk)).target());
      owner_.yieldIfDue();
    }
    buckets_.publish(shrunk);
    buckets_.resize(shrunk);
    resize.finish(&Bucket::WriterCounters::maxShrinkTime);
    DOVEL_TRACE(debugHandler(), 2, "WriterHashMap", "shrunk from:{} to:{} shrinkBuckets_:{} time:{}", old,
                shrunk, shrinkBuckets_, counters_.lastResizeTime);
  }

  [[gnu::always_inline]] std::uint32_t hashOf(Key const& key) const {
    return Ops::KeyOps::hash(key, owner_.hashSeed());
  }

  using WriterHashMapCommon::linkIn;
  using WriterHashMapCommon::relink;
  static Key keyIn(SlotType slot) {
    Key key;
    slot.template copyOut<sizeof(Key)>(&key);
    return key;
  }
  static decltype(auto) keyOf(Value const& value) { return Ops::KeyOps::key(value); }

 private:
  // Where a search has come to, see find().
  struct Place {
    Mem::Cell* prev;
    Mem::Cell* curr;
    bool found;
  };

  // Short, and its result in registers: what a look-up in a large table costs is how many of them the
  // processor has under way while it waits for memory, and that is how many fit into its window of
  // instructions.
  template <bool traced>
  [[gnu::always_inline]] Place search(Key const& key, std::uint32_t bucket, std::uint32_t hash) const {
    Mem::Cell* prev = &buckets_.headCell(bucket);
    Mem::Cell* curr = prev;
    std::uint32_t const reversed = reverseBits(hash);
    SlotLink link = linkIn(*prev);
    for (std::uint32_t steps = 1; link.leadsToSlot(); ++steps) {
      if (steps > slots_.numSlots()) [[unlikely]]
        throwHashChainCycle(steps, slots_.numSlots());
      SlotType const slot = slots_[link.id()];
      curr = &slot.linkCell();
      SlotLink const next = slot.link();
      if (!next.occupied()) [[unlikely]]
        throwNotOccupied(link.id());
      Key const slotKey = keyIn(slot);
      // A key that equals the wanted one needs no check of its bucket.
      if (slotKey == key) {
        if constexpr (traced)
          DOVEL_TRACE(debugHandler(), 9, "WriterHashMap", "{} found curr:{} next:{:#x}", key, link.id(),
                      next.next);
        slots_.lastValueIs({*curr, next.sequence});
        return {prev, curr, true};
      }
      slots_.prefetch(next.id());
      if (!belongs(hashOf(slotKey), bucket)) [[unlikely]]
        throwCorruptKey(link.id());
      std::uint32_t const slotHash = slot.hash();
      if (slotHash > reversed || (slotHash == reversed && key < slotKey)) break;
      if constexpr (traced)
        DOVEL_TRACE(debugHandler(), 9, "WriterHashMap", "{} next curr:{}", key, link.id());
      prev = curr;
      link = next;
    }
    if constexpr (traced)
      DOVEL_TRACE(debugHandler(), 9, "WriterHashMap", "{} not found curr:{} next:{:#x}", key, link.id(),
                  link.next);
    return {prev, curr, false};
  }

  // Apart, so that what traces need is not in the way of searches that aren't traced.
  [[gnu::noinline, gnu::cold]] Place searchTraced(Key const& key, std::uint32_t bucket,
                                                  std::uint32_t hash) const {
    return search<true>(key, bucket, hash);
  }

  // Times a resize, starts the yielding, and lets chains be legal under the counts on both sides.
  class Resize {
   public:
    explicit Resize(WriterHashMap& map) : map_(map), start_(Dovel::Rdtsc::now()) {
      map_.owner_.armDeadline();
      map_.resizing_ = true;
    }
    Resize(Resize const&) = delete;
    Resize& operator=(Resize const&) = delete;
    ~Resize() { map_.resizing_ = false; }
    void finish(double Bucket::WriterCounters::*longest) {
      double const seconds =
          static_cast<double>(Dovel::Rdtsc::now() - start_) / Dovel::Rdtsc::calibrationRate();
      map_.counters_.lastResizeTime = seconds;
      map_.counters_.*longest = std::max(map_.counters_.*longest, seconds);
      map_.updateThresholds();
    }

   private:
    WriterHashMap& map_;
    std::uint64_t start_;
  };

  void updateThresholds() {
    growBuckets_ = buckets_.numBuckets();
    shrinkThreshold_ = buckets_.numBuckets() / 4;
  }

  [[gnu::always_inline]] bool belongs(std::uint32_t hash, std::uint32_t bucket) const {
    return (hash & (buckets_.numBuckets() - 1)) == bucket ||
           (resizing_ && belongsWhileResizing(hash, bucket));
  }
  bool belongsWhileResizing(std::uint32_t hash, std::uint32_t bucket) const {
    std::uint32_t const count = buckets_.numBuckets();
    return (count > 1 && (hash & (count / 2 - 1)) == bucket) || (hash & (2 * count - 1)) == bucket;
  }

  // Whether the bucket is the last in iteration order.
  bool isLast(std::uint32_t bucket) const {
    std::uint32_t const count = buckets_.numBuckets();
    if (bucket == count - 1) return true;
    return resizing_ && (bucket == count / 2 - 1 || bucket == 2 * count - 1);
  }

  bool follows(std::uint32_t bucket, std::uint32_t named) const {
    unsigned const bits = buckets_.bits();
    if (named == BucketTable::nextBucket(bucket, bits)) return true;
    if (!resizing_) return false;
    return named == BucketTable::nextBucket(bucket, bits + 1) ||
           (bits > 0 && named == BucketTable::nextBucket(bucket, bits - 1));
  }

  // From a link of the bucket's chain on to the next record. Where that throws, the hint is as it was.
  bool take(SlotLink link, std::uint32_t bucket, Value& value, IterHint& hint) const {
    std::uint32_t hops = 0;
    while (!link.leadsToSlot()) {
      if (link.isNil()) {
        if (!isLast(bucket)) throwReachedEnd(bucket, buckets_.numBuckets() - 1);
        DOVEL_TRACE(debugHandler(), 8, "WriterHashMap", "none found!");
        return false;
      }
      if (++hops >= buckets_.numBuckets()) throwHashBucketCycle(hops, buckets_.numBuckets());
      if (!follows(bucket, link.id()))
        throwHasBucket(bucket, link.id(), BucketTable::nextBucket(bucket, buckets_.bits()));
      if (link.id() >= buckets_.numBuckets()) buckets_.throwOutOfRange(link.id());
      bucket = link.id();
      link = buckets_.head(bucket);
      Chains(slots_, &buckets_.headCell(0)).prefetchFollowing(bucket, buckets_.bits());
    }
    SlotType const slot = slots_[link.id()];
    SlotLink const slotLink = slot.link();
    if (validator_ != nullptr) {
      validator_->markOccupied(link.id(), slotLink);
    } else if (!slotLink.occupied()) {
      throwNotOccupied(link.id());
    }
    slot.template copyOut<Ops::valueSize>(&value);
    std::uint32_t const hash = hashOf(keyOf(value));
    if (!belongs(hash, bucket)) throwCorruptKey(link.id());
    if (validator_ != nullptr && slot.hash() != reverseBits(hash))
      throwCorruptRhash(link.id(), slot.hash(), reverseBits(hash));
    hint = {slotLink.sequence, link.id(), bucket};
    return true;
  }

  // take() for next(), with its traces.
  bool step(Key const& key, SlotLink link, std::uint32_t bucket, Value& value, IterHint& hint) const {
    if (!link.leadsToSlot())
      DOVEL_TRACE(debugHandler(), 9, "WriterHashMap", "{} next bucket {} using {}", key, link.id(), hint);
    if (!take(link, bucket, value, hint)) return false;
    if (validator_ != nullptr && !ordered(key, keyOf(value))) throwCorruptOrder(hint.slot);
    DOVEL_TRACE(debugHandler(), 9, "WriterHashMap", "{} success {} using {}, saving new slot hint {}", key,
                keyOf(value), hint.bucket, hint);
    return true;
  }

  bool ordered(Key const& before, Key const& after) const {
    std::uint32_t const left = reverseBits(hashOf(before));
    std::uint32_t const right = reverseBits(hashOf(after));
    return left < right || (left == right && before < after);
  }

  bool nextByKey(Key const& key, Value& value, IterHint& hint) const {
    std::uint32_t const hash = hashOf(key);
    std::uint32_t const reversed = reverseBits(hash);
    std::uint32_t const bucket = bucketOf(hash);
    SlotLink link = buckets_.head(bucket);
    std::uint32_t steps = 0;
    while (link.leadsToSlot()) {
      if (++steps > slots_.numSlots()) throwHashChainCycle(steps, slots_.numSlots());
      SlotType const slot = slots_[link.id()];
      if (!slot.link().occupied()) throwNotOccupied(link.id());
      Key const slotKey = keyIn(slot);
      DOVEL_TRACE(debugHandler(), 9, "WriterHashMap", "{} comparing slot {} {}", key, link.id(), slotKey);
      if (!belongs(hashOf(slotKey), bucket)) throwCorruptKey(link.id());
      if (slot.hash() > reversed || (slot.hash() == reversed && key < slotKey)) break;
      link = slot.link();
    }
    return step(key, link, bucket, value, hint);
  }

  Buckets& buckets_;
  Slots& slots_;
  Owner& owner_;
  std::uint32_t growBuckets_ = 0;
  std::uint32_t shrinkThreshold_ = 0;
  bool const shrinkBuckets_;
  bool resizing_ = false;
  Bucket::WriterCounters& counters_;
  Validator* validator_ = nullptr;
};

}  // namespace VaultCore
