// The operations of a writer, and what each leaves in the files.
#include "Vault/VaultWriter.h"

#include <gmock/gmock.h>

#include "tests/support/Message.h"
#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Vault::MarkAndSweepOperation;
using Record32 = TestRecord<ChosenKey, 32>;
using Record700 = TestRecord<ChosenKey, 700>;
using Store32 = Store<Record32>;
using Store700 = Store<Record700>;
using Value32 = WriterOf<Record32>::Value;

ChosenKey keyOf(std::uint32_t number) { return {number, number * 2654435761U}; }

template <class AnyStore>
void fill(AnyStore& store, std::uint32_t from, std::uint32_t to) {
  for (std::uint32_t number = from; number < to; ++number) store.write(keyOf(number));
}
template <class AnyStore>
void drain(AnyStore& store, std::uint32_t from, std::uint32_t to) {
  for (std::uint32_t number = to; number-- > from;) store.remove(keyOf(number));
}
std::string bytes(Record32 const& record) { return {reinterpret_cast<char const*>(&record), sizeof record}; }

TEST(VaultWriter, OverwritingByAnEqualValueStillGoesThroughTheWholeSequence) {
  Store32 store;
  Record32 const record = Record32::of(keyOf(1), 5);
  store->write(record, true);
  Image const before = store.image();
  store->write(record, true);
  Image const after = store.image();
  EXPECT_EQ(after.link(0).sequence, before.link(0).sequence + 4);
  EXPECT_EQ(after.link(0).next, before.link(0).next);
  EXPECT_EQ(after.lookasideValue(), bytes(record));
  EXPECT_EQ(after.lookasideHash(), after.hash(0));
}

TEST(VaultWriter, OverwritingLeavesTheFormerValueInTheLookasideSlot) {
  Store32 store;
  store.write(keyOf(1), 5);
  EXPECT_EQ(store.image().lookasideValue(), std::string(32, '\0'));
  store.write(keyOf(1), 6);
  EXPECT_EQ(store.image().lookasideValue(), bytes(Record32::of(keyOf(1), 5)));
  EXPECT_EQ(store.image().value(0), bytes(Record32::of(keyOf(1), 6)));
  EXPECT_EQ(store->members(), 1U);
}

TEST(VaultWriter, WithoutUpdateAnExistingRecordStays) {
  Store32 store;
  store.write(keyOf(1), 5);
  Image const before = store.image();
  Value32 const* const stored = store->write(Record32::of(keyOf(1), 6), false);
  EXPECT_EQ(bytes(*stored), bytes(Record32::of(keyOf(1), 5)));
  EXPECT_EQ(store.image().slots(), before.slots());
  EXPECT_EQ(bytes(*store->write(Record32::of(keyOf(2), 6), false)), bytes(Record32::of(keyOf(2), 6)));
  EXPECT_EQ(store->members(), 2U);
}

TEST(VaultWriter, RemovalReturnsTheRecordAndFreesItsSlotForTheNextOne) {
  Store32 store;
  fill(store, 0, 5);
  Image const before = store.image();
  Value32 removed;
  EXPECT_TRUE(store->remove(keyOf(2), removed));
  EXPECT_EQ(bytes(removed), before.value(2));
  Image const after = store.image();
  EXPECT_EQ(after.freeList(), 2U);
  EXPECT_EQ(after.link(2).next, before.freeList());
  EXPECT_EQ(after.link(2).sequence, (before.link(2).sequence & ~1U) + 4);
  EXPECT_EQ(after.occupied(), 4U);
  EXPECT_FALSE(store->remove(keyOf(2), removed));
  EXPECT_EQ(store.image().slots(), after.slots());
  store.write(keyOf(9));
  EXPECT_EQ(store.slotOf(keyOf(9)), 2U);
}

TEST(VaultWriter, AReusedSlotCarriesAHigherSequenceThanAnyTenantBefore) {
  Store32 store;
  std::uint32_t highest = 0;
  for (std::uint32_t number = 0; number < 50; ++number) {
    store.write(keyOf(number));
    std::uint32_t const now = store.image().link(0).sequence;
    EXPECT_GT(now, highest);
    highest = now;
    if (number % 3 == 0) store->directWrite(Record32::of(keyOf(number), 8)), store->directCommit();
    if (number % 4 == 0) store->markAndSweepFlag(keyOf(number), MarkAndSweepOperation::set);
    store.remove(keyOf(number));
    EXPECT_GT(store.image().link(0).sequence, highest);
    highest = store.image().link(0).sequence;
  }
}

