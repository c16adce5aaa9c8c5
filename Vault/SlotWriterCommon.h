// The slot table as its writer sees it, apart from the type of its records: mapping, free list, growth and
// shrinking, the critical section. One thread; invariants 1 to 4 of SharedWord.h.
//
// Outside a critical section:
//  1. occupiedSlots and the length of the free list add up to numSlots.
//  2. A slot is on exactly one chain where bit 0 of its sequence is set, and on the free list where it is
//  not.
#pragma once

#include <memory>

#include "Vault/SlotHeader.h"
#include "Vault/WriterCounters.h"
#include "VaultCore/SlotLink.h"
#include "platform/memory/Mapping.h"
#include "platform/memory/RootPath.h"
#include "platform/memory/VersionAnchor.h"

namespace Vault {

// What an attach found.
enum class AttachResult : unsigned { none = 0, newFile = 1, existingFile = 2, invalid = 4, badHeader = 8 };

class SlotWriterTableCommon : public Dovel::Debuggable {
 public:
  struct Setup {
    SlotShape shape{};
    std::uint32_t marshalledSize = 0;
    std::string_view typeName;
    void const* defaultValue = nullptr;
    std::uint32_t capacity = 0;
    std::uint32_t maxSize = 0;
    bool fixedSize = false;
    bool shrink = false;
  };

  // All references outlive the table; the seed is set by attach().
  SlotWriterTableCommon(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                        std::unique_ptr<Mem::Mapping> mapping, Setup const& setup, std::uint32_t& hashSeed,
                        Writer::Counters& counters);

  // Maps the file, makes it where it is absent or empty. On badHeader the reason is in error().
  // Throws Dovel::InvalidInitializeException and Dovel::MemoryResourceException.
  AttachResult attach(SharedMem::EmberId emberId);
  void detach();
  bool attached() const { return header_ != nullptr; }

  // Maps room for so many slots. Throws Dovel::MemoryResourceException; then nothing has changed.
  void resize(std::uint32_t newNumSlots);

  // Makes the slots from first up to end free ones and returns the head of their list, which is the caller's
  // to store.
  std::uint32_t initializeSlots(std::uint32_t first, std::uint32_t end);

  // Where there are more slots to be had: true. Throws Dovel::CorruptionDetectedException where the counts
  // contradict each other, and what resize() throws.
  bool grow();
  // For a table that is full and can't grow: throws Vault::TableFullException, the critical section left.
  [[noreturn]] void alloc();
  // Publishes the count and gives back the memory behind it.
  void shrink(std::uint32_t newNumSlots);
  // Takes every slot from threshold on off the free list.
  void purgeFreeSlots(std::uint32_t threshold);

  // The crash mark, the generation and the header; not the slots.
  bool validate(SharedMem::EmberId emberId, Dovel::String& error) const;
  // Deletes the file.
  void cleanup();

  // The crash mark and check of reentrancy. Not a lock. An exception between the two leaves the mark
  // standing, as a crash does.
  [[gnu::always_inline]] void enterCriticalSection() {
    Mem::Cell& cell = header().runtimeFlagsCell();
    Mem::Cell const word = Mem::SharedWord::ownWord(cell);
    if ((word & SlotTable::kCriticalBit) != 0) [[unlikely]]
      failReentrancy();
    Mem::SharedWord::enterCritical(cell, word | SlotTable::kCriticalBit);
  }
  [[gnu::always_inline]] void leaveCriticalSection() {
    Mem::Cell& cell = header().runtimeFlagsCell();
    Mem::SharedWord::leaveCritical(cell, Mem::SharedWord::ownWord(cell) & ~SlotTable::kCriticalBit);
  }

