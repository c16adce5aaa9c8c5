// The one who changes a table. Every operation keeps its stores in an order in which readers, and a later
// writer that finds the files of a dead one, can understand them: see SharedWord.h.
//
// One thread of one process, the one that initialized it; not its forked children. After an exception other
// than Vault::TableFullException and those of refusals, the table counts as damaged: it is checked, and
// wiped, when it is next attached. Nothing allocates, and only growth and shrinking make system calls.
#pragma once

#include <unistd.h>

#include <bit>
#include <cstring>
#include <optional>

#include "Vault/SlotWriter.h"
#include "Vault/Validator.h"
#include "Vault/VaultInterface.h"
#include "Vault/WriterLifecycle.h"
#include "VaultCore/WriterHashMap.h"
#include "platform/memory/Atomics.h"
#include "runtime/TaskSchedulerRoot.h"
#include "runtime/Vault/Ops.h"

namespace Vault {

template <class Ops>
class VaultWriter : public VaultInterface<Ops>, public WriterLifecycle {
 public:
  using Key = typename Ops::Key;
  using Value = typename Ops::Value;
  using Slots = SlotWriterTable<Ops>;
  using Check = Validator<Ops, VaultWriter>;
  using HashMap = VaultCore::WriterHashMap<Ops, Slots, VaultWriter, Check>;
  using SlotType = typename Slots::SlotType;

  // A herald that isn't null is told of every slot that changes.
  VaultWriter(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
              MapDescriptor const& descriptor, std::unique_ptr<Herald::HeraldWriter> herald = nullptr)
      : VaultInterface<Ops>(handler),
        WriterLifecycle(handler, rootPath, descriptor, Ops::typeName(), std::move(herald)),
        slots_(handler_, rootPath_, mappingOf(SlotTable::kFileName), slotSetup(descriptor), hashSeed_,
               counters_),
        map_(handler_, buckets_, slots_, *this, descriptor.shrinkBuckets, counters_.buckets),
        criticalTaskCheck_(descriptor.criticalTaskCheck) {}
  ~VaultWriter() override {
    if (initialized_) detachFiles();
  }

  // True, or an exception that tells why not. Files of an earlier writer are taken over where they are sound,
  // and wiped where they are not.
  bool initialize(Dovel::String const& /*event*/) override {
    if (initialized_) return true;
    if (!localMem_ && !Mem::Atomics::checkCpuSupport())
      DOVEL_THROW(Dovel::InvalidInitializeException, "VaultWriter", "Hardware does not support Atomics");
    // Measured here, so that no operation has to wait for it.
    Dovel::Rdtsc::calibrationRate();
    attach();
    initialized_ = true;
    return true;
  }
  void detach(bool /*force*/) override {
    // A child has nothing to read the direct slot from.
    DOVEL_ASSERT(isForeign() || !isDirect(), "VaultWriter", "{}", unbalanced("detaching", {}));
    detachFiles();
  }
  void cleanup() override {
    checkMine("cleanup");
    cleanupFiles();
  }
  bool validate() override {
    checkMine("validate");
    if (validateAll(emberId_, true)) return true;
    DOVEL_TRACE(handler_, 0, "VaultWriter", "{}", dumpHeaders());
    return false;
  }
  bool validateFiles() override { return filesAreThere(); }

  std::uint32_t members() const override {
    checkMine("members");
    return initialized_ ? slots_.header().occupiedSlots() : 0;
  }
  std::uint32_t buckets() const override { return buckets_.numBuckets(); }
  std::uint32_t capacity() const override { return slots_.numSlots(); }
  std::uint32_t maxSize() const override { return slots_.maxSize(); }
  // The slots that fit into one page with the header.
  std::uint32_t minSize() const override { return slotsOfAPage(); }
  VaultType type() const override { return VaultType::writer; }
  Mem::RootPath rootPath() const override { return rootPath_; }
  Dovel::String vaultName() const override { return rootPath_.dirName(); }
  int mountStatus() const override { return initialized_ ? 1 : 0; }
  SharedMem::EmberId emberId() const override { return emberId_; }
  Nudge::Sequence sequence(Herald::Priority priority) const override { return herald_->sequence(priority); }

