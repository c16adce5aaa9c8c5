#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "runtime/KilnSlab/KilnSlab.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Seed.h"

namespace {

using KilnSlab::isSlabMemory;
using KilnSlab::kLargestCell;
using KilnSlab::slabAlloc;
using KilnSlab::slabFree;

struct Cell {
  unsigned char* memory;
  std::size_t size;
  unsigned char mark;
};

Cell takeMarked(std::size_t size, unsigned char mark) {
  return {static_cast<unsigned char*>(slabAlloc(size, mark)), size, mark};
}

// False where someone else wrote into the cell while it was held.
bool giveBack(Cell const& cell) {
  bool whole = true;
  for (std::size_t at = 0; at < cell.size; ++at) whole = whole && cell.memory[at] == cell.mark;
  slabFree(cell.memory, typeid(Cell));
  return whole;
}

TEST(Slab, EveryCellSizeHoldsItsRequest) {
  for (std::size_t size = 0; size <= kLargestCell; ++size) {
    std::size_t const cell = KilnSlab::Impl::cellSize(KilnSlab::Impl::sizeClassOf(size));
    ASSERT_GE(cell, size);
    ASSERT_EQ(cell % KilnSlab::kCellAlignment, 0U);
    ASSERT_LT(KilnSlab::Impl::sizeClassOf(size), KilnSlab::Impl::kSizeClasses);
  }
}

TEST(Slab, LiveCellsNeverOverlap) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  std::vector<Cell> held;
  for (int step = 0; step < 20000; ++step) {
    if (held.size() < 500 || random() % 2 == 0) {
      held.push_back(takeMarked(random() % (kLargestCell + 1), static_cast<unsigned char>(random())));
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(held.back().memory) % KilnSlab::kCellAlignment, 0U);
    } else {
      std::swap(held[random() % held.size()], held.back());
      ASSERT_TRUE(giveBack(held.back()));
      held.pop_back();
    }
  }
  for (Cell const& cell : held) ASSERT_TRUE(giveBack(cell));
}

TEST(Slab, ThePatternFillsTheWholeRequest) {
  Cell const cell = takeMarked(777, 0xA5);
  EXPECT_TRUE(giveBack(cell));
}

TEST(Slab, CellsMayBeFreedInAnotherThread) {
  std::mutex mutex;
  std::deque<Cell> queue;
  bool done = false;
  int broken = 0;
  std::thread consumer([&] {
    for (;;) {
      std::unique_lock lock(mutex);
      if (queue.empty() && done) return;
      if (queue.empty()) {
        lock.unlock();
        std::this_thread::yield();
        continue;
      }
      Cell const cell = queue.front();
      queue.pop_front();
      lock.unlock();
      if (!giveBack(cell)) ++broken;
    }
  });
  for (unsigned number = 0; number < 20000; ++number) {
    Cell const cell = takeMarked(number % 300, static_cast<unsigned char>(number));
    std::lock_guard const lock(mutex);
    queue.push_back(cell);
  }
  {
    std::lock_guard const lock(mutex);
    done = true;
  }
  consumer.join();
  EXPECT_EQ(broken, 0);
}

TEST(SlabDeathTest, ARequestAboveTheLargestCellEndsTheProcess) {
  EXPECT_DEATH(slabAlloc(kLargestCell + 1), "slabAlloc of 4097 bytes; at most 4096 are legal");
}

TEST(Slab, LargerMemoryComesFromMallocAndGoesBackThere) {
  void* const small = KilnSlab::slabAllocOrStdMalloc(100);
  void* const large = KilnSlab::slabAllocOrStdMalloc(100000);
  EXPECT_EQ(isSlabMemory(small), !KilnSlab::Impl::kAlwaysMalloc);
  EXPECT_FALSE(isSlabMemory(large));
  std::memset(large, 1, 100000);
  KilnSlab::slabFreeOrStdFree(small);
  KilnSlab::slabFreeOrStdFree(large);
}

#if !HWTABLES_SLAB_IS_MALLOC

std::set<void*> takeAll(std::size_t size, int count) {
  std::set<void*> cells;
  for (int number = 0; number < count; ++number) cells.insert(slabAlloc(size));
  return cells;
}

