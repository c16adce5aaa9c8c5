#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <latch>
#include <stdexcept>
#include <thread>
#include <vector>

#include "runtime/Dovel/PtrIs.h"
#include "tests/support/Sanitizers.h"

namespace {

using Dovel::Ptr;
using Dovel::ptrDynamicCast;
using Dovel::ptrIsImpl;
using Orlo::AllocTrackTypeInfo;

int alive = 0;

class Branch : public Dovel::Tracked<Branch> {
 public:
  explicit Branch(int number) : number_(number) { ++alive; }
  ~Branch() override { --alive; }
  int number() const { return number_; }

 private:
  int number_;
};

class Leaf : public Dovel::Tracked<Leaf, Branch> {
 public:
  explicit Leaf(int number, bool fails = false) : Tracked(number) {
    if (fails) throw std::runtime_error("no leaf");
  }
  double weight[20] = {};
};

class Stone : public Dovel::Tracked<Stone> {};

TEST(Node, KeepsTheUseCountInItsSecondWordAndTheFlagsBehindIt) {
  Ptr<Branch> branch = ptrIsImpl<Branch>(1);
  Ptr<Branch> const second = branch;
  auto const* words = reinterpret_cast<std::uint32_t const*>(static_cast<Dovel::Node*>(branch.ptr()));
  EXPECT_EQ(words[2], 2U);
  EXPECT_EQ(words[3], 0U);
}

TEST(Ptr, HoldsOneUseForEachCopyAndFreesTheNodeWithTheLast) {
  Ptr<Branch> first = ptrIsImpl<Branch>(7);
  EXPECT_EQ(first->useCount(), 1U);
  {
    Ptr<Branch> const copy = first;
    Ptr<Branch> const raw(first.ptr());
    EXPECT_EQ(first->useCount(), 3U);
    EXPECT_EQ(copy->number(), 7);
  }
  EXPECT_EQ(first->useCount(), 1U);
  EXPECT_EQ(alive, 1);
  first = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(Ptr, MovesWithoutTouchingTheCountAndLeavesTheSourceNull) {
  Ptr<Branch> source = ptrIsImpl<Branch>(1);
  Branch const* const node = source.ptr();
  Ptr<Branch> target = std::move(source);
  EXPECT_EQ(source, nullptr);
  EXPECT_EQ(target, node);
  EXPECT_EQ(target->useCount(), 1U);
  Ptr<Branch const> reader = std::move(target);
  EXPECT_EQ(target, nullptr);
  EXPECT_EQ(reader->useCount(), 1U);
}

TEST(Ptr, ANullOneDoesNothing) {
  Ptr<Branch> const none;
  Ptr<Branch const> const copy = none;
  EXPECT_FALSE(none);
  EXPECT_EQ(copy, nullptr);
  EXPECT_EQ(none, copy);
}

TEST(Ptr, ConvertsToBaseAndToConstAndBackOnlyWhereTheNodeIsOne) {
  Ptr<Leaf> const leaf = ptrIsImpl<Leaf>(3);
  Ptr<Branch> const branch = leaf;
  Ptr<Dovel::Node const> const node = branch;
  EXPECT_EQ(leaf->useCount(), 3U);
  EXPECT_EQ(branch, leaf);
  EXPECT_EQ(ptrDynamicCast<Leaf>(branch), leaf);
  EXPECT_EQ(ptrDynamicCast<Leaf const>(node), leaf);
  EXPECT_EQ(ptrDynamicCast<Leaf>(ptrIsImpl<Branch>(4)), nullptr);
  EXPECT_EQ(leaf->useCount(), 3U);
}

TEST(Ptr, MayBeAssignedFromWhatItsOwnNodeHolds) {
  struct Link : Dovel::Tracked<Link> {
    Ptr<Link> next;
  };
  Ptr<Link> head = ptrIsImpl<Link>();
  head->next = ptrIsImpl<Link>();
  head = head->next;
  EXPECT_EQ(head->useCount(), 1U);
  head = static_cast<Ptr<Link> const&>(head);
  EXPECT_EQ(head->useCount(), 1U);
}

struct Visitor : Dovel::Tracked<Visitor> {
  explicit Visitor(int& ended) : ended_(ended) { handleInitialized(); }
  ~Visitor() override {
    markBeingDestroyed();
    onDelete();
  }
  void handleInitialized() { Ptr<Visitor> const self(this); }
  void onDelete() {
    EXPECT_TRUE(isBeingDestroyed());
    Ptr<Visitor> const self(this);
    ++ended_;
  }
  int& ended_;
};

TEST(Node, OutlivesShortUsesOfItselfWhileItIsMadeAndDestroyed) {
  int ended = 0;
  {
    Ptr<Visitor> const visitor = ptrIsImpl<Visitor>(ended);
    EXPECT_EQ(ended, 0);
    EXPECT_EQ(visitor->useCount(), 1U);
  }
  EXPECT_EQ(ended, 1);
}

struct Keeper : Dovel::Tracked<Keeper> {
  explicit Keeper(bool& unused) : unused_(unused) {}
  void lastUserGone() override {
    unused_ = true;
    Tracked::lastUserGone();
  }
  bool& unused_;
};

TEST(Node, AsksTheClassWhatToDoWhenTheLastUserIsGone) {
  bool unused = false;
  ptrIsImpl<Keeper>(unused);
  EXPECT_TRUE(unused);
}

TEST(NodeDeathTest, AUseGivenUpTwiceEndsTheProcess) {
  struct Local : Dovel::Tracked<Local> {};
  Local local;
  EXPECT_DEATH(local.decUseImpl(), "given up that nobody held");
}

TEST(NodeDeathTest, DestroyingANodeThatIsInUseEndsTheProcess) {
  struct Local : Dovel::Tracked<Local> {};
  auto const leavesAUser = [] {
    Local local;
    local.incUseCount();
  };
  EXPECT_DEATH(leavesAUser(), "destroyed with 1 users left");
}

struct Thrower : Dovel::Tracked<Thrower> {
  ~Thrower() override { fail(); }
  void fail() { throw std::runtime_error("too late"); }
};

TEST(NodeDeathTest, AnExceptionInADestructorEndsTheProcess) {
  EXPECT_DEATH(ptrIsImpl<Thrower>(), "too late");
}

#if HWTABLES_ASAN
TEST(NodeDeathTest, AUseAfterTheLastOneIsFoundByTheAddressSanitizer) {
  Ptr<Leaf> leaf = ptrIsImpl<Leaf>(1);
  double const* const weight = leaf->weight;
  leaf = nullptr;
  EXPECT_DEATH(std::_Exit(*weight > 0 ? 1 : 0), "heap-use-after-free");
}
#endif

AllocTrackTypeInfo const* trackerOf(std::string_view part) {
  for (AllocTrackTypeInfo const* tracker : AllocTrackTypeInfo::trackers())
    if (tracker->typeName().view().ends_with(part)) return tracker;
  return nullptr;
}

TEST(PtrIsImpl, CountsEachClassOfAHierarchyInItsOwnTracker) {
  Ptr<Branch> const branch = ptrIsImpl<Branch>(1);
  AllocTrackTypeInfo const* const branches = trackerOf("::Branch");
  ASSERT_NE(branches, nullptr);
  auto const before = branches->liveCount();
  {
    Ptr<Branch> const leaf = ptrIsImpl<Leaf>(2);
    EXPECT_EQ(branches->liveCount(), before);
    EXPECT_EQ(Leaf::memAllocationTracker_->liveCount(), 1U);
    EXPECT_EQ(trackerOf("::Leaf"), Leaf::memAllocationTracker_);
    EXPECT_EQ(Leaf::memAllocationTracker_->objectSize(), sizeof(Leaf));
  }
  EXPECT_EQ(Leaf::memAllocationTracker_->liveCount(), 0U);
  EXPECT_GE(Leaf::memAllocationTracker_->totalCount(), 1U);
}

TEST(PtrIsImpl, AConstructorThatThrowsLeavesTheTrackerCountAndTheSlabAsTheyWere) {
  Ptr<Leaf> const leaf = ptrIsImpl<Leaf>(1);
  void const* const next = ptrIsImpl<Leaf>(2).ptr();
  auto const live = Leaf::memAllocationTracker_->liveCount();
  int const aliveBefore = alive;
  EXPECT_THROW(ptrIsImpl<Leaf>(3, true), std::runtime_error);
  EXPECT_EQ(Leaf::memAllocationTracker_->liveCount(), live);
  EXPECT_EQ(alive, aliveBefore);
  if (KilnSlab::isSlabMemory(next)) {
    EXPECT_EQ(ptrIsImpl<Leaf>(4).ptr(), next);
  }
}

TEST(PtrIsImpl, PlacesLargeAndStrictlyAlignedNodesOutsideTheSlab) {
  struct Large : Dovel::Tracked<Large> {
    char room[KilnSlab::kLargestCell];
  };
  struct alignas(64) Strict : Dovel::Tracked<Strict> {};
  Ptr<Large> const large = ptrIsImpl<Large>();
  Ptr<Strict> const strict = ptrIsImpl<Strict>();
  EXPECT_FALSE(KilnSlab::isSlabMemory(large.ptr()));
  EXPECT_FALSE(KilnSlab::isSlabMemory(strict.ptr()));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(strict.ptr()) % 64, 0U);
  EXPECT_EQ(KilnSlab::isSlabMemory(ptrIsImpl<Stone>().ptr()), !KilnSlab::Impl::kAlwaysMalloc);
}

TEST(AllocTrack, CountsArraysAndSharesOneTrackerBetweenTwoPointersOfAType) {
  struct Grain {};
  AllocTrackTypeInfo* here = nullptr;
  AllocTrackTypeInfo* there = nullptr;
  AllocTrackTypeInfo::trackArrayAllocation(&here, typeid(Grain), 1, 1, 40);
  AllocTrackTypeInfo::_trackAllocation(&there, typeid(Grain), 1, 1);
  ASSERT_EQ(here, there);
  AllocTrackTypeInfo::trackArrayDeallocation(here, 15);
  AllocTrackTypeInfo::trackDeallocation(there);
  EXPECT_EQ(here->liveCount(), 25U);
  EXPECT_EQ(here->totalCount(), 41U);
}

// What is left of a class after its library was unloaded: addresses without memory.
class UnloadedType {
 public:
  UnloadedType() {
    void* const page = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto* const name = static_cast<char*>(page) + 512;
    std::strcpy(name, "12UnloadedType");
    auto const* const type = ::new (page) Type(name);
    AllocTrackTypeInfo::_trackAllocation(&tracker_, *type, 24, 8);
    ::munmap(page, 4096);
  }
  AllocTrackTypeInfo const& tracker() const { return *tracker_; }

