// All that one chip model keeps: its rows and whether any was written since the last reset. In private
// memory, or in a mapped file that outlives the process, however it ends: rows are plain bytes, and what
// counts for the next process is written so that it may be killed at any moment. One thread.
//
// The file: a header of kHeaderBytes, then all memories of ChipMemoryMap back to back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/chip/ChipMemoryMap.h"
#include "runtime/Dovel/String.h"

namespace Chip {

struct ChipFileHeader;

class ChipState {
 public:
  static constexpr std::size_t kHeaderBytes = 4096;

  // In private memory, blank. Throws Dovel::MemoryResourceException where there is none.
  ChipState();
  // In that file, which is made, blank, where there is none. The caller sees to it that no other process has
  // it. Throws as Mem::throwFileError does, and Dovel::InvalidInitializeException for a file that isn't one
  // of this chip, naming file and reason; such a file is left as it is.
  explicit ChipState(Dovel::String const& path);
  ChipState(ChipState const&) = delete;
  ChipState& operator=(ChipState const&) = delete;
  ~ChipState();

  // Where a row of that memory stands; the rows after it follow.
  std::byte* row(ChipMemory const& memory, std::uint32_t address) const {
    return rows_ + memory.storedAt + std::uint64_t{address - memory.address} * memory.rowBytes;
  }

  bool programmed() const;
  // Is called before a row is written.
  void programmedIs() {
    if (!programmed()) [[unlikely]]
      firstWrite();
  }
  // All rows read zero, and nothing counts as programmed. One that a process didn't live to finish is
  // finished by the next.
  void reset();

 private:
  void map(int flags, int descriptor, Dovel::String const& name);
  void firstWrite();

  ChipFileHeader* header_ = nullptr;
  std::byte* rows_ = nullptr;
};

}  // namespace Chip