TEST(VaultWriter, AnAbsentKeyGivesTheDefaultRecord) {
  Store32 store;
  store.write(keyOf(1), 5);
  Value32 out = Record32::of(keyOf(3), 77);
  bool found = true;
  Value32 const* const given = store->lookup(keyOf(2), found, &out);
  EXPECT_FALSE(found);
  EXPECT_EQ(bytes(*given), std::string(32, '\0'));
  EXPECT_EQ(bytes(out), std::string(32, '\0'));
  EXPECT_EQ(store->getCacheVersionAnchor(), Mem::VersionAnchor());
  store->lookup(keyOf(1), found, &out);
  EXPECT_TRUE(found);
  EXPECT_EQ(bytes(out), bytes(Record32::of(keyOf(1), 5)));
}

// Slots are counted at 64 first, so what shrinks further needs larger records: two of them fit a page.
TEST(VaultWriter, RemovalOfTheLastRecordShrinksToTheCapacity) {
  auto descriptor = sharedDescriptor(1000);
  descriptor.shrink = false;
  Store700 store(descriptor);
  fill(store, 0, 20);
  drain(store, 1, 20);
  EXPECT_EQ(store->capacity(), 32U);
  store.close();
  store.descriptor().shrink = true;
  store.open();
  std::string const traces = tracesOf("5", [&] { drain(store, 0, 1); });
  EXPECT_THAT(traces, HasSubstr("threshold:2 shrinkThreshold:16 SUPER SHRINK!"));
  EXPECT_THAT(traces, HasSubstr("at threshold:2 done"));
  EXPECT_EQ(store->capacity(), 2U);
  EXPECT_EQ(store.image().expectSound(), 0U);
}

TEST(VaultWriter, WithFiveRecordsLeftItShrinksToSixteenSlots) {
  auto descriptor = sharedDescriptor(1000);
  descriptor.shrink = false;
  Store700 store(descriptor);
  fill(store, 0, 40);
  drain(store, 5, 40);
  store.close();
  store.descriptor().shrink = true;
  store.open();
  std::string const traces = tracesOf("5", [&] { store->shrink(); });
  EXPECT_THAT(traces, HasSubstr("threshold:16 shrinkThreshold:32 SUPER SHRINK!"));
  EXPECT_EQ(store->capacity(), 16U);
  EXPECT_EQ(store.image().expectSound(), 5U);
}

TEST(VaultWriter, ShrinksToTwiceOrFourTimesWhatIsOccupied) {
  Store700 store;
  fill(store, 0, 256);
  std::uint32_t slots = store->capacity();
  for (std::uint32_t left = 256; left-- > 1;) {
    store.remove(keyOf(left));
    if (store->capacity() == slots) continue;
    slots = store->capacity();
    EXPECT_GE(slots, 2 * left);
    EXPECT_LE(slots, 4 * left);
    EXPECT_EQ(store.image().expectSound(), left);
  }
  EXPECT_LE(slots, 8U);
}

TEST(VaultWriter, ShrinkingMovesRecordsDownwardsAndNothingElse) {
  Store32 store;
  fill(store, 0, 256);
  for (std::uint32_t number = 0; number < 200; ++number) {
    if (number % 16 == 0) store->markAndSweepFlag(keyOf(number + 50), MarkAndSweepOperation::set);
  }
  std::vector<ChosenKey> const before = store.iterated();
  std::string const traces = tracesOf("9", [&] { drain(store, 0, 200); });
  EXPECT_THAT(traces, HasSubstr("moving fromSlot:"));
  EXPECT_THAT(traces, HasSubstr("skipping not occupied slot:"));
  EXPECT_EQ(store->capacity(), 128U);
  EXPECT_EQ(store.image().expectSound(), 56U);
  EXPECT_GT(store->counters().slotsMoved, 0U);
  std::vector<ChosenKey> expected;
  for (auto const& key : before)
    if (key.number >= 200) expected.push_back(key);
  EXPECT_EQ(store.iterated(), expected);
  for (std::uint32_t number = 200; number < 256; ++number) {
    EXPECT_EQ(store->markAndSweepFlag(keyOf(number), MarkAndSweepOperation::read), (number - 50) % 16 == 0);
  }
  EXPECT_TRUE(store->validate());
}

