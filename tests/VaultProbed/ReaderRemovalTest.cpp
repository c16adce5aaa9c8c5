// A table that is removed at every step of a look-up.
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

INSTANTIATE_TEST_SUITE_P(, ReaderScheduleBesideRemoval, testing::Values(kFirst, kSecond),
                         [](auto const& key) {
                           return key.param == kFirst ? "OfTheFirstOfAChain" : "OfOneFartherOn";
                         });

}  // namespace
}  // namespace ScheduleTests
