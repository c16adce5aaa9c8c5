#include "runtime/KilnSlab/CentralStock.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <type_traits>

namespace KilnSlab::Impl {

constinit std::atomic<std::uintptr_t> rangeStart{0};
constinit std::atomic<std::size_t> rangeSize{0};

namespace {

// 2^32 units of a smallest cell, so a link between batches fits 32 bits. Where so much can't be reserved (a
// limit on address space), smaller ranges are tried.
constexpr std::size_t kLargestRange = std::size_t{64} << 30;
constexpr std::size_t kSmallestRange = std::size_t{64} << 20;
constexpr std::size_t kCommitStep = std::size_t{1} << 20;
constexpr std::size_t kChunkHeader = 64;

struct SizeClassStock {
  std::uint32_t
      firstBatch;        // in units of a smallest cell from the range's start; 0 is a chunk header, so none
  std::uintptr_t uncut;  // the part of the newest chunk that was never cut into cells
  std::uintptr_t uncutEnd;
};

// Without a destructor: static objects free their cells after every destructor of ours would have run.
struct Stock {
  std::mutex mutex;
  std::array<SizeClassStock, kSizeClasses> sizes{};
  std::uintptr_t nextChunk = 0;
  std::uintptr_t committedEnd = 0;
  bool reserved = false;
};
static_assert(std::is_trivially_destructible_v<Stock>);
constinit Stock stock;
constinit std::atomic<bool> foundNothing{false};

// A child of a process with threads must not inherit a lock that a thread it lacks would have to give up.
void guardForks() {
  pthread_atfork([] { stock.mutex.lock(); }, [] { stock.mutex.unlock(); }, [] { stock.mutex.unlock(); });
}

// Where the process's address space is limited, most of it is left to others.
std::size_t largestRange() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kLargestRange;
  return std::min<std::size_t>(kLargestRange, limit.rlim_cur / 4);
}

void reserveRange() {
  stock.reserved = true;
  guardForks();
  for (std::size_t wanted = largestRange(); wanted >= kSmallestRange; wanted /= 8) {
    std::size_t const size = wanted & ~(kCommitStep - 1);
    // One chunk more than is used, to align the start.
    void* const got =
        ::mmap(nullptr, size + kChunkSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (got == MAP_FAILED) continue;
    std::uintptr_t const start = (reinterpret_cast<std::uintptr_t>(got) + kChunkSize - 1) & ~(kChunkSize - 1);
    stock.nextChunk = stock.committedEnd = start;
    rangeStart.store(start, std::memory_order_relaxed);
    rangeSize.store(size, std::memory_order_release);
    return;
  }
}

bool commitChunk() {
  if (stock.nextChunk < stock.committedEnd) return true;
  std::uintptr_t const end =
      rangeStart.load(std::memory_order_relaxed) + rangeSize.load(std::memory_order_relaxed);
  if (stock.committedEnd >= end) return false;
  if (::mprotect(reinterpret_cast<void*>(stock.committedEnd), kCommitStep, PROT_READ | PROT_WRITE) != 0)
    return false;
  stock.committedEnd += kCommitStep;
  return true;
}

bool newChunk(std::uint32_t sizeClass) {
  if (!stock.reserved) reserveRange();
  if (!commitChunk()) return false;
  std::uintptr_t const chunk = stock.nextChunk;
  stock.nextChunk += kChunkSize;
  reinterpret_cast<Chunk*>(chunk)->sizeClass = sizeClass;
  stock.sizes[sizeClass].uncut = chunk + kChunkHeader;
  stock.sizes[sizeClass].uncutEnd = chunk + kChunkSize;
  return true;
}

// Cuts the next cells of the newest chunk, in the order of their addresses.
Batch cutBatch(std::uint32_t sizeClass) {
  SizeClassStock& mine = stock.sizes[sizeClass];
  std::size_t const size = cellSize(sizeClass);
  if (mine.uncutEnd - mine.uncut < size && !newChunk(sizeClass)) return {};
  Batch batch;
  FreeCell** link = &batch.first;
  std::uint32_t const wanted = batchCells(sizeClass);
  for (; batch.count < wanted && mine.uncutEnd - mine.uncut >= size; ++batch.count, mine.uncut += size) {
    *link = reinterpret_cast<FreeCell*>(mine.uncut);
    link = &(*link)->next;
  }
  *link = nullptr;
  return batch;
}

}  // namespace

Batch CentralStock::take(std::uint32_t sizeClass) {
  std::lock_guard const lock(stock.mutex);
  SizeClassStock& mine = stock.sizes[sizeClass];
  if (mine.firstBatch != 0) {
    auto* const first = reinterpret_cast<FreeCell*>(rangeStart.load(std::memory_order_relaxed) +
                                                    std::uintptr_t{mine.firstBatch} * kFineStep);
    mine.firstBatch = first->nextBatch;
    return {first, first->count};
  }
  Batch const fresh = cutBatch(sizeClass);
  if (fresh.first == nullptr) foundNothing.store(true, std::memory_order_relaxed);
  return fresh;
}

void CentralStock::give(std::uint32_t sizeClass, Batch batch) {
  std::lock_guard const lock(stock.mutex);
  SizeClassStock& mine = stock.sizes[sizeClass];
  batch.first->count = batch.count;
  batch.first->nextBatch = mine.firstBatch;
  mine.firstBatch = static_cast<std::uint32_t>(
      (reinterpret_cast<std::uintptr_t>(batch.first) - rangeStart.load(std::memory_order_relaxed)) /
      kFineStep);
}

bool CentralStock::exhausted() { return foundNothing.load(std::memory_order_relaxed); }

}  // namespace KilnSlab::Impl
