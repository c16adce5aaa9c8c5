#include "runtime/KilnSlab/KilnSlab.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/KilnSlab/CentralStock.h"

namespace KilnSlab {
namespace Impl {

constinit thread_local ThreadStock* threadStock = nullptr;

namespace {

constinit thread_local bool threadEnded = false;

void* mallocOrThrow(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr)
    DOVEL_THROW(Dovel::MemoryResourceException, "KilnSlab", "no memory for {} bytes", size);
  return memory;
}

// Gives a thread's cells back when it ends.
struct ThreadEnd {
  ~ThreadEnd() {
    ThreadStock* const mine = threadStock;
    threadStock = nullptr;
    threadEnded = true;
    for (std::uint32_t sizeClass = 0; sizeClass < kSizeClasses; ++sizeClass) {
      Shelf const& shelf = mine->shelves[sizeClass];
      if (shelf.cells != nullptr) CentralStock::give(sizeClass, {shelf.cells, shelf.count});
      if (shelf.reserve != nullptr) CentralStock::give(sizeClass, {shelf.reserve, shelf.limit});
    }
    std::free(mine);
  }
};

// The thread's stock, made if need be; none where the thread is ending or there is no memory.
ThreadStock* stockOfThread() {
  if (threadStock != nullptr || threadEnded) return threadStock;
  auto* const mine = static_cast<ThreadStock*>(std::calloc(1, sizeof(ThreadStock)));
  if (mine == nullptr) return nullptr;
  for (std::size_t sizeClass = 0; sizeClass < kSizeClasses; ++sizeClass)
    mine->shelves[sizeClass].limit = batchCells(sizeClass);
  threadStock = mine;
  thread_local ThreadEnd const atEnd;
  return mine;
}

void* takeFromCentral(std::uint32_t sizeClass) {
  Batch batch = CentralStock::take(sizeClass);
  if (batch.first == nullptr) return nullptr;
  FreeCell* const cell = batch.first;
  FreeCell* const rest = cell->next;
  if (threadStock != nullptr) {
    threadStock->shelves[sizeClass].cells = rest;
    threadStock->shelves[sizeClass].count = batch.count - 1;
  } else if (rest != nullptr) {
    CentralStock::give(sizeClass, {rest, batch.count - 1});
  }
  return cell;
}

}  // namespace

void* allocSlowly(std::size_t size) {
  DOVEL_ASSERT(size <= kLargestCell, "KilnSlab", "slabAlloc of {} bytes; at most {} are legal", size,
               kLargestCell);
  if (kAlwaysMalloc) return mallocOrThrow(size);
  ThreadStock* const mine = stockOfThread();
  auto const sizeClass = static_cast<std::uint32_t>(sizeClassOf(size));
  if (mine != nullptr) {
    Shelf& shelf = mine->shelves[sizeClass];
    if (shelf.reserve != nullptr) {
      FreeCell* const cell = std::exchange(shelf.reserve, nullptr);
      shelf.cells = cell->next;
      shelf.count = shelf.limit - 1;
      return cell;
    }
  }
  void* const cell = takeFromCentral(sizeClass);
  // Where no range could be reserved, and past its end, cells are malloc's: slabFree tells them by their
  // address.
  return cell != nullptr ? cell : mallocOrThrow(size);
}

void freeSlowly(void* memory, std::uint32_t sizeClass) {
  auto* const cell = static_cast<FreeCell*>(memory);
  cell->next = nullptr;
  ThreadStock* const mine = stockOfThread();
  if (mine == nullptr) return CentralStock::give(sizeClass, {cell, 1});
  Shelf& shelf = mine->shelves[sizeClass];
  if (shelf.reserve != nullptr) CentralStock::give(sizeClass, {shelf.reserve, shelf.limit});
  shelf.reserve = shelf.cells;
  shelf.cells = cell;
  shelf.count = 1;
}

void freeOutsideRange(void* memory, std::type_info const& type) {
  DOVEL_ASSERT(memory == nullptr || kAlwaysMalloc || CentralStock::exhausted(), "KilnSlab",
               "slabFree of {}, a {}, which is not slab memory", memory, type.name());
  std::free(memory);
}

}  // namespace Impl

void* slabAlloc(std::size_t size, unsigned char pattern) {
  return std::memset(slabAlloc(size), pattern, size);
}

void* slabAllocOrStdMalloc(std::size_t size) {
  return size <= kLargestCell ? slabAlloc(size) : Impl::mallocOrThrow(size);
}

void slabFreeOrStdFree(void* memory) {
  if (isSlabMemory(memory)) return Impl::freeCell(memory);
  std::free(memory);
}

}  // namespace KilnSlab
