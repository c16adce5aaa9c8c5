#include "Vault/ValidatorCommon.h"

#include "runtime/Dovel/Exception.h"

namespace Vault {

using Dovel::CorruptionDetectedException;

ValidatorCommon::ValidatorCommon(Dovel::Platform::DebugHandler const& handler, std::uint32_t capacity)
    : Dovel::Debuggable(handler), marks_(capacity), freeMarks_(capacity) {}

void ValidatorCommon::markFree(std::uint32_t slot, SlotLink link) {
  DOVEL_TRACE(debugHandler(), 9, "Validator", "walking slotIndex: {}", slot);
  if (slot >= freeMarks_.size()) walkFreeSlotsOutOfBounds(slot);
  if (freeMarks_[slot] != 0) walkFreeSlotsDuplicate(slot);
  freeMarks_[slot] = 1;
  ++freeCount_;
  if (link.occupied()) walkFreeSlotsNotEmpty(slot);
}

void ValidatorCommon::throwOutOfBounds(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "Validator", "a chain leads to slot {}, which does not exist",
              slot);
}

void ValidatorCommon::throwDuplicateSlot(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "Validator", "slot {} is on two chains", slot);
}

void ValidatorCommon::throwMissingOccupied(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "Validator", "slot {} is on a chain but not occupied", slot);
}

void ValidatorCommon::throwStuckLookaside(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "Validator", "slot {} is stuck in the middle of a change", slot);
}

void ValidatorCommon::walkOccupiedSlotsWrong(std::uint32_t count, std::uint32_t occupied) {
  DOVEL_THROW(CorruptionDetectedException, "Validator", "{} slots on chains, the header says {}", count,
              occupied);
}

void ValidatorCommon::walkOccupiedSlotsEpilogue(std::uint32_t occupied) const {
  if (occupiedCount_ != occupied) walkOccupiedSlotsWrong(occupiedCount_, occupied);
}

void ValidatorCommon::walkFreeSlotsOutOfBounds(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "Validator",
              "the free list leads to slot {}, which does not exist", slot);
}

void ValidatorCommon::walkFreeSlotsDuplicate(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "Validator", "slot {} is on the free list twice", slot);
}

void ValidatorCommon::walkFreeSlotsNotEmpty(std::uint32_t slot) {
  DOVEL_THROW(CorruptionDetectedException, "Validator", "slot {} is on the free list but occupied", slot);
}

void ValidatorCommon::doValidateBadSlotCount(std::uint32_t found, std::uint32_t capacity) {
  DOVEL_THROW(CorruptionDetectedException, "Validator", "{} slots found on chains and free list, of {}",
              found, capacity);
}

}  // namespace Vault
