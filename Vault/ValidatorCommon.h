// The counting part of a full check of a table: every slot is to be seen exactly once, on a chain or on the
// free list. Lives on the stack of the check.
#pragma once

#include <cstdint>
#include <vector>

#include "VaultCore/SlotLink.h"
#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/Format.h"

namespace Vault {

class ValidatorCommon : public Dovel::Debuggable {
 public:
  ValidatorCommon(Dovel::Platform::DebugHandler const& handler, std::uint32_t capacity);

  // A chain leads to the slot. Throws Dovel::CorruptionDetectedException where it was seen before, is free,
  // or is in the middle of a change.
  void markOccupied(std::uint32_t slot, SlotLink link) {
    DOVEL_TRACE(debugHandler(), 9, "Validator", "slotIndex: {}", slot);
    if (slot >= marks_.size()) [[unlikely]]
      throwOutOfBounds(slot);
    if (marks_[slot] != 0) throwDuplicateSlot(slot);
    marks_[slot] = 1;
    ++occupiedCount_;
    if (!link.occupied()) throwMissingOccupied(slot);
    if (link.inLookaside()) throwStuckLookaside(slot);
  }

  // The free list leads to the slot. Throws in the same way.
  void markFree(std::uint32_t slot, SlotLink link);

  std::uint32_t occupiedCount() const { return occupiedCount_; }
  std::uint32_t freeCount() const { return freeCount_; }
  Dovel::String const& error() const { return error_; }

 protected:
  void errorIs(Dovel::String const& error) { error_ = error; }

  [[noreturn]] static void throwOutOfBounds(std::uint32_t slot);
  [[noreturn]] static void throwDuplicateSlot(std::uint32_t slot);
  [[noreturn]] static void throwMissingOccupied(std::uint32_t slot);
  [[noreturn]] static void throwStuckLookaside(std::uint32_t slot);
  // More, or fewer, records than the header says.
  [[noreturn]] static void walkOccupiedSlotsWrong(std::uint32_t count, std::uint32_t occupied);
  void walkOccupiedSlotsEpilogue(std::uint32_t occupied) const;
  [[noreturn]] static void walkFreeSlotsOutOfBounds(std::uint32_t slot);
  [[noreturn]] static void walkFreeSlotsDuplicate(std::uint32_t slot);
  [[noreturn]] static void walkFreeSlotsNotEmpty(std::uint32_t slot);
  // Occupied and free slots don't add up.
  [[noreturn]] static void doValidateBadSlotCount(std::uint32_t found, std::uint32_t capacity);

 private:
  std::uint32_t occupiedCount_ = 0;
  std::uint32_t freeCount_ = 0;
  std::vector<std::uint8_t> marks_;
  std::vector<std::uint8_t> freeMarks_;
  Dovel::String error_;
};

}  // namespace Vault