  void validateVersionAnchor() const override {
    checkMine("validateVersionAnchor");
    if (!slots_.anchor().matches()) Mem::throwVersionMismatch(slots_.anchor());
  }
  Mem::VersionAnchor getCacheVersionAnchor() const override { return slots_.anchor(); }
  void criticalTaskCheckIs(bool check) override { criticalTaskCheck_ = check; }
  bool criticalTaskCheck() const override { return criticalTaskCheck_; }
  std::uint64_t scratchpad() const override {
    checkMine("scratchpad");
    return slots_.header().scratchpad();
  }
  void scratchpadIs(std::uint64_t value) override {
    checkMine("scratchpadIs");
    slots_.header().scratchpadIs(value);
  }

  // Throws Vault::TableFullException, before anything has changed, where a table of fixed size has no room,
  // and Dovel::MemoryResourceException where the table can't grow.
  Value const* write(Value const& value, bool update) override {
    checkMine("write");
    // Not copied here, nor below: a copy in one piece of a key that was just put together has to wait until
    // that is in the cache, and all that is done before it.
    auto const& key = Ops::KeyOps::key(value);
    std::uint32_t const hash = map_.hashOf(key);
    std::uint32_t const bucket = map_.bucketOf(hash);
    DOVEL_ASSERT(!isDirect(), "VaultWriter", "{}", unbalanced("writing value", key));
    slots_.enterCriticalSection();
    std::uint32_t const first = map_.firstOf(key, bucket);
    if (first == SlotLink::kNil) return writeInChain(value, update, hash);
    return overwrite(first, slots_[first], value, update);
  }

  bool remove(Key const& removed, Value& value) override {
    checkMine("remove");
    std::uint32_t const hash = map_.hashOf(removed);
    std::uint32_t const bucket = map_.bucketOf(hash);
    DOVEL_ASSERT(!isDirect(), "VaultWriter", "{}", unbalanced("removing key", removed));
    Mem::Cell* prevLink = nullptr;
    Mem::Cell* currLink = nullptr;
    Key const key = removed;  // it may be part of the value that is about to be filled
    if (!map_.find(removed, bucket, prevLink, currLink, hash)) {
      DOVEL_TRACE(handler_, 9, "VaultWriter", "{} bucket:{} not found", key, bucket);
      return false;
    }
    slots_.enterCriticalSection();
    std::uint32_t const id = HashMap::linkIn(*prevLink).id();
    SlotType const slot(currLink);
    slot.template copyOut<Ops::valueSize>(&value);
    HashMap::relink(*prevLink, slot.link().target());
    vacate(slot);
    std::uint32_t const freeList = slots_.header().freeList();
    slots_.header().freeListIs(id);
    HashMap::relink(slot.linkCell(), freeList);
    slots_.header().occupiedSlotsIs(slots_.header().occupiedSlots() - 1);
    ++counters_.removes;
    herald_->post({id});
    DOVEL_TRACE(handler_, 9, "VaultWriter", "{} bucket:{} slot:{}", key, bucket, id);
    shrinkIfSparse();
    if (slots_.header().occupiedSlots() < map_.shrinkThreshold()) map_.shrinkBuckets();
    slots_.leaveCriticalSection();
    return true;
  }

