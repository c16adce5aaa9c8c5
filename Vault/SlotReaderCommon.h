// The slot table as a reader sees it, apart from the type of its records: a read-only mapping that follows
// the writer's count. One thread; nothing is ever written.
#pragma once

#include <memory>
#include <vector>

#include "Vault/SlotHeader.h"
#include "VaultCore/ReaderCounters.h"
#include "platform/memory/Mapping.h"
#include "platform/memory/VersionAnchor.h"

namespace Vault {

class SlotReaderTableCommon : public Dovel::Debuggable {
 public:
  using NumSlots = SlotHeaderCommon::NumSlots;

  // What the records are; the generation is the store's.
  struct Setup {
    SlotShape shape{};
    std::uint32_t marshalledSize = 0;
    std::string_view typeName;
  };

  // The counters outlive the table.
  SlotReaderTableCommon(Dovel::Platform::DebugHandler const& handler, std::unique_ptr<Mem::Mapping> mapping,
                        Setup const& setup, Reader::Counters& counters);

  // Maps the header; the slots follow with the first doResize(). False where there is no file.
  bool attach();
  void detach();
  bool attached() const { return header_ != nullptr; }

  // Whether the header is that of this generation and of these records. The critical flag isn't looked at: a
  // writer at work is no damage. The reason goes to error and, at level 0, to the trace.
  bool validate(SharedMem::EmberId emberId, Dovel::String& error) const;

  // Whether the writer's count is still the one that is mapped. One load and one comparison.
  [[gnu::always_inline]] bool isCurrent() const { return header_ == nullptr || published() == numSlotsRef_; }
  // Follows the writer's count; true where there was something to follow.
  // Throws Dovel::CorruptionDetectedException for a count that can't be, and Dovel::MemoryResourceException.
  bool doResize();

  // The slots that can be read: 0 as long as none are mapped.
  std::uint32_t numSlots() const { return numSlots_; }
  // The slots there are, as of the last header copy.
  std::uint32_t capacity() const { return capacity_; }
  std::uint32_t maxSize() const { return copiedHeader().maxSize(); }
  std::uint32_t hashSeed() const { return hashSeed_; }
  // As they are now: a writer at work changes them.
  std::uint32_t members() const;
  std::uint64_t scratchpad() const;
  Mem::Mapping const& mapping() const { return *mapping_; }
  Dovel::String toString() const;

  // The slot that was copied last.
  void lastValueIs(Mem::LastValue value) { lastValue_ = value; }
  Mem::VersionAnchor anchor() const { return lastValue_.anchor(base()); }

 protected:
  [[noreturn]] void throwOutOfRange(std::uint32_t slot) const;

  std::byte const* base() const { return reinterpret_cast<std::byte const*>(header_); }
  Mem::Cell const* lookasideCells() const { return header_ + SlotTable::kLookasideWord; }

  // Of the template's fast way to a slot.
  Mem::Cell const* slots_ = nullptr;
  std::uint32_t numSlots_ = 0;
  Mem::LastValue lastValue_;
  Reader::Counters& counters_;

 private:
  static constexpr NumSlots kNone{0xffffffff, 0};

  NumSlots published() const {
    return NumSlots::fromWord(Mem::SharedWord::readCount(header_[SlotTable::kNumSlotsWord]));
  }
  // Of one version; returns the size that the file had then. Only the number of slots decides anything: the
  // other words may be of different moments.
  std::size_t copyHeader();
  SlotHeaderCommon copiedHeader() const { return SlotHeaderCommon(headerCopy_.data()); }

  std::unique_ptr<Mem::Mapping> const mapping_;
  Setup const setup_;
  Mem::Cell const* header_ = nullptr;
  mutable std::vector<Mem::Cell> headerCopy_;
  NumSlots numSlotsRef_ = kNone;
  std::uint32_t capacity_ = 0;
  std::uint32_t hashSeed_ = 0;
};

}  // namespace Vault
