// Slots that grow without their buckets, at every step of a reader, and a reader at every step of such
// growth.
#include <gtest/gtest.h>

#include <optional>

#include "tests/VaultProbed/Meanwhile.h"
#include "tests/VaultProbed/ScheduleParties.h"
#include "tests/support/TestStore.h"

namespace ScheduleTests {
namespace {

// Beyond five slots the table gets one more at a time, and its buckets are enough for eight records.
constexpr Table kSlow{Records::large, 5, false};

Operation written(std::uint32_t number) {
  return {Operation::write, {number, number * 0x20000001U}, number * 16};
}

class ReaderScheduleBesideGrowth : public testing::Test {
 protected:
  ReaderScheduleBesideGrowth() { begin(); }

  void begin() {
    reader_.reset();
    writer_.reset();
    directory_.emplace();
    records_ = 0;
    writer_ = writerOf(kSlow, directory_->path());
    while (records_ < kSlow.maxSize) write();
    reader_ = readerOf(kSlow.records, directory_->path());
    EXPECT_TRUE(reader_->initialize());
    look();
  }
  void write() { writer_->apply(written(records_++)); }
  void look() { EXPECT_TRUE(reader_->lookup(written(0).key).found); }
  void expectAll(std::uint64_t step) {
    for (std::uint32_t slot = 0; slot < records_; ++slot) {
      Answer const answer = reader_->valueOf(slot);
      EXPECT_TRUE(answer.found && answer.key == written(slot).key) << slot << ", met at step " << step;
      EXPECT_TRUE(reader_->lookup(written(slot).key).found) << slot << ", met at step " << step;
    }
  }

  std::optional<TestSupport::StoreDir> directory_;
  std::unique_ptr<WritingParty> writer_;
  std::unique_ptr<ReadingParty> reader_;
  std::uint32_t records_ = 0;
};

TEST_F(ReaderScheduleBesideGrowth, MissesNoSlotWhereverItWasWhenTheTableGrew) {
  for (bool const hasGrown : {false, true}) {
    bool isDone = true;
    for (std::uint64_t step = 1; isDone; ++step) {
      begin();
      if (hasGrown) write();
      {
        Meanwhile const growth(step, [this] { write(); });
        look();
        isDone = growth.isDone();
      }
      expectAll(step);
    }
  }
}

TEST_F(ReaderScheduleBesideGrowth, MissesNoSlotWhereverTheWriterWasWhenItLooked) {
  bool isDone = true;
  for (std::uint64_t step = 1; isDone; ++step) {
    begin();
    {
      Meanwhile const looking(step, [this] { look(); });
      write();
      isDone = looking.isDone();
    }
    expectAll(step);
  }
}

}  // namespace
}  // namespace ScheduleTests