  Value const* lookup(Key const& key, bool& found, void* out) const override {
    checkMine("lookup");
    ++counters_.lookups;
    std::uint32_t const hash = map_.hashOf(key);
    std::uint32_t const first = map_.firstOf(key, map_.bucketOf(hash));
    if (first == SlotLink::kNil) return lookupInChain(key, hash, found, out);
    SlotType const slot = slots_[first];
    lastValueIsOf(slot);
    found = true;
    return HashMap::valueIn(slot, out);
  }
  bool first(Value& value, IterHint& hint) const override {
    checkMine("first");
    return map_.first(0, value, hint);
  }
  bool next(Key const& key, Value& value, IterHint& hint) const override {
    checkMine("next");
    return map_.next(key, value, hint);
  }

  // Opens the critical section, which stays open until directCommit(); throws as write() does.
  void directWrite(Value const& value) override {
    checkMine("directWrite");
    auto const& key = Ops::KeyOps::key(value);
    std::uint32_t const hash = map_.hashOf(key);
    std::uint32_t const bucket = map_.bucketOf(hash);
    DOVEL_ASSERT(!isDirect(), "VaultWriter", "{}", unbalanced("modifying key", key));
    slots_.enterCriticalSection();
    Mem::Cell* currLink = nullptr;
    bool const exists = map_.find(key, bucket, directPrev_, currLink, hash);
    std::uint32_t const id =
        exists ? HashMap::linkIn(*directPrev_).id() : takeSlot(directPrev_, VaultCore::reverseBits(hash));
    SlotType const slot = slots_[id];
    ++counters_.directWrites;
    (slot.link().occupied() ? slots_.lookaside() : slot).valueIs(&value);
    traceSlot(exists ? " existing" : " new", key, bucket, id, slot);
    directSlot_ = id;
    directFresh_ = !exists;
  }
  void directCommit() override {
    checkMine("directCommit");
    DOVEL_TRACE(handler_, 9, "VaultWriter", "slot: {}", directSlot_);
    DOVEL_ASSERT(directSlot_ != SlotLink::kNil, "VaultWriter",
                 "not in direct mode! Make sure the DirectIs/Commit are properly paired!");
    std::uint32_t const id = directSlot_;
    SlotType const slot = slots_[id];
    if (directFresh_) linkFresh(slot, *directPrev_);
    ++counters_.directCommits;
    commitValue(slot);
    directSlot_ = SlotLink::kNil;
    if (directFresh_) {
      HashMap::relink(*directPrev_, id);
      directFresh_ = false;
    }
    lastValueIsOf(slot);
    herald_->post({id});
    growBucketsIfFull();
    slots_.leaveCriticalSection();
  }

  bool markAndSweepFlag(Key const& key, MarkAndSweepOperation operation) override {
    checkMine("markAndSweepFlag");
    std::uint32_t const hash = map_.hashOf(key);
    Mem::Cell* prevLink = nullptr;
    Mem::Cell* currLink = nullptr;
    if (!map_.find(key, map_.bucketOf(hash), prevLink, currLink, hash)) return false;
    SlotLink link = HashMap::linkIn(*currLink);
    if (operation == MarkAndSweepOperation::read) return link.flag();
    link.sequence += SlotLink::kChange;
    link.next = link.target() | (operation == MarkAndSweepOperation::set ? SlotLink::kFlag : 0);
    Mem::SharedWord::publishLink(*currLink, link.word());
    return true;
  }

  // Gives back slots where occupancy has fallen far enough; removals do so by themselves.
  void shrink() override {
    checkMine("shrink");
    slots_.enterCriticalSection();
    shrinkIfSparse();
    slots_.leaveCriticalSection();
  }

  // For the parts of the writer and for the check.
  std::uint32_t hashSeed() const { return hashSeed_; }
  Slots& slotTable() { return slots_; }
  Buckets const& bucketTable() const { return buckets_; }
  HashMap const& hashMap() const { return map_; }

  // Long operations call the second after every piece of work: the scheduler's critical tasks then run once
  // the deadline has passed.
  void armDeadline() { deadline_ = Dovel::Rdtsc::now() + Dovel::Rdtsc::fromDuration(kStretch); }
  [[gnu::always_inline]] void yieldIfDue() {
    if (criticalTaskCheck_ && Dovel::Rdtsc::now() >= deadline_) yield();
  }

