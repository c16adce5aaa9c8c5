// The slab allocator of nodes: cells of fixed sizes, cut from chunks of one reserved address range. Memory
// that was once used stays with the slab. Any thread; a cell may be freed in another thread than it was taken
// in.
//
// 1. All slab memory lies in one reserved range, so whether an address is slab memory is one comparison.
// 2. A chunk holds cells of one size, told by its header, so a free needs no size.
// 3. Each thread keeps up to two batches of free cells a size; taking and freeing touch nothing that threads
//    share. Whole batches move to and from the central stock under its lock.
// 4. A thread's exit gives its cells back; later frees in that thread, and those of static objects after
//    main, go straight to the central stock.
//
// Under AddressSanitizer all cells come from malloc, so that every use after a free is found.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <typeinfo>

#if defined(__SANITIZE_ADDRESS__)
#define HWTABLES_SLAB_IS_MALLOC 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HWTABLES_SLAB_IS_MALLOC 1
#endif
#endif
#ifndef HWTABLES_SLAB_IS_MALLOC
#define HWTABLES_SLAB_IS_MALLOC 0
#endif

namespace KilnSlab {

constexpr std::size_t kLargestCell = 4096;
constexpr std::size_t kCellAlignment = 16;

namespace Impl {

constexpr bool kAlwaysMalloc = HWTABLES_SLAB_IS_MALLOC != 0;
constexpr std::size_t kChunkSize = 0x10000;
constexpr std::size_t kFineStep = 16;
constexpr std::size_t kFineLimit = 512;
constexpr std::size_t kCoarseStep = 128;
constexpr std::size_t kSizeClasses = kFineLimit / kFineStep + 1 + (kLargestCell - kFineLimit) / kCoarseStep;

constexpr std::size_t sizeClassOf(std::size_t size) {
  if (size <= kFineLimit) return (size + kFineStep - 1) / kFineStep;
  return kFineLimit / kFineStep + (size - kFineLimit + kCoarseStep - 1) / kCoarseStep;
}

constexpr std::size_t cellSize(std::size_t sizeClass) {
  constexpr std::size_t fine = kFineLimit / kFineStep;
  if (sizeClass <= fine) return sizeClass == 0 ? kFineStep : sizeClass * kFineStep;
  return kFineLimit + (sizeClass - fine) * kCoarseStep;
}

// Batches of large cells are short, so that a thread does not sit on much memory.
constexpr std::uint32_t batchCells(std::size_t sizeClass) {
  std::size_t const size = cellSize(sizeClass);
  return size <= 256 ? 64 : static_cast<std::uint32_t>(0x4000 / size);
}

struct Chunk {
  std::uint32_t sizeClass;
};

// A free cell. The last two members are used in the first cell of a batch that lies in the central stock.
struct FreeCell {
  FreeCell* next;
  std::uint32_t nextBatch;
  std::uint32_t count;
};
static_assert(sizeof(FreeCell) == kFineStep);

// A thread's free cells of one size: those in use, and one full batch in reserve.
struct Shelf {
  FreeCell* cells;
  FreeCell* reserve;
  std::uint32_t count;
  std::uint32_t limit;
};

struct ThreadStock {
  std::array<Shelf, kSizeClasses> shelves;
};

// Null before the thread's first use of the slab and after its end.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local ThreadStock* threadStock;

// The reserved range. The size is published last and read first: a size other than 0 goes with its start.
extern std::atomic<std::uintptr_t> rangeStart;
extern std::atomic<std::size_t> rangeSize;

void* allocSlowly(std::size_t size);
void freeSlowly(void* memory, std::uint32_t sizeClass);
void freeOutsideRange(void* memory, std::type_info const& type);

inline void freeCell(void* memory) {
  auto const* chunk =
      reinterpret_cast<Chunk const*>(reinterpret_cast<std::uintptr_t>(memory) & ~(kChunkSize - 1));
  std::uint32_t const sizeClass = chunk->sizeClass;
  ThreadStock* const mine = threadStock;
  if (mine == nullptr || mine->shelves[sizeClass].count == mine->shelves[sizeClass].limit) [[unlikely]]
    return freeSlowly(memory, sizeClass);
  Shelf& shelf = mine->shelves[sizeClass];
  auto* const cell = static_cast<FreeCell*>(memory);
  cell->next = shelf.cells;
  shelf.cells = cell;
  ++shelf.count;
}

}  // namespace Impl

// True for an address that slabAlloc gave out of the slab itself.
inline bool isSlabMemory(void const* memory) {
  std::size_t const size = Impl::rangeSize.load(std::memory_order_acquire);
  return reinterpret_cast<std::uintptr_t>(memory) - Impl::rangeStart.load(std::memory_order_relaxed) < size;
}

// Memory for one object of at most kLargestCell bytes, aligned to kCellAlignment. Throws
// Dovel::MemoryResourceException where there is none.
inline void* slabAlloc(std::size_t size) {
  if (!Impl::kAlwaysMalloc && size <= kLargestCell) {
    Impl::ThreadStock* const mine = Impl::threadStock;
    if (mine != nullptr) [[likely]] {
      Impl::Shelf& shelf = mine->shelves[Impl::sizeClassOf(size)];
      if (Impl::FreeCell* const cell = shelf.cells; cell != nullptr) [[likely]] {
        shelf.cells = cell->next;
        --shelf.count;
        return cell;
      }
    }
  }
  return Impl::allocSlowly(size);
}

// The same, with every byte set to the pattern.
void* slabAlloc(std::size_t size, unsigned char pattern);

// Gives back memory of slabAlloc. The type stands in the message that ends the process when it is none. Null
// is legal.
inline void slabFree(void* memory, std::type_info const& type) {
  if (!isSlabMemory(memory)) [[unlikely]]
    return Impl::freeOutsideRange(memory, type);
  Impl::freeCell(memory);
}

// Memory of any size, from the slab where it fits.
void* slabAllocOrStdMalloc(std::size_t size);
void slabFreeOrStdFree(void* memory);

}  // namespace KilnSlab