TEST(VaultWriter, ShrinkWhenThereIsNothingToGiveBackChangesNothing) {
  Store32 store;
  fill(store, 0, 100);
  Image const before = store.image();
  store->shrink();
  EXPECT_EQ(store.image().slots(), before.slots());
}

TEST(VaultWriterDeathTest, MovingFindsARecordThatNothingLeadsTo) {
  auto descriptor = sharedDescriptor(1000);
  descriptor.shrink = false;
  Store700 store(descriptor);
  fill(store, 0, 40);
  drain(store, 0, 39);
  store.descriptor().shrink = true;
  store.close();
  Image const image = store.image();
  std::uint32_t const slot = store.slotOf(keyOf(39));
  EXPECT_DEATH(
      {
        store.open();
        for (std::uint32_t bucket = 0; bucket < image.numBuckets(); ++bucket) {
          if (image.head(bucket).target() == slot)
            poke32(store.file("buckets"), 24 + 8 * bucket + 4, image.link(slot).target());
        }
        store->shrink();
      },
      "fromSlot:" + std::to_string(slot) + " key not found");
}

TEST(VaultWriter, FlagsAreReadSetAndClearedWithTheLinkAlone) {
  Store32 store;
  fill(store, 0, 3);
  Image const before = store.image();
  EXPECT_FALSE(store->markAndSweepFlag(keyOf(1), MarkAndSweepOperation::read));
  EXPECT_TRUE(store->markAndSweepFlag(keyOf(1), MarkAndSweepOperation::set));
  EXPECT_TRUE(store->markAndSweepFlag(keyOf(1), MarkAndSweepOperation::read));
  Image const set = store.image();
  EXPECT_EQ(set.link(1).next, before.link(1).next | Image::kFlag);
  EXPECT_EQ(set.link(1).sequence, before.link(1).sequence + 4);
  EXPECT_EQ(set.value(1), before.value(1));
  EXPECT_TRUE(store->markAndSweepFlag(keyOf(1), MarkAndSweepOperation::clear));
  EXPECT_FALSE(store->markAndSweepFlag(keyOf(1), MarkAndSweepOperation::read));
  EXPECT_EQ(store.image().link(1), (Image::Link{before.link(1).sequence + 8, before.link(1).next}));
  for (auto const operation :
       {MarkAndSweepOperation::read, MarkAndSweepOperation::clear, MarkAndSweepOperation::set})
    EXPECT_FALSE(store->markAndSweepFlag(keyOf(9), operation));
  EXPECT_EQ(static_cast<int>(MarkAndSweepOperation::read), 0);
  EXPECT_EQ(static_cast<int>(MarkAndSweepOperation::clear), 1);
  EXPECT_EQ(static_cast<int>(MarkAndSweepOperation::set), 2);
}

TEST(VaultWriter, AFlagOutlivesOverwritingAndChangesOfItsNeighboursButNotItsRecord) {
  Store32 store;
  fill(store, 0, 4);
  store->markAndSweepFlag(keyOf(1), MarkAndSweepOperation::set);
  store.write(keyOf(1), 9);
  store->directWrite(Record32::of(keyOf(1), 10));
  store->directCommit();
  fill(store, 4, 70);
  drain(store, 4, 70);
  EXPECT_TRUE(store->markAndSweepFlag(keyOf(1), MarkAndSweepOperation::read));
  std::uint32_t const slot = store.slotOf(keyOf(1));
  store.remove(keyOf(1));
  store.write(keyOf(50));
  ASSERT_EQ(store.slotOf(keyOf(50)), slot);
  EXPECT_FALSE(store.image().link(slot).flag());
  store->markAndSweepFlag(keyOf(50), MarkAndSweepOperation::set);
  store.remove(keyOf(50));
  store->directWrite(Record32::of(keyOf(51), 0));
  store->directCommit();
  ASSERT_EQ(store.slotOf(keyOf(51)), slot);
  EXPECT_FALSE(store.image().link(slot).flag());
}

TEST(VaultWriter, GrowthInTheMiddleOfAChainKeepsTheChain) {
  Store32 store(sharedDescriptor(100000));
  // All in one chain, so that every insertion goes behind a link of the slot file, growth or not.
  for (std::uint32_t number = 0; number < 600; ++number) store.write({number, 8});
  Image const image = store.image();
  EXPECT_EQ(image.expectSound(), 600U);
  std::vector<std::uint32_t> expected(600);
  for (std::uint32_t id = 0; id < 600; ++id) expected[id] = id;
  EXPECT_EQ(image.chain(8), expected);
}

