// What becomes of a look-up at every step of which its table is removed, or its record and the slot used
// anew.
#include <gtest/gtest.h>

#include "tests/VaultProbed/Meanwhile.h"
#include "tests/VaultProbed/ScheduleParties.h"
#include "tests/support/TestStore.h"

namespace ScheduleTests {
namespace {

constexpr Table kTable{Records::small, 16, true};
// No hash tells them apart, so that the second stands behind the first.
constexpr Key kFirst{1, 8};
constexpr Key kSecond{2, 8};

class ReaderScheduleBesideRemoval : public testing::TestWithParam<Key> {};

TEST_P(ReaderScheduleBesideRemoval, IsToldOfItByTheLookUpDuringWhichItCame) {
  for (std::uint64_t step = 1;; ++step) {
    TestSupport::StoreDir const directory;
    auto const writer = writerOf(kTable, directory.path());
    for (Key const& key : {kFirst, kSecond}) writer->apply({Operation::write, key, key.number * 16});
    auto const reader = readerOf(kTable.records, directory.path());
    ASSERT_TRUE(reader->initialize());
    ASSERT_TRUE(reader->lookup(GetParam()).found);
    Meanwhile const removal(step, [&] { writer->apply({Operation::cleanup}); });
    Answer const answer = reader->lookup(GetParam());
    if (!removal.isDone()) {
      EXPECT_GT(step, 6U);
      EXPECT_TRUE(answer.found && !reader->told());
      return;
    }
    EXPECT_FALSE(answer.found) << "removed at step " << step;
    EXPECT_TRUE(reader->told()) << "removed at step " << step;
  }
}

TEST_P(ReaderScheduleBesideRemoval, NeverTakesARecordThatWasOverwrittenMeanwhileForItsKey) {
  for (std::uint64_t step = 1;; ++step) {
    TestSupport::StoreDir const directory;
    auto const writer = writerOf(kTable, directory.path());
    for (Key const& key : {kFirst, kSecond}) writer->apply({Operation::write, key, key.number * 16});
    auto const reader = readerOf(kTable.records, directory.path());
    ASSERT_TRUE(reader->initialize());
    ASSERT_TRUE(reader->lookupInPlace(GetParam()).found);
    Meanwhile const reuse(step, [&] {
      writer->apply({Operation::remove, GetParam()});
      // Of the same hash, and one that makes the buckets grow, so that the look-up is tried again.
      for (Key const& key : {Key{3, 8}, Key{4, 5}}) writer->apply({Operation::write, key, key.number * 16});
    });
    Answer const answer = reader->lookupInPlace(GetParam());
    if (!reuse.isDone()) return;
    EXPECT_TRUE(!answer.found || answer.key == GetParam())
        << "at step " << step << ": key" << answer.key.number;
  }
}

INSTANTIATE_TEST_SUITE_P(, ReaderScheduleBesideRemoval, testing::Values(kFirst, kSecond),
                         [](auto const& key) {
                           return key.param == kFirst ? "OfTheFirstOfAChain" : "OfOneFartherOn";
                         });

}  // namespace
}  // namespace ScheduleTests
