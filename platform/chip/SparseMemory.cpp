#include "platform/chip/SparseMemory.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "platform/memory/FileAccess.h"

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

namespace Chip {

SparseMemory::SparseMemory(std::span<std::byte> memory, Marks marks, Part part)
    : memory_(memory), marks_(marks), part_(std::move(part)), taken_(marks.size()) {}

std::span<std::byte> SparseMemory::chunk(std::size_t number) const {
  std::size_t const begin = number * kChunkBytes;
  return memory_.subspan(begin, std::min(kChunkBytes, memory_.size() - begin));
}

// Marked before it is written: a process that is killed in between leaves a chunk that is zero all the same.
bool SparseMemory::fill(std::size_t number) {
  if (part_.descriptor >= 0) {
    std::uint64_t const begin = part_.offset + number * kChunkBytes;
    if (!Mem::allocate(part_.descriptor, part_.path, begin, begin + chunk(number).size())) return false;
  }
  std::atomic_ref(marks_[number]).store(1, std::memory_order_release);
  taken_[number] = true;
  // At once, where the kernel can: cheaper than page by page as they are come upon.
  ::madvise(chunk(number).data(), chunk(number).size(), MADV_POPULATE_WRITE);
  return true;
}

void SparseMemory::clear() {
  if (std::all_of(marks_.begin(), marks_.end(), [](std::uint8_t mark) { return mark == 0; })) return;
  if (letGo()) {
    std::fill(taken_.begin(), taken_.end(), false);
  } else {
    for (std::size_t number = 0; number < marks_.size(); ++number)
      if (used(number)) std::memset(chunk(number).data(), 0, chunk(number).size());
  }
  std::fill(marks_.begin(), marks_.end(), 0);
}

bool SparseMemory::letGo() const {
  if (part_.descriptor < 0) return ::madvise(memory_.data(), memory_.size(), MADV_DONTNEED) == 0;
  return ::fallocate(part_.descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                     static_cast<off_t>(part_.offset), static_cast<off_t>(memory_.size())) == 0;
}

}  // namespace Chip