TEST(VaultWriterDirect, ANewRecordIsLedToByNothingBeforeTheCommit) {
  Store32 store;
  fill(store, 0, 3);
  Image const before = store.image();
  store->directWrite(Record32::of(keyOf(9), 1));
  Image const between = store.image();
  for (std::uint32_t bucket = 0; bucket < between.numBuckets(); ++bucket)
    EXPECT_EQ(between.chain(bucket), before.chain(bucket));
  EXPECT_FALSE(between.link(3).occupied());
  EXPECT_EQ(between.runtimeFlags(), 1);
  store->directCommit();
  Image const after = store.image();
  EXPECT_EQ(after.expectSound(), 4U);
  EXPECT_EQ(after.value(3), bytes(Record32::of(keyOf(9), 1)));
  EXPECT_EQ(after.link(3).sequence, (before.link(3).sequence + 8) | 1);
}

TEST(VaultWriterDirect, AnExistingRecordIsAsItWasBeforeTheCommit) {
  Store32 store;
  fill(store, 0, 3);
  Image const before = store.image();
  store->directWrite(Record32::of(keyOf(1), 7));
  Image const between = store.image();
  EXPECT_EQ(between.value(1), before.value(1));
  EXPECT_EQ(between.link(1), before.link(1));
  EXPECT_EQ(between.lookasideValue(), bytes(Record32::of(keyOf(1), 7)));
  store->directCommit();
  Image const after = store.image();
  EXPECT_EQ(after.value(1), bytes(Record32::of(keyOf(1), 7)));
  EXPECT_EQ(after.link(1), (Image::Link{before.link(1).sequence + 4, before.link(1).next}));
  EXPECT_EQ(after.lookasideHash(), after.hash(1));
  EXPECT_EQ(after.expectSound(), 3U);
}

TEST(VaultWriterDirect, GrowsSlotsAndBucketsWhereNeeded) {
  Store32 store;
  for (std::uint32_t number = 0; number < 200; ++number) {
    store->directWrite(Record32::of(keyOf(number), number));
    store->directCommit();
  }
  EXPECT_EQ(store.image().expectSound(), 200U);
  EXPECT_EQ(store->buckets(), 256U);
  EXPECT_EQ(store->counters().directWrites, 200U);
  EXPECT_EQ(store->counters().directCommits, 200U);
}

TEST(VaultWriterDirect, TracesItsTwoHalves) {
  Store32 store;
  std::string traces = tracesOf("9", [&] { store->directWrite(Record32::of(keyOf(1), 0)); });
  EXPECT_THAT(traces, HasSubstr("VaultWriter"));
  EXPECT_THAT(traces, HasSubstr(" new key1 bucket:0 slot:0 next:"));
  EXPECT_THAT(tracesOf("9", [&] { store->directCommit(); }), HasSubstr("slot: 0"));
  traces = tracesOf("9", [&] { store->directWrite(Record32::of(keyOf(1), 0)); });
  EXPECT_THAT(traces, HasSubstr(" existing key1 bucket:0 slot:0 next:"));
  store->directCommit();
}

TEST(VaultWriterDirectDeathTest, HalvesThatArentPairedEndTheProcess) {
  std::string const advice = " - Make sure the DirectIs/Commit are properly paired!";
  // Local, as a child has no part in a shared one.
  Store32 store{Vault::MapDescriptor(1000)};
  EXPECT_DEATH(store->directCommit(),
               "not in direct mode! Make sure the DirectIs/Commit are properly paired!");
  store->directWrite(Record32::of(keyOf(1), 0));
  EXPECT_DEATH(store.write(keyOf(2)),
               "unbalanced directSlot:0 containing value:key1 when writing value:key2" + advice);
  EXPECT_DEATH(store.remove(keyOf(2)),
               "unbalanced directSlot:0 containing value:key1 when removing key:key2" + advice);
  EXPECT_DEATH(store->directWrite(Record32::of(keyOf(3), 0)),
               "unbalanced directSlot:0 containing value:key1 when modifying key:key3" + advice);
  EXPECT_DEATH(store->detach(false), "unbalanced directSlot:0 containing value:key1" + advice);
  EXPECT_DEATH(store->shrink(), "Vault reentrancy detected: " + store.folder().path());
  store->directCommit();
}

