// A full check of a table, by its writer: what passes satisfies every invariant of slots and hash map.
#pragma once

#include "Vault/ValidatorCommon.h"
#include "VaultCore/IterHint.h"
#include "platform/memory/EmberId.h"
#include "runtime/Dovel/Exception.h"

namespace Vault {

// Writer gives its slots, hash map and buckets; while the check runs its hash map tells the validator of
// every slot that it comes to.
template <class Ops, class Writer>
class Validator : public ValidatorCommon {
 public:
  explicit Validator(Writer& writer)
      : ValidatorCommon(writer.debugHandler(), writer.capacity()), writer_(writer) {}

  // False with the reason in error().
  bool validate(SharedMem::EmberId emberId) {
    bool const sound = caught([&] { return filesAreSound(emberId); }) && caught([&] { return walk(); });
    if (!sound) {
      DOVEL_TRACE(debugHandler(), 0, "Validator", "Vault {} validation failed: {}", writer_.vaultName(),
                  error());
    }
    return sound;
  }

 private:
  using Key = typename Ops::Key;

  // Both look, whatever the first one finds.
  bool filesAreSound(SharedMem::EmberId emberId) {
    Dovel::String ofBuckets;
    Dovel::String ofSlots;
    bool const buckets = writer_.bucketTable().validate(emberId, ofBuckets);
    bool const slots = writer_.slotTable().validate(emberId, ofSlots);
    if (!slots) {
      errorIs(ofSlots);
    } else if (!buckets) {
      errorIs(ofBuckets);
    }
    return buckets && slots;
  }

  bool walk() {
    walkOccupiedSlots();
    walkFreeSlots();
    if (occupiedCount() + freeCount() != writer_.capacity())
      doValidateBadSlotCount(occupiedCount() + freeCount(), writer_.capacity());
    return true;
  }

  template <class Check>
  bool caught(Check&& check) {
    try {
      return check();
    } catch (Dovel::Exception const& exception) {
      errorIs(exception.msg());
      DOVEL_TRACE(debugHandler(), 0, "Validator", "caught: {}", exception.msg());
      return false;
    }
  }

  void walkOccupiedSlots() {
    DOVEL_TRACE(debugHandler(), 5, "Validator", "starting");
    std::uint32_t const occupied = writer_.slotTable().header().occupiedSlots();
    typename Ops::Value value;
    IterHint hint;
    for (bool more = writer_.hashMap().first(0, value, hint); more;
         more = writer_.hashMap().next(Ops::KeyOps::key(value), value, hint)) {
      if (occupiedCount() > occupied) walkOccupiedSlotsWrong(occupiedCount(), occupied);
    }
    walkOccupiedSlotsEpilogue(occupied);
  }

  void walkFreeSlots() {
    DOVEL_TRACE(debugHandler(), 5, "Validator", "starting");
    std::uint32_t last = SlotLink::kNil;
    for (std::uint32_t slot = writer_.slotTable().header().freeList(); slot != SlotLink::kNil;) {
      if (slot >= writer_.capacity()) walkFreeSlotsOutOfBounds(slot);
      SlotLink const link = writer_.slotTable()[slot].link();
      markFree(slot, link);
      last = slot;
      slot = link.target();
    }
    writer_.slotTable().lastFreeSlotIs(last);
  }

  Writer& writer_;
};

}  // namespace Vault