 private:
  struct Type : std::type_info {
    explicit Type(char const* name) : std::type_info(name) {}
  };
  AllocTrackTypeInfo* tracker_ = nullptr;
};

TEST(AllocTrack, OutlivesTheLibraryOfAClassAndGoesOnWhenItIsLoadedAgain) {
  UnloadedType const before;
  EXPECT_EQ(before.tracker().typeName(), "UnloadedType");
  struct Other {};
  AllocTrackTypeInfo* other = nullptr;
  AllocTrackTypeInfo::_trackAllocation(&other, typeid(Other), 1, 1);
  UnloadedType const again;
  EXPECT_EQ(&again.tracker(), &before.tracker());
  EXPECT_EQ(before.tracker().liveCount(), 2U);
}

TEST(Node, CountsExactlyUnderTwoThreadsOnceThreadsMayRun) {
  Dovel::ThreadControl::tspIs();
  Ptr<Stone> const stone = ptrIsImpl<Stone>();
  std::vector<Ptr<Stone>> const held(100, stone);  // so that a lost count is not the last
  std::latch both(2);
  auto hammer = [&] {
    both.arrive_and_wait();
    for (int round = 0; round < 1000000; ++round) Ptr<Stone> const copy = stone;
  };
  std::thread one(hammer);
  std::thread two(hammer);
  one.join();
  two.join();
  EXPECT_EQ(stone->useCount(), 101U);
}

}  // namespace
