// What becomes of a look-up at every step of which its table is removed, or its record and the slot used
// anew.
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "tests/VaultProbed/Meanwhile.h"
#include "tests/VaultProbed/ScheduleParties.h"
#include "tests/support/TestStore.h"

namespace ScheduleTests {
namespace {

constexpr Table kTable{Records::small, 16, true};
constexpr Key kFirst{1, 8};
// Behind the first: no hash tells them apart.
constexpr Key kSecond{2, 8};
// The same, by a hash of its own.
constexpr Key kFarther{2, 12};

class ReaderScheduleBesideRemoval : public testing::TestWithParam<Key> {
 protected:
  // A table of the first and another one, in a directory of its own, and a reader that has found the key
  // before.
  void begin() {
    reader_.reset();
    writer_.reset();
    directory_.emplace();
    writer_ = writerOf(kTable, directory_->path());
    for (Key const& key : {kFirst, GetParam() == kFirst ? kSecond : GetParam()}) write(key);
    reader_ = readerOf(kTable.records, directory_->path());
    ASSERT_TRUE(reader_->initialize());
    ASSERT_TRUE(reader_->lookup(GetParam()).found);
  }
  void write(Key const& key) { writer_->apply({Operation::write, key, key.number * 16}); }

  std::optional<TestSupport::StoreDir> directory_;
  std::unique_ptr<WritingParty> writer_;
  std::unique_ptr<ReadingParty> reader_;
};

TEST_P(ReaderScheduleBesideRemoval, IsToldOfItByTheLookUpDuringWhichItCame) {
  for (std::uint64_t step = 1;; ++step) {
    ASSERT_NO_FATAL_FAILURE(begin());
    Meanwhile const removal(step, [&] { writer_->apply({Operation::cleanup}); });
    Answer const answer = reader_->lookup(GetParam());
    if (!removal.isDone()) {
      EXPECT_GT(step, 6U);
      EXPECT_TRUE(answer.found && !reader_->told());
      return;
    }
    EXPECT_FALSE(answer.found) << "removed at step " << step;
    EXPECT_TRUE(reader_->told()) << "removed at step " << step;
  }
}

TEST_P(ReaderScheduleBesideRemoval, NeverTakesARecordThatWasOverwrittenMeanwhileForItsKey) {
  for (std::uint64_t step = 1;; ++step) {
    ASSERT_NO_FATAL_FAILURE(begin());
    ASSERT_TRUE(reader_->lookupInPlace(GetParam()).found);
    Meanwhile const reuse(step, [&] {
      writer_->apply({Operation::remove, GetParam()});
      // Of the same hash, and one that makes the buckets grow, so that the look-up is tried again.
      for (Key const& key : {Key{3, GetParam().chosenHash}, Key{4, 5}}) write(key);
    });
    Answer const answer = reader_->lookupInPlace(GetParam());
    if (!reuse.isDone()) return;
    EXPECT_TRUE(!answer.found || answer.key == GetParam())
        << "at step " << step << ": key" << answer.key.number;
  }
}

INSTANTIATE_TEST_SUITE_P(, ReaderScheduleBesideRemoval, testing::Values(kFirst, kSecond, kFarther),
                         [](auto const& key) {
                           if (key.param == kFirst) return "OfTheFirstOfAChain";
                           return key.param == kSecond ? "OfOneOfTheSameHash" : "OfOneFartherOn";
                         });

}  // namespace
}  // namespace ScheduleTests