 protected:
  SlotWriterTableCommon& slots() override { return slots_; }

  bool validateAll(SharedMem::EmberId emberId, bool checkOwner) override {
    map_.attached();
    Check check(*this);
    map_.validatorIs(&check);
    bool const sound = check.validate(emberId);
    map_.validatorIs(nullptr);
    return sound && (!checkOwner || ownerIsValid());
  }

 private:
  static constexpr std::chrono::milliseconds kStretch{10};

  static std::uint32_t slotsOfAPage() {
    auto const page = static_cast<std::uint32_t>(::sysconf(_SC_PAGESIZE));
    constexpr SlotShape kShape = Slots::kShape;
    if (page < kShape.headerSize() + kShape.slotSize()) return 1;
    return std::bit_floor((page - kShape.headerSize()) / kShape.slotSize());
  }

  static typename Slots::Setup slotSetup(MapDescriptor const& descriptor) {
    auto setup = Slots::setup();
    setup.capacity = descriptor.fixedSize ? descriptor.maxSize : slotsOfAPage();
    setup.maxSize = descriptor.maxSize;
    setup.fixedSize = descriptor.fixedSize;
    setup.shrink = descriptor.shrink;
    return setup;
  }

  void checkMine(char const* operation) const {
    if (isForeign()) [[unlikely]]
      refuseForeign(operation);
  }

  [[gnu::noinline]] void yield() {
    Dovel::schedulerRootDovel()->runCriticalPriorityTasks();
    armDeadline();
  }

  bool isDirect() const { return directSlot_ != SlotLink::kNil || directFresh_; }
  Dovel::String unbalanced(char const* what, std::optional<Key> key) const;

  void lastValueIsOf(SlotType slot) const { slots_.lastValueIs({slot.linkCell(), slot.link().sequence}); }
  static Value const* valueOf(SlotType slot) { return static_cast<Value const*>(slot.valueAddress()); }

  [[gnu::always_inline]] void traceSlot(char const* what, Key const& key, std::uint32_t bucket,
                                        std::uint32_t id, SlotType slot) const {
    DOVEL_TRACE(handler_, 9, "VaultWriter", "{} {} bucket:{} slot:{} next:{:#x}", what, key, bucket, id,
                slot.link().next);
  }

  // The three ways in which a write goes on inside the critical section, which each of them leaves.

  // Of a key that isn't the first of its chain, if it is there at all. Apart, like lookupInChain(), so that
  // the short way saves no registers for this one.
  [[gnu::noinline]] Value const* writeInChain(Value const& value, bool update, std::uint32_t hash) {
    auto const& key = Ops::KeyOps::key(value);
    std::uint32_t const bucket = map_.bucketOf(hash);
    Mem::Cell* prevLink = nullptr;
    Mem::Cell* currLink = nullptr;
    std::uint32_t const reversed = VaultCore::reverseBits(hash);
    if (!map_.find(key, bucket, prevLink, currLink, hash)) return insert(value, bucket, reversed, prevLink);
    SlotType const slot(currLink);
    std::uint32_t const id = HashMap::linkIn(*prevLink).id();
    traceSlot("existing", key, bucket, id, slot);
    return overwrite(id, slot, value, update);
  }

  // Of a key that is there.
  [[gnu::always_inline]] Value const* overwrite(std::uint32_t id, SlotType slot, Value const& value,
                                                bool update) {
    if (update) {
      slots_.update(slot, value);
      ++counters_.updates;
    }
    lastValueIsOf(slot);
    if (update) herald_->post({id});
    slots_.leaveCriticalSection();
    return valueOf(slot);
  }

