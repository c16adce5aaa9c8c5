// The one who reads a table while its writer changes it, in another process most of the time. What a walk
// returns is handed out only where nothing was resized meanwhile; a walk that makes no sense is made again
// where a resize explains it.
//
// One thread uses an object; any number of objects, in any number of processes, read one table. Nothing is
// written and nobody waited for. A value that was handed out is a copy and stays until the next call.
//
// Once the writer has given up the generation that is attached, because it wipes the table or removes it,
// every operation answers like an empty table and the owner is told once; what follows is initialize() on
// another reader.
#pragma once

#include <cstring>

#include "Vault/ReaderLifecycle.h"
#include "Vault/SlotReader.h"
#include "Vault/VaultInterface.h"
#include "VaultCore/ReaderHashMap.h"
#include "platform/memory/Atomics.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Noop.h"

namespace Vault {

template <class Ops>
class VaultReader : public VaultInterface<Ops>, public ReaderLifecycle {
 public:
  using Key = typename Ops::Key;
  using Value = typename Ops::Value;
  using Slots = SlotReaderTable<Ops>;
  using HashMap = VaultCore::ReaderHashMap<Ops, Slots>;

  // onReplaced is called in the middle of the operation that notices the end of the generation: the reader
  // must outlive that operation. May be empty.
  VaultReader(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
              std::function<void()> onReplaced = {})
      : VaultInterface<Ops>(handler),
        ReaderLifecycle(handler, rootPath, std::move(onReplaced)),
        slots_(handler_, mappingOf(SlotTable::kFileName), counters_),
        map_(handler_, buckets_, slots_, counters_) {}

  // False where there is no complete table yet; to be called again then.
  // Throws Dovel::InvalidInitializeException on a processor that can't do it.
  bool initialize(Dovel::String const& event) override {
    if (!Mem::Atomics::checkCpuSupport())
      DOVEL_THROW(Dovel::InvalidInitializeException, "VaultReader", "Hardware does not support Atomics");
    return initialized_ || attach(event);
  }
  void detach(bool /*force*/) override {
    if (!initialized_) {
      DOVEL_TRACE(handler_, 5, "VaultReader", "already detached");
      return;
    }
    DOVEL_TRACE(handler_, 5, "VaultReader", "delegating to SlotTable::detach()");
    detachFiles();
    DOVEL_TRACE(handler_, 2, "VaultReader", "{} detached", rootPath_.dirName());
  }
  // Only the headers: the rest is checked by every walk as it goes.
  bool validate() override {
    Dovel::String error;
    return initialized_ && !isReplaced() && buckets_.validate(emberId_, error) &&
           slots_.validate(emberId_, error);
  }
  bool validateFiles() override { return isInPlace(); }
  void cleanup() override {
    throwNoPermissionException(handler_, "VaultReader", "cleanup", "cleanup of read-only Vault table");
  }

  // Approximate while the writer is at work.
  std::uint32_t members() const override { return slots_.members(); }
  std::uint32_t buckets() const override { return buckets_.numBuckets(); }
  std::uint32_t minSize() const override { return 0; }
  std::uint32_t maxSize() const override { return initialized_ ? slots_.maxSize() : 0; }
  std::uint32_t capacity() const override { return slots_.capacity(); }
  VaultType type() const override { return VaultType::reader; }
  bool quiesced() const override { return initialized_; }
  bool connected() const override { return initialized_ && !isReplaced(); }
  Reader::Counters readerCounters() const override {
    counters_.bucketResizes = buckets_.resizes();
    return counters_;
  }
  Mem::RootPath rootPath() const override { return rootPath_; }
  Dovel::String vaultName() const override { return rootPath_.dirName(); }
  int mountStatus() const override { return connected() ? 1 : 0; }
  SharedMem::EmberId emberId() const override { return emberId_; }

  void validateVersionAnchor() const override {
    if (!slots_.anchor().matches()) Mem::throwVersionMismatch(slots_.anchor());
  }
  Mem::VersionAnchor getCacheVersionAnchor() const override { return slots_.anchor(); }
  std::uint64_t scratchpad() const override { return slots_.scratchpad(); }

