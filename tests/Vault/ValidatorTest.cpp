// The full check of a table: what passes, and the one reason that each kind of damage is given.
#include <gmock/gmock.h>

#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;
using Record32 = TestRecord<ChosenKey, 32>;
using Store32 = Store<Record32>;

constexpr std::uint32_t kNil = Image::kNil;

class Validation : public testing::Test {
 protected:
  void SetUp() override {
    for (std::uint32_t number = 0; number < 10; ++number) store_.write({number, number});
  }

  std::string slots() const { return store_.file("slots"); }
  std::string buckets() const { return store_.file("buckets"); }
  std::size_t linkOf(std::uint32_t slot) const { return 656 + std::size_t{slot} * 48; }
  Image::Link link(std::uint32_t slot) const { return store_.image().link(slot); }

  // Checks the table, which has to fail, and returns what is traced.
  std::string failure() {
    return tracesOf("0", [&] { EXPECT_FALSE(store_->validate()); });
  }

  Store32 store_;
};

TEST_F(Validation, OfAnEmptyTablePasses) {
  Store32 empty;
  std::string const traces = tracesOf("5-9", [&] { EXPECT_TRUE(empty->validate()); });
  EXPECT_THAT(traces, HasSubstr("Validator::walkOccupiedSlots starting"));
  EXPECT_THAT(traces, HasSubstr("none found!"));
  EXPECT_THAT(traces, HasSubstr("walking slotIndex: 63"));
  EXPECT_EQ(empty->slotTable().lastFreeSlot(), 63U);
}

TEST_F(Validation, OfASoundTablePasses) {
  std::string const traces = tracesOf("5-9", [&] { EXPECT_TRUE(store_->validate()); });
  EXPECT_THAT(traces, HasSubstr("Validator::walkOccupiedSlots starting"));
  EXPECT_THAT(traces, HasSubstr("Validator::walkFreeSlots starting"));
  EXPECT_THAT(traces, HasSubstr("Validator::markOccupied slotIndex: 9"));
  EXPECT_THAT(traces, HasSubstr("walking slotIndex: 10"));
  EXPECT_EQ(store_->slotTable().lastFreeSlot(), 63U);
  EXPECT_EQ(tracesOf("0", [&] { EXPECT_TRUE(store_->validate()); }), "");
}

TEST_F(Validation, OfAFullTableHasNoLastFreeSlot) {
  for (std::uint32_t number = 10; number < 64; ++number) store_.write({number, number});
  EXPECT_TRUE(store_->validate());
  EXPECT_EQ(store_->slotTable().lastFreeSlot(), kNil);
}

TEST_F(Validation, FailsFirstWhereAWriterWasInTheMiddleOfSomething) {
  poke(slots(), 558, "\1", 1);
  poke32(slots(), 16, 0x4711);
  std::string const traces = failure();
  EXPECT_THAT(traces, HasSubstr("Vault " + store_.folder().path() +
                                " validation failed: bad critical section runtimeFlags:1"));
  EXPECT_THAT(traces, Not(HasSubstr("mismatching ember")));
}

TEST_F(Validation, FailsInTheMiddleOfADirectWrite) {
  store_->directWrite(Record32::of({1, 1}, 7));
  EXPECT_THAT(failure(), HasSubstr("bad critical section runtimeFlags:1"));
  store_->directCommit();
  EXPECT_TRUE(store_->validate());
}

TEST_F(Validation, FailsForSlotsOfAnotherGeneration) {
  poke32(slots(), 16, 0x00010002);
  EXPECT_THAT(failure(),
              HasSubstr(fmt::format("mismatching ember:{}, oldEmber:0x00010002", store_->emberId())));
}

TEST_F(Validation, LooksAtBothFilesWhateverTheFirstOneSays) {
  poke32(buckets(), 0, 7);
  poke(slots(), 558, "\1", 1);
  std::string const traces = failure();
  EXPECT_THAT(traces, HasSubstr("bad magic or element size in buckets"));
  EXPECT_THAT(traces, HasSubstr("bad critical section runtimeFlags:1"));
}

TEST_F(Validation, DumpsTheHeadersOfAllFiles) {
  poke(slots(), 558, "\1", 1);
  EXPECT_THAT(failure(), HasSubstr("runtimeFlags:0x1"));
}

TEST_F(Validation, FailsForAnOccupiedSlotOnTheFreeList) {
  poke32(slots(), linkOf(12), link(12).sequence | 1);
  EXPECT_THAT(failure(), HasSubstr("caught: slot 12 is on the free list but occupied"));
}

TEST_F(Validation, FailsForASlotOnTwoChains) {
  Image const image = store_.image();
  std::uint32_t const slot = store_.slotOf({4, 4});
  // A record of the same bucket, so that nothing but the second link is wrong.
  store_.write({20, 20});
  std::uint32_t const second = store_.slotOf({20, 20});
  poke32(slots(), linkOf(second) + 4, slot);
  poke32(slots(), linkOf(slot) + 4, second);
  EXPECT_THAT(failure(), HasSubstr("is on two chains"));
}

TEST_F(Validation, FailsForASlotThatIsStuckInAChangeAlsoWhereAllElseIsRight) {
  poke32(slots(), linkOf(3), link(3).sequence | 2);
  EXPECT_THAT(failure(), HasSubstr("slot 3 is stuck in the middle of a change"));
}