  // Of a key that is not there. prevLink: the place for it.
  [[gnu::always_inline]] Value const* insert(Value const& value, std::uint32_t bucket, std::uint32_t reversed,
                                             Mem::Cell* prevLink) {
    std::uint32_t const id = takeSlot(prevLink, reversed);
    SlotType const slot = slots_[id];
    traceSlot("new", Ops::KeyOps::key(value), bucket, id, slot);
    linkFresh(slot, *prevLink);
    slots_.update(slot, value);
    HashMap::relink(*prevLink, id);
    lastValueIsOf(slot);
    herald_->post({id});
    growBucketsIfFull();
    slots_.leaveCriticalSection();
    return valueOf(slot);
  }

  // Takes a slot off the free list for the place behind a link, whose address stays right if the table grows.
  [[gnu::always_inline]] std::uint32_t takeSlot(Mem::Cell*& before, std::uint32_t reversed) {
    if (slots_.header().freeList() == SlotLink::kNil) [[unlikely]]
      before = growSlots(before);
    std::uint32_t const id = slots_.header().freeList();
    SlotHeaderCommon const header = slots_.header();
    SlotType const slot = slots_[id];
    slot.hashIs(reversed);
    header.freeListIs(slot.link().target());
    std::uint32_t const occupied = header.occupiedSlots() + 1;
    header.occupiedSlotsIs(occupied);
    if (header.largestOccupied() < occupied) header.largestOccupiedIs(occupied);
    ++counters_.inserts;
    return id;
  }

  // Returns where the link is then.
  [[gnu::noinline]] Mem::Cell* growSlots(Mem::Cell* before) {
    {
      AutoMemMove const guard(slots_, before);
      if (!slots_.grow()) slots_.alloc();
    }
    buckets_.publishAgain();
    return before;
  }

  // Lets a new slot lead to what prevLink leads to. What its last tenant was marked with is not its own.
  static void linkFresh(SlotType slot, Mem::Cell const& prevLink) {
    SlotLink const link{slot.link().sequence + SlotLink::kChange, HashMap::linkIn(prevLink).target()};
    Mem::SharedWord::publishLink(slot.linkCell(), link.word());
  }

  static void vacate(SlotType slot) {
    SlotLink link = slot.link();
    link.sequence &= ~SlotLink::kOccupied;
    Mem::SharedWord::vacateSlot(slot.linkCell(), link.word());
  }

  // Makes what directWrite() has prepared the slot's value.
  void commitValue(SlotType slot) {
    SlotLink link = slot.link();
    if (!link.occupied()) {
      link.sequence = (link.sequence + SlotLink::kChange) | SlotLink::kOccupied;
      Mem::SharedWord::closeValue(slot.linkCell(), link.word());
      return;
    }
    slots_.lookaside().hashIs(slot.hash());
    link.sequence += SlotLink::kLookaside;
    Mem::SharedWord::openValue(slot.linkCell(), link.word());
    slot.valueIs(slots_.lookaside());
    link.sequence += SlotLink::kLookaside;
    Mem::SharedWord::closeValue(slot.linkCell(), link.word());
  }

  [[gnu::noinline]] Value const* lookupInChain(Key const& key, std::uint32_t hash, bool& found,
                                               void* out) const {
    Value const* const value = map_.lookup(key, map_.bucketOf(hash), hash, out);
    found = value != nullptr;
    if (found) [[likely]]
      return value;
    Value const& none = Ops::ValueOps::type_default_;
    if (out != nullptr) std::memcpy(out, &none, Ops::valueSize);
    return &none;
  }

  void growBucketsIfFull() {
    if (slots_.header().occupiedSlots() > map_.growThreshold()) map_.growBuckets();
  }

  void shrinkIfSparse() {
    std::uint32_t const threshold = slots_.shrinkThreshold();
    doMaybeShrinkSlots(slots_.header().occupiedSlots() < threshold / 2 ? threshold : 0);
  }