  SlotHeaderCommon header() const { return SlotHeaderCommon(header_); }
  std::uint32_t numSlots() const { return numSlots_; }
  std::uint32_t capacity() const { return capacity_; }
  std::uint32_t maxSize() const { return maxSize_; }
  bool fixedSize() const { return fixedSize_; }
  std::uint32_t shrinkThreshold() const { return shrinkThreshold_; }
  // The last slot of the free list, as the last validation found it.
  std::uint32_t lastFreeSlot() const { return lastFreeSlot_; }
  void lastFreeSlotIs(std::uint32_t slot) { lastFreeSlot_ = slot; }
  Dovel::String const& error() const { return error_; }
  Mem::Mapping& mapping() const { return *mapping_; }
  std::byte const* base() const { return reinterpret_cast<std::byte const*>(header_); }

  // The value that was handed out last.
  Mem::LastValue lastValue() const { return lastValue_; }
  void lastValueIs(Mem::LastValue value) { lastValue_ = value; }
  Mem::VersionAnchor anchor() const { return lastValue_.anchor(base()); }

  // Where the mapping stands may change with every resize.
  Mem::Cell* cellsOf(std::uint32_t slot) const {
    if (slot >= indexLimit_) [[unlikely]]
      throwOutOfRange(slot);
    return slots_ + std::size_t{slot} * shape_.slotCells();
  }

 protected:
  [[noreturn]] void throwOutOfRange(std::uint32_t slot) const;

  // Of the template's fast copy of cellsOf().
  Mem::Cell* slots_ = nullptr;
  std::uint32_t indexLimit_ = 0;

 private:
  SlotHeaderDescription description(SharedMem::EmberId emberId) const;
  bool validateHeader(SharedMem::EmberId emberId, std::uint64_t fileSize, Dovel::String& error) const;
  std::size_t sizeFor(std::uint64_t numSlots) const;
  void baseIs(std::byte* base);
  void numSlotsIs(std::uint32_t numSlots);
  void attachNew(SharedMem::EmberId emberId);
  void adopt();
  void defaultContentsTo(Mem::Cell* cells) const;
  std::uint32_t grownSize() const;
  void updateShrinkThreshold();
  void keepSequenceWatermark(std::uint32_t newNumSlots);
  [[noreturn]] void failReentrancy() const;

  Mem::RootPath const& rootPath_;
  std::unique_ptr<Mem::Mapping> mapping_;
  Dovel::String error_;
  Mem::LastValue lastValue_;
  Mem::Cell* header_ = nullptr;
  std::uint32_t numSlots_ = 0;
  std::uint32_t const maxSize_;
  std::uint32_t& hashSeed_;
  std::uint32_t const capacity_;
  Writer::Counters& counters_;
  bool const fixedSize_;
  bool const shrink_;
  std::uint32_t shrinkThreshold_ = 0;
  std::uint32_t lastFreeSlot_ = SlotLink::kNil;
  SlotShape const shape_;
  std::uint32_t const marshalledSize_;
  std::string_view const typeName_;
  void const* const defaultValue_;
};

// Keeps a pointer to a shared word right while the mapping moves: a pointer into the slot file is set to the
// same place of the new mapping when the guard ends. One into another file stays as it is.
class AutoMemMove {
 public:
  AutoMemMove(SlotWriterTableCommon const& table, Mem::Cell*& pointer)
      : table_(table), pointer_(pointer), base_(table.base()) {
    auto const* const place = reinterpret_cast<std::byte const*>(pointer);
    if (place >= base_ && place < base_ + table.mapping().mappedSize()) {
      inside_ = true;
      offset_ = static_cast<std::size_t>(place - base_);
    }
  }
  AutoMemMove(AutoMemMove const&) = delete;
  AutoMemMove& operator=(AutoMemMove const&) = delete;
  ~AutoMemMove() {
    if (inside_ && table_.base() != base_)
      pointer_ =
          &table_.header().runtimeFlagsCell() - SlotTable::kRuntimeFlagsWord + offset_ / sizeof(Mem::Cell);
  }

 private:
  SlotWriterTableCommon const& table_;
  Mem::Cell*& pointer_;
  std::byte const* const base_;
  bool inside_ = false;
  std::size_t offset_ = 0;
};

}  // namespace Vault
