// A long piece of a chip's memory that takes room only where it was written to: private memory, or a part of
// a mapped file whose holes are filled before they are written, since a full disk must not show itself as a
// signal. One thread; what others read in it meanwhile is up to its user.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "runtime/Dovel/String.h"

namespace Chip {

class SparseMemory {
 public:
  // What is taken at once. Each chunk has a mark, which is kept with the memory: 0 as long as it is all zero.
  static constexpr std::size_t kChunkBytes = 65536;
  using Marks = std::span<std::uint8_t>;
  static constexpr std::size_t chunksOf(std::size_t bytes) { return (bytes + kChunkBytes - 1) / kChunkBytes; }

  // The part of a file; a negative descriptor is none.
  struct Part {
    int descriptor = -1;
    Dovel::String path;
    std::uint64_t offset = 0;
  };

  // Descriptor, memory and marks stay the caller's.
  SparseMemory(std::span<std::byte> memory, Marks marks, Part part);

  std::span<std::byte> memory() const { return memory_; }

  // Is asked before bytes of a chunk are written; false where the file system has no room for them.
  bool take(std::size_t chunk) { return taken_[chunk] || fill(chunk); }
  bool used(std::size_t chunk) const { return marks_[chunk] != 0; }
  // All of it is zero, and takes no room where the file system can do that.
  void clear();

 private:
  bool fill(std::size_t number);
  bool letGo() const;
  std::span<std::byte> chunk(std::size_t number) const;

  std::span<std::byte> memory_;
  Marks marks_;
  Part part_;
  std::vector<bool> taken_;  // by this process
};

}  // namespace Chip