TEST(VaultWriter, TracesItsOperations) {
  Store32 store;
  EXPECT_THAT(tracesOf("9", [&] { store.write(keyOf(1)); }), HasSubstr("new key1 bucket:0 slot:0 next:"));
  EXPECT_THAT(tracesOf("9", [&] { store.write(keyOf(1)); }),
              HasSubstr("existing key1 bucket:0 slot:0 next:"));
  EXPECT_THAT(tracesOf("9", [&] { store.remove(keyOf(7)); }), HasSubstr("key7 bucket:0 not found"));
  EXPECT_THAT(tracesOf("9", [&] { store.remove(keyOf(1)); }), HasSubstr("key1 bucket:0 slot:0"));
}

TEST(VaultWriter, CountsWhatItDoes) {
  Store32 store;
  fill(store, 0, 65);
  drain(store, 60, 65);
  bool found = false;
  store->lookup(keyOf(1), found, nullptr);
  store->lookup(keyOf(99), found, nullptr);
  auto const& counters = store->counters();
  EXPECT_EQ(counters.inserts, 65U);
  EXPECT_EQ(counters.removes, 5U);
  EXPECT_EQ(counters.lookups, 2U);
  EXPECT_EQ(counters.slotGrows, 1U);
  store.reopen();
  EXPECT_EQ(store->counters().inserts, 0U);
}

TEST(VaultWriter, KeepsItsScratchpadAcrossAnAttach) {
  Store32 store;
  EXPECT_EQ(store->scratchpad(), 0U);
  store->scratchpadIs(0x1122334455667788);
  EXPECT_EQ(store.image().scratchpad(), 0x1122334455667788U);
  store.reopen();
  EXPECT_EQ(store->scratchpad(), 0x1122334455667788U);
}

TEST(VaultWriter, TellsItsSizes) {
  Store32 store(sharedDescriptor(300));
  fill(store, 0, 70);
  EXPECT_EQ(store->members(), 70U);
  EXPECT_EQ(store->capacity(), 128U);
  EXPECT_EQ(store->buckets(), 128U);
  EXPECT_EQ(store->maxSize(), 300U);
  EXPECT_EQ(store->type(), Vault::VaultType::writer);
  EXPECT_EQ(store->mountStatus(), 1);
  store->detach(false);
  EXPECT_EQ(store->mountStatus(), 0);
}

TEST(VaultWriter, AnExceptionInFlightBeforeAnOperationDoesNotLeaveTheFlagStanding) {
  Store32 store;
  struct WritesWhenItEnds {
    Store32& store;
    ~WritesWhenItEnds() { store.write(keyOf(1)); }
  };
  try {
    WritesWhenItEnds const last{store};
    throw std::runtime_error("on its way");
  } catch (std::runtime_error const&) {
  }
  EXPECT_EQ(store.image().runtimeFlags(), 0);
  EXPECT_EQ(store->members(), 1U);
}

TEST(VaultWriterAnchor, HoldsUntilTheValueChanges) {
  Store32 store;
  fill(store, 0, 3);
  bool found = false;
  store->lookup(keyOf(1), found, nullptr);
  Mem::VersionAnchor const anchor = store->getCacheVersionAnchor();
  EXPECT_EQ(anchor.version, store.image().link(1).sequence);
  EXPECT_EQ(anchor.offset, store.image().offsetOf(1));
  EXPECT_NO_THROW(store->validateVersionAnchor());
  EXPECT_TRUE(anchor.matches());
  store.write(keyOf(1), 7);
  EXPECT_FALSE(anchor.matches());
  EXPECT_NO_THROW(store->validateVersionAnchor());
  store.remove(keyOf(1));
  EXPECT_THROW(store->validateVersionAnchor(), Dovel::CorruptionDetectedException);
}

TEST(VaultWriterAnchor, FollowsTheFileWhenThatGrows) {
  Store32 store(sharedDescriptor(100));
  fill(store, 0, 64);
  bool found = false;
  store->lookup(keyOf(1), found, nullptr);
  store->slotTable().resize(100000);
  EXPECT_NO_THROW(store->validateVersionAnchor());
  EXPECT_EQ(store->getCacheVersionAnchor().base, store->slotTable().base());
}

class AnchorInCompaction : public testing::Test {
 protected:
  static Vault::MapDescriptor descriptor(bool shrink) {
    auto made = sharedDescriptor(1000);
    made.shrink = shrink;
    return made;
  }
  void SetUp() override {
    fill(store_, 0, 40);
    drain(store_, 4, 36);
    store_.close();
    store_.descriptor().shrink = true;
    store_.open();
  }
  void handOut(std::uint32_t number) {
    bool found = false;
    store_->lookup(keyOf(number), found, nullptr);
    ASSERT_TRUE(found);
  }