  // All of these throw Dovel::CorruptionDetectedException for damage that no resize explains, and
  // Dovel::MemoryResourceException where a table that has grown can't be mapped.
  Value const* lookup(Key const& wanted, bool& found, void* out) const override {
    ++counters_.lookups;
    // It may stand in the record that is to be filled, and a try that comes to nothing may fill that.
    Key const key = wanted;
    void* const to = out != nullptr ? out : &scratch_;
    StepAtRest const step = map_.firstAtRest(key, to);
    if (step.outcome == AtRest::found && hasStayed()) [[likely]] {
      found = true;
      return static_cast<Value const*>(to);
    }
    if (step.outcome == AtRest::passed) return lookupFartherOn(key, found, to, step.cells, step.link);
    if (step.outcome == AtRest::absent && hasStayed()) {
      found = false;
      return nothing(to);
    }
    return lookupInChain(key, found, to);
  }
  bool first(Value& value, IterHint& hint) const override {
    bool found = false;
    bool const answered = retryOnResize([&] { found = map_.first(0, value, hint); }, Dovel::noop);
    return answered && found;
  }
  bool next(Key const& after, Value& value, IterHint& hint) const override {
    Key const key = after;  // it may be part of the value, which a try that fails has overwritten
    bool found = false;
    bool const answered = retryOnResize([&] { found = map_.next(key, value, hint); },
                                        [&] { hint.bucket = IterHint::kNoBucket; });
    return answered && found;
  }

  // The value of a slot; false, and the default value, where the slot is free or there is none of that index.
  // It goes to `value` and, unless that is null, to `out`.
  bool getValue(std::uint32_t slotIndex, Value& value, void* out) const {
    bool occupied = false;
    bool const answered = retryOnResize(
        [&] {
          occupied = slotIndex < slots_.numSlots() && slots_.readValue(slots_[slotIndex], &value).occupied();
        },
        Dovel::noop);
    occupied = occupied && answered;
    if (!occupied) value = *nothing(nullptr);
    if (out != nullptr) std::memcpy(out, &value, Ops::valueSize);
    return occupied;
  }

  // Runs the read until it comes through with no resize in between; `reset` undoes what a failed one left.
  // False where the store was replaced, so that what was read is not of this table.
  template <class Read, class Reset>
  [[gnu::always_inline]] bool retryOnResize(Read&& read, Reset&& reset) const {
    for (;;) {
      if (isReplaced()) [[unlikely]]
        return replaced();
      try {
        read();
        if (isCurrent()) [[likely]]
          break;
        doResize();
      } catch (Dovel::CorruptionDetectedException const&) {
        ++counters_.suspicions;
        if (!isReplaced() && !doResize()) throw;
      }
      reset();
    }
    return !isReplaced() || replaced();
  }

  // Follows the writer's sizes; false where there was nothing to follow.
  bool doResize() const { return followResize(); }
  using ReaderLifecycle::dumpHeaders;

 protected:
  SlotReaderTableCommon& slots() const override { return slots_; }

 private:
  using AtRest = typename HashMap::AtRest;
  using StepAtRest = typename HashMap::StepAtRest;

  // These two apart, so that the way of most look-ups saves no registers for them. The keys are copies, for
  // what they are a part of may be overwritten.
  [[gnu::noinline]] Value const* lookupFartherOn(Key const key, bool& found, void* to, Mem::Cell const* cells,
                                                 Vault::SlotLink link) const {
    AtRest const outcome = map_.fartherAtRest(key, cells, link, to);
    if (outcome == AtRest::unknown || !hasStayed()) return lookupInChain(key, found, to);
    found = outcome == AtRest::found;
    return found ? static_cast<Value const*>(to) : nothing(to);
  }
  [[gnu::noinline]] Value const* lookupInChain(Key const key, bool& found, void* to) const {
    bool const answered = retryOnResize([&] { found = map_.lookup(key, to); }, Dovel::noop);
    found = found && answered;
    return found ? static_cast<Value const*>(to) : nothing(to);
  }

  // The answer that finds nothing.
  Value const* nothing(void* out) const {
    slots_.lastValueIs({});
    Value const& none = Ops::ValueOps::type_default_;
    if (out != nullptr) std::memcpy(out, &none, Ops::valueSize);
    return &none;
  }

  mutable Slots slots_;
  mutable HashMap map_;
  mutable Value scratch_;
};

}  // namespace Vault