TEST_F(Validation, FailsForAFreeSlotOnAChain) {
  poke32(slots(), linkOf(3), link(3).sequence & ~1U);
  EXPECT_THAT(failure(), HasSubstr("slot 3 is on a chain but not occupied"));
}

TEST_F(Validation, NamesADuplicateBeforeItsOccupancyAndThatBeforeAStuckChange) {
  poke32(slots(), linkOf(3), (link(3).sequence & ~1U) | 2);
  EXPECT_THAT(failure(), HasSubstr("slot 3 is on a chain but not occupied"));
  // Key 3 is of another bucket now; the mark comes first all the same.
  poke32(slots(), linkOf(3), link(3).sequence | 3);
  poke32(slots(), linkOf(3) + 12, 4);
  EXPECT_THAT(failure(), HasSubstr("slot 3 is stuck in the middle of a change"));
}

TEST_F(Validation, FailsForAHashThatIsNotTheKeys) {
  poke32(slots(), linkOf(3) + 40, 0xc0000001);
  EXPECT_THAT(failure(), HasSubstr("slot 3 has hash 0xc0000001, its key has 0xc0000000"));
}

TEST_F(Validation, FailsForAKeyOfAnotherBucket) {
  poke32(slots(), linkOf(3) + 12, 4);
  EXPECT_THAT(failure(), HasSubstr("the key in slot 3 belongs to another bucket"));
}

TEST_F(Validation, FailsForAChainOutOfOrder) {
  store_.write({16, 16});
  Image const image = store_.image();
  std::uint32_t const first = store_.slotOf({0, 0});
  std::uint32_t const second = store_.slotOf({16, 16});
  ASSERT_EQ(image.head(0).target(), first);
  ASSERT_EQ(image.link(first).target(), second);
  poke32(buckets(), 24 + 4, second);
  poke32(slots(), linkOf(first) + 4, image.link(second).target());
  poke32(slots(), linkOf(second) + 4, first);
  EXPECT_THAT(failure(), HasSubstr("out of order"));
}

TEST_F(Validation, FailsForTheSameKeyTwice) {
  store_.write({16, 16});
  std::uint32_t const second = store_.slotOf({16, 16});
  std::string const key = store_.image().value(store_.slotOf({0, 0})).substr(0, 8);
  poke(slots(), linkOf(second) + 8, key.data(), 8);
  poke32(slots(), linkOf(second) + 40, 0);
  EXPECT_THAT(failure(), HasSubstr("out of order"));
}

TEST_F(Validation, FailsForMoreOrFewerRecordsThanTheHeaderSays) {
  poke32(slots(), 564, 9);
  EXPECT_THAT(failure(), HasSubstr("10 slots on chains, the header says 9"));
  poke32(slots(), 564, 11);
  EXPECT_THAT(failure(), HasSubstr("10 slots on chains, the header says 11"));
}

TEST_F(Validation, EndsAsSoonAsThereIsMoreThanTheHeaderSays) {
  poke32(slots(), 564, 5);
  EXPECT_THAT(failure(), HasSubstr("6 slots on chains, the header says 5"));
}

TEST_F(Validation, FailsForAFreeSlotThatDoesNotExist) {
  poke32(slots(), linkOf(12) + 4, 65);
  EXPECT_THAT(failure(), HasSubstr("the free list leads to slot 65, which does not exist"));
  poke32(slots(), linkOf(12) + 4, 64);
  EXPECT_THAT(failure(), HasSubstr("the free list leads to slot 64, which does not exist"));
  poke32(slots(), linkOf(12) + 4, 0x80000003);
  EXPECT_THAT(failure(), HasSubstr("which does not exist"));
}

TEST_F(Validation, FailsForAFreeListThatIsACycle) {
  poke32(slots(), linkOf(12) + 4, 10);
  EXPECT_THAT(failure(), HasSubstr("slot 10 is on the free list twice"));
}

TEST_F(Validation, FailsForSlotsThatAreOnNoList) {
  poke32(slots(), linkOf(12) + 4, kNil);
  EXPECT_THAT(failure(), HasSubstr("13 slots found on chains and free list, of 64"));
}

TEST_F(Validation, FailsForAFreeListThatBeginsNowhere) {
  poke32(slots(), 568, kNil);
  EXPECT_THAT(failure(), HasSubstr("10 slots found on chains and free list, of 64"));
  poke32(slots(), 568, 64);
  EXPECT_THAT(failure(), HasSubstr("which does not exist"));
}

TEST_F(Validation, FailsForAnOwnerFileThatIsBad) {
  poke32(store_.file("owner"), 0, 7);
  poke32(store_.file("owner"), 1024, 7);
  EXPECT_FALSE(store_->validate());
}

TEST_F(Validation, DoesNotMindTheFlagsOfLinks) {
  for (std::uint32_t slot = 0; slot < 20; ++slot) {
    poke32(slots(), linkOf(slot) + 4, link(slot).next | Image::kFlag);
  }
  EXPECT_TRUE(store_->validate());
}

TEST_F(Validation, ChangesNothing) {
  Image const before = store_.image();
  EXPECT_TRUE(store_->validate());
  EXPECT_EQ(store_.image().slots(), before.slots());
  EXPECT_EQ(store_.image().buckets(), before.buckets());
}

}  // namespace