  Store700 store_{descriptor(false)};
};

TEST_F(AnchorInCompaction, OfARecordThatStaysIsKept) {
  handOut(2);
  Mem::VersionAnchor const anchor = store_->getCacheVersionAnchor();
  store_->shrink();
  ASSERT_EQ(store_->counters().slotsMoved, 4U);
  EXPECT_EQ(store_->getCacheVersionAnchor().offset, anchor.offset);
  EXPECT_NO_THROW(store_->validateVersionAnchor());
}

TEST_F(AnchorInCompaction, OfARecordThatMovesNoLongerHolds) {
  handOut(38);
  store_->shrink();
  ASSERT_EQ(store_->counters().slotsMoved, 4U);
  EXPECT_THROW(store_->validateVersionAnchor(), Dovel::CorruptionDetectedException);
}

// Notes what it is told, and whether that stands in the files by then.
class NotingHerald final : public Herald::HeraldWriter {
 public:
  explicit NotingHerald(std::string folder) : folder_(std::move(folder)) {}

  unsigned attach(SharedMem::EmberId) override { return 2; }
  void onDetach() override {}
  void removeFiles() override { removed = true; }
  void post(Herald::BasicSlot slot) noexcept override {
    Image const image(folder_, 700);
    posted.push_back(slot.slot);
    critical.push_back(image.runtimeFlags() == 1);
    bool isLedTo = false;
    for (std::uint32_t bucket = 0; bucket < image.numBuckets(); ++bucket)
      for (std::uint32_t const id : image.chain(bucket)) isLedTo = isLedTo || id == slot.slot;
    reachable.push_back(isLedTo);
  }
  Nudge::Sequence sequence(Herald::Priority) const override { return posted.size(); }
  Dovel::String headersToString() const override { return "noting"; }

  std::vector<std::uint32_t> posted;
  std::vector<bool> critical;
  std::vector<bool> reachable;
  bool removed = false;

 private:
  std::string folder_;
};

class Posting : public testing::Test {
 protected:
  void SetUp() override {
    auto herald = std::make_unique<NotingHerald>(folder_.path());
    herald_ = herald.get();
    writer_.emplace(storeHandler(), Mem::RootPath(storeHandler(), folder_.path(), true),
                    sharedDescriptor(1000), std::move(herald));
    writer_->initialize("test");
  }
  void write(std::uint32_t number) { writer_->write(Record700::of(keyOf(number), 1), true); }
  void remove(std::uint32_t number) {
    WriterOf<Record700>::Value value;
    writer_->remove(keyOf(number), value);
  }

  StoreDir folder_;
  NotingHerald* herald_ = nullptr;
  std::optional<WriterOf<Record700>> writer_;
};

TEST_F(Posting, TellsEveryEffectiveChangeInsideTheCriticalSectionAfterItIsPublished) {
  write(1);
  write(1);
  writer_->write(Record700::of(keyOf(1), 2), false);
  remove(2);
  writer_->directWrite(Record700::of(keyOf(2), 2));
  EXPECT_EQ(herald_->posted.size(), 2U);
  writer_->directCommit();
  remove(1);
  EXPECT_THAT(herald_->posted, ElementsAre(0, 0, 1, 0));
  EXPECT_THAT(herald_->critical, ElementsAre(true, true, true, true));
  EXPECT_THAT(herald_->reachable, ElementsAre(true, true, true, false));
  EXPECT_EQ(writer_->sequence(Herald::Priority::normal), 4U);
}

TEST_F(Posting, TellsTheNewSlotOfAMoveBeforeTheOldOne) {
  for (std::uint32_t number = 0; number < 8; ++number) write(number);
  for (std::uint32_t number = 0; number < 4; ++number) remove(number);
  herald_->posted.clear();
  herald_->reachable.clear();
  remove(4);
  ASSERT_EQ(writer_->capacity(), 8U);
  remove(5);
  remove(6);
  ASSERT_EQ(writer_->capacity(), 4U);
  EXPECT_THAT(herald_->posted, ElementsAre(4, 5, 6, 3, 7));
  EXPECT_THAT(herald_->reachable, ElementsAre(false, false, false, true, false));
}

TEST_F(Posting, RemovesItsOwnFileFirst) {
  writer_->cleanup();
  EXPECT_TRUE(herald_->removed);
}

}  // namespace