  void doMaybeShrinkSlots(std::uint32_t shrinkThreshold);
  bool moveSlot(std::uint32_t id, Mem::LastValue saved);

  std::uint32_t directSlot_ = SlotLink::kNil;
  Mem::Cell* directPrev_ = nullptr;
  bool directFresh_ = false;
  mutable Slots slots_;
  HashMap map_;
  bool criticalTaskCheck_;
  std::uint64_t deadline_ = 0;
};

template <class Ops>
Dovel::String VaultWriter<Ops>::unbalanced(char const* what, std::optional<Key> key) const {
  Value value;
  if (directSlot_ != SlotLink::kNil) {
    SlotType const slot = slots_[directSlot_];
    (slot.link().occupied() ? slots_.lookaside() : slot).template copyOut<Ops::valueSize>(&value);
  }
  Dovel::String const asked =
      key ? DOVEL_TRACESTR("VaultWriter", " when {}:{}", what, *key) : Dovel::String();
  return DOVEL_TRACESTR(
      "VaultWriter",
      "unbalanced directSlot:{} containing value:{}{} - Make sure the DirectIs/Commit are properly paired!",
      directSlot_, Ops::KeyOps::key(value), asked);
}

template <class Ops>
void VaultWriter<Ops>::doMaybeShrinkSlots(std::uint32_t shrinkThreshold) {
  if (shrinkThreshold == 0) return;
  std::uint32_t const occupied = slots_.header().occupiedSlots();
  std::uint32_t threshold = occupied == 0 ? 0 : 4 * std::bit_floor(occupied);
  threshold = std::max(threshold, slots_.capacity());
  DOVEL_TRACE(handler_, 5, "VaultWriter", "threshold:{} shrinkThreshold:{}{}", threshold, shrinkThreshold,
              shrinkThreshold > threshold ? " SUPER SHRINK!" : "");
  slots_.purgeFreeSlots(threshold);
  armDeadline();
  Mem::LastValue const saved = slots_.lastValue();
  bool dropped = false;
  std::uint64_t moved = 0;
  for (std::uint32_t id = slots_.numSlots(); id-- > threshold;) {
    if (!slots_[id].link().occupied()) {
      DOVEL_TRACE(handler_, 9, "VaultWriter", "skipping not occupied slot:{}", id);
      continue;
    }
    dropped = moveSlot(id, saved) || dropped;
    ++moved;
    yieldIfDue();
  }
  // Every search has left its own; it is what it was before, unless that was moved.
  slots_.lastValueIs(dropped ? Mem::LastValue() : saved);
  slots_.shrink(threshold);
  buckets_.publishAgain();
  DOVEL_TRACE(handler_, 5, "VaultWriter", "at threshold:{} done", threshold);
  counters_.slotsMoved += moved;
}

// Moves the record of a slot to the lowest free one. True where it was the saved one.
template <class Ops>
bool VaultWriter<Ops>::moveSlot(std::uint32_t id, Mem::LastValue saved) {
  Key const key = HashMap::keyIn(slots_[id]);
  std::uint32_t const hash = map_.hashOf(key);
  Mem::Cell* prevLink = nullptr;
  Mem::Cell* currLink = nullptr;
  bool const found = map_.find(key, map_.bucketOf(hash), prevLink, currLink, hash);
  DOVEL_ASSERT(found, "VaultWriter", "fromSlot:{} key not found", id);
  DOVEL_ASSERT(prevLink != nullptr, "VaultWriter", "fromSlot:{} not referenced", id);
  bool const wasLast = slots_.lastValue() == saved;
  std::uint32_t const newId = slots_.move(id);
  DOVEL_TRACE(handler_, 9, "VaultWriter", "moving fromSlot:{} toSlot:{}", id, newId);
  HashMap::relink(*prevLink, newId);
  vacate(slots_[id]);
  herald_->post({newId});
  herald_->post({id});
  return wasLast;
}

}  // namespace Vault
