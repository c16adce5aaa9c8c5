// All that one chip model keeps: its rows, the slots of its physical tables, and whether anything was written
// since the last reset. In private memory, or in a mapped file that outlives the process, however it ends:
// rows are plain bytes, and what counts for the next process is written so that it may be killed at any
// moment. One thread, but for what ExactMatchStore lets others read.
//
// The file: a header of kHeaderBytes, in it the heads of the physical tables; all memories of ChipMemoryMap
// back to back; the marks of the slots' chunks; and the slots, which take room as they are written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/chip/ChipMemoryMap.h"
#include "platform/chip/ExactMatchMap.h"
#include "platform/chip/SparseMemory.h"
#include "platform/memory/FileAccess.h"
#include "runtime/Dovel/String.h"

namespace Chip {

struct ChipFileHeader;

// What a physical table keeps beside its slots.
struct ExactMatchHead {
  std::uint64_t changes;   // of slots, ever; a reset doesn't take them back
  std::uint64_t slot;      // one plus that of the entry that is being changed; 0: none is
  std::uint64_t words[3];  // what it changes to
  std::uint64_t unused[3];
};

class ChipState {
 public:
  static constexpr std::size_t kHeaderBytes = 4096;
  static constexpr std::size_t kHeadsAt = 64;
  static constexpr std::size_t kSlotBytes = 32;

  // With room for so many entries in each physical table, in private memory, blank. Throws
  // Dovel::MemoryResourceException where there is none.
  explicit ChipState(std::uint32_t entries);
  // In that file, which is made, blank, where there is none. The caller sees to it that no other process has
  // it. Throws as Mem::throwFileError does, and Dovel::InvalidInitializeException for a file that isn't one
  // of this chip, naming file and reason; such a file is left as it is.
  ChipState(std::uint32_t entries, Dovel::String const& path);
  ChipState(ChipState const&) = delete;
  ChipState& operator=(ChipState const&) = delete;
  ~ChipState();

  // Where a row of that memory stands; the rows after it follow.
  std::byte* row(ChipMemory const& memory, std::uint32_t address) const {
    return rows_ + memory.storedAt + std::uint64_t{address - memory.address} * memory.rowBytes;
  }

  // Of the physical table with that number.
  ExactMatchHead& head(std::size_t table) const;
  SparseMemory& slots(std::size_t table) { return slots_.at(table); }

  bool programmed() const;
  // Is called before a row or an entry is written.
  void programmedIs() {
    if (!programmed()) [[unlikely]]
      firstWrite();
  }
  // All rows read zero, all slots are free, and nothing counts as programmed. One that a process didn't live
  // to finish is finished by the next.
  void reset();

 private:
  // Where things stand, in bytes from the start.
  struct Layout {
    explicit Layout(std::uint32_t entries);

    std::uint32_t entries;
    std::uint64_t tableBytes;
    std::size_t chunks;  // of a table
    std::uint64_t marksAt;
    std::uint64_t slotsAt;
    std::uint64_t slotsStep;  // from one table to the next
    std::uint64_t end;
  };

  static void make(Layout const& layout, Dovel::String const& path);
  static void check(Layout const& layout, Mem::OpenedFile const& file, Dovel::String const& path);
  void map(int flags, Dovel::String const& name);
  void firstWrite();

  Layout layout_;
  Mem::Descriptor file_;
  ChipFileHeader* header_ = nullptr;
  std::byte* rows_ = nullptr;
  std::vector<SparseMemory> slots_;  // of the physical tables
};

}  // namespace Chip
