// Crashes of operations, at every store and at every call that changes a file, and what the next writer makes
// of what they leave.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "tests/VaultProbed/Bases.h"
#include "tests/VaultProbed/CrashExplorer.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Seed.h"
#include "tests/support/TestStore.h"

namespace CrashTests {
namespace {

template <class Ops>
class Sequences {
 public:
  Sequences(Explorer<Ops>& explorer, std::vector<Operation> const& from)
      : explorer_(explorer), base_(baseOf<Ops>(explorer.directory(), from)) {}

  void allUpTo(std::uint32_t longest) {
    for (std::uint32_t length = 1; length <= longest; ++length) all(length);
  }

 private:
  // What is explored is the last operation, for the others were with shorter sequences.
  void all(std::uint32_t length) {
    auto const step = static_cast<std::uint32_t>(chosen_.size() + 1);
    for (Operation const& operation : operationsAt(step)) {
      if (explorer_.failed()) return;
      if (step == length) {
        explore(operation);
        continue;
      }
      chosen_.push_back(operation);
      all(length);
      chosen_.pop_back();
    }
  }

  void explore(Operation const& operation) {
    base_.files.writeTo(explorer_.directory());
    auto const writer = attachedTo<Ops>(explorer_.directory());
    Model model = base_.model;
    std::string history;
    for (Operation const& before : chosen_) {
      applyTo(*writer, before);
      model.apply(before);
      history += before.text() + " ";
    }
    explorer_.explore(*writer, model, operation, history);
  }

  Explorer<Ops>& explorer_;
  Base const base_;
  std::vector<Operation> chosen_;
};

template <class Ops>
void exploreAll(char const* name, Recoveries recoveries, std::vector<Operation> const& from,
                std::uint32_t longest) {
  TestSupport::StoreDir const directory;
  Explorer<Ops> explorer(directory.path(), recoveries);
  Sequences<Ops>(explorer, from).allUpTo(longest);
  explorer.tell(name);
}

// What the other tests begin from is right for what they are about.
TEST(CrashAtEveryStore, BeginsWhereTablesGrowShrinkAndMove) {
  TestSupport::StoreDir const directory;
  using Ops = CrashOps<704>;
  baseOf<Ops>(directory.path(), highUp());
  auto writer = attachedTo<Ops>(directory.path());
  std::uint32_t const buckets = writer->buckets();
  applyTo(*writer, {Operation::remove, 0});
  EXPECT_EQ(writer->counters().slotShrinks, 1U);
  EXPECT_EQ(writer->counters().slotsMoved, 3U);
  EXPECT_EQ(writer->buckets(), buckets / 2);
  writer.reset();
  baseOf<Ops>(directory.path(), full());
  writer = attachedTo<Ops>(directory.path());
  applyTo(*writer, {Operation::write, 1});
  EXPECT_EQ(writer->counters().slotGrows, 1U);
  EXPECT_EQ(writer->buckets(), 4U);
}

// The sanitizers look for other things, and take several times as long.
constexpr bool kThorough = !HWTABLES_ASAN && !HWTABLES_TSAN;
constexpr std::uint32_t kLongest = kThorough ? 3 : 2;

TEST(CrashAtEveryStore, ThreeOperationsOnAnEmptyTable) {
  exploreAll<CrashOps<700>>("three operations on an empty table", Recoveries::run, {}, kLongest);
}

TEST(CrashAtEveryStore, ThreeOperationsWhereARemovalMovesSlots) {
  exploreAll<CrashOps<704>>("three operations where a removal moves slots", Recoveries::run, highUp(),
                            kLongest);
}

TEST(CrashAtEveryStore, TwoOperationsAndTheirRecoveries) {
  exploreAll<CrashOps<700>>("two operations on an empty table", Recoveries::crash, {}, kLongest - 1);
  exploreAll<CrashOps<700>>("two operations on a full table", Recoveries::crash, full(), kLongest - 1);
}

TEST(CrashAtEveryStore, TwoOperationsWhereARemovalMovesSlotsAndTheirRecoveries) {
  exploreAll<CrashOps<704>>("two operations where a removal moves slots", Recoveries::crash, highUp(),
                            kLongest - 1);
}

// Fills and empties the table by turns, so that it grows and shrinks.
class RandomOperations {
 public:
  explicit RandomOperations(std::uint64_t seed) : random_(seed) {}

  Operation next() {
    if (below(48) == 0) fills_ = !fills_;
    Operation::Kind const change = fills_ ? Operation::write : Operation::remove;
    auto const kind = below(4) != 0 ? change : static_cast<Operation::Kind>(below(Operation::kinds));
    return {kind, below(kKeys), ++version_ % 4};
  }

 private:
  static constexpr std::uint32_t kKeys = 11;

  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }

  std::mt19937_64 random_;
  std::uint32_t version_ = 0;
  bool fills_ = true;
};

// How many points are wanted of the random sequences; HWTABLES_CRASH_POINTS for more or fewer.
std::uint64_t wantedPoints() {
  char const* const given = std::getenv("HWTABLES_CRASH_POINTS");
  return given != nullptr ? std::strtoull(given, nullptr, 0) : kThorough ? 3'800'000 : 200'000;
}

template <class Ops>
void exploreRandom(char const* name, std::uint64_t salt) {
  PRINT_SEED_ON_FAILURE();
  constexpr unsigned kLength = 200;
  constexpr unsigned kMaxSize = 6;  // of more, there are a few at a time
  TestSupport::StoreDir const directory;
  Explorer<Ops> explorer(directory.path(), Recoveries::run);
  RandomOperations operations(TestSupport::seed() + salt);
  std::uint64_t grown = 0;
  std::uint64_t shrunk = 0;
  std::uint64_t moved = 0;
  while (explorer.figures().points < wantedPoints() && !explorer.failed()) {
    FileImage().writeTo(explorer.directory());
    auto const writer = attachedTo<Ops>(explorer.directory(), kMaxSize);
    Model model;
    for (unsigned step = 0; step < kLength && !explorer.failed(); ++step)
      explorer.explore(*writer, model, operations.next(), fmt::format("step {} ", step));
    grown += writer->counters().slotGrows;
    shrunk += writer->counters().slotShrinks;
    moved += writer->counters().slotsMoved;
  }
  // Of a short run that was asked for, nothing is certain.
  EXPECT_TRUE((grown > 0 && shrunk > 0 && moved > 0) || wantedPoints() < 200'000)
      << grown << ' ' << shrunk << ' ' << moved;
  explorer.tell(name);
}

TEST(CrashAtEveryStore, RandomOperationsOnRecordsThatFillAPage) {
  exploreRandom<CrashOps<2404>>("random operations, a slot a page", 1);
}

TEST(CrashAtEveryStore, RandomOperationsOnRecordsOfWhichTwoFillAPage) {
  exploreRandom<CrashOps<1000>>("random operations, two slots a page", 2);
}

}  // namespace
}  // namespace CrashTests