// A size of its own keeps the cells apart from those of other tests.
TEST(Slab, AThreadThatEndsLeavesItsCellsToOthers) {
  constexpr std::size_t kSize = 3333;
  std::set<void*> theirs;
  std::thread([&] {
    theirs = takeAll(kSize, 10);
    for (void* cell : theirs) slabFree(cell, typeid(char));
  }).join();
  std::set<void*> const mine = takeAll(kSize, 200);
  for (void* cell : theirs) EXPECT_TRUE(mine.contains(cell));
  for (void* cell : mine) slabFree(cell, typeid(char));
}

TEST(Slab, CellsThatWereFreedAreUsedAgain) {
  constexpr std::size_t kSize = 2900;
  std::set<void*> const first = takeAll(kSize, 300);
  for (void* cell : first) slabFree(cell, typeid(char));
  std::set<void*> const second = takeAll(kSize, 300);
  EXPECT_EQ(first, second);
  for (void* cell : second) slabFree(cell, typeid(char));
}

// Each of its frees would take the lock that all threads share.
TEST(Slab, AThreadThatOnlyFreesKeepsCellsOfItsOwn) {
  void* const cell = slabAlloc(3400);
  std::thread([&] {
    slabFree(cell, typeid(char));
    ASSERT_NE(KilnSlab::Impl::threadStock, nullptr);
    EXPECT_EQ(slabAlloc(3400), cell);
    slabFree(cell, typeid(char));
  }).join();
}

struct FreesLate {
  ~FreesLate() {
    for (void* cell : cells) slabFree(cell, typeid(FreesLate));
    slabFree(slabAlloc(3700), typeid(FreesLate));
  }
  std::vector<void*> cells;
};

// The object is made before the thread's first allocation of cells, so it dies after the thread's stock.
TEST(Slab, ThreadLocalObjectsMayFreeAfterTheThreadsStockIsGone) {
  std::set<void*> theirs;
  std::thread([&] {
    thread_local FreesLate late;
    theirs = takeAll(3600, 5);
    late.cells.assign(theirs.begin(), theirs.end());
  }).join();
  std::set<void*> const mine = takeAll(3600, 200);
  for (void* cell : theirs) EXPECT_TRUE(mine.contains(cell));
  for (void* cell : mine) slabFree(cell, typeid(char));
}

TEST(SlabDeathTest, FreeingForeignMemoryNamesItsTypeAndEndsTheProcess) {
  int local = 0;
  void* const volatile foreign = &local;
  EXPECT_DEATH(slabFree(foreign, typeid(Cell)), "a .*Cell.*, which is not slab memory");
}

#if !HWTABLES_TSAN  // it needs more address space than the limit leaves
// A process whose slab is untouched, under a limit that no reservation fits.
void useSlabWithoutRange() {
  rlimit const limit{60 << 20, 60 << 20};
  if (::setrlimit(RLIMIT_AS, &limit) != 0) std::_Exit(1);
  std::vector<void*> cells(1000);
  for (void*& cell : cells) cell = slabAlloc(64, 7);
  for (void* cell : cells) {
    if (isSlabMemory(cell)) std::_Exit(2);
    slabFree(cell, typeid(char));
  }
}
TestSupport::ChildRole const useSlabWithoutRangeRole("useSlabWithoutRange", useSlabWithoutRange);

TEST(Slab, WorksOnMallocWhereNoRangeCanBeReserved) {
  EXPECT_EQ(TestSupport::runChild("useSlabWithoutRange").exitCode, 0);
}

void useSlabUnderLimit() {
  rlimit const limit{1200 << 20, 1200 << 20};
  if (::setrlimit(RLIMIT_AS, &limit) != 0) std::_Exit(1);
  if (!isSlabMemory(slabAlloc(64))) std::_Exit(2);
  void* const others = ::mmap(nullptr, 600 << 20, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  std::_Exit(others != MAP_FAILED ? 0 : 3);
}
TestSupport::ChildRole const useSlabUnderLimitRole("useSlabUnderLimit", useSlabUnderLimit);

TEST(Slab, LeavesMostOfALimitedAddressSpaceToOthers) {
  EXPECT_EQ(TestSupport::runChild("useSlabUnderLimit").exitCode, 0);
}
#endif

#endif

}  // namespace
