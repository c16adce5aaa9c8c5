// The bucket file and the chains over the slots: order, growth, shrinking, and iteration.
#include <gmock/gmock.h>

#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;
using Record12 = TestRecord<ChosenKey, 12>;
using Store12 = Store<Record12>;
using Keys = std::vector<ChosenKey>;

void fill(Store12& store, std::uint32_t from, std::uint32_t to) {
  for (std::uint32_t number = from; number < to; ++number) store.write({number, number});
}
void drain(Store12& store, std::uint32_t from, std::uint32_t to) {
  for (std::uint32_t number = from; number < to; ++number) store.remove({number, number});
}

TEST(BucketFile, OfANewTableHasOneHeadThatLeadsNowhere) {
  Store12 store;
  std::string const bytes = bytesOf(store.file("buckets"));
  EXPECT_EQ(wordAt<std::uint32_t>(bytes, 0), 0x6b627468U);
  EXPECT_EQ(wordAt<std::uint32_t>(bytes, 4), 8U);
  EXPECT_EQ(wordAt<std::uint32_t>(bytes, 8), store->emberId().value());
  EXPECT_EQ(wordAt<std::uint32_t>(bytes, 12), 0U);
  EXPECT_EQ(wordAt<std::uint32_t>(bytes, 20), 1U);
  EXPECT_EQ(wordAt<std::uint32_t>(bytes, 28), Image::kNil);
}

TEST(WriterHashMap, TheOnlyRecordOfTheOnlyBucketIsLedToByItsHeadAndLeadsNowhere) {
  Store12 store;
  fill(store, 7, 8);
  Image const image = store.image();
  EXPECT_EQ(image.numBuckets(), 1U);
  EXPECT_EQ(image.head(0).next, 0U);
  EXPECT_EQ(image.link(0).next, Image::kNil);
}

TEST(WriterHashMap, MirrorsAllBitsOfAHash) {
  for (std::uint32_t const word : {0U, 1U, 0x80000000U, 0x12345678U, 0xdeadbeefU, 0xffffffffU})
    EXPECT_EQ(VaultCore::reverseBits(word), Image::reversed(word, 32));
}

TEST(WriterHashMap, BucketsFollowEachOtherByTheirMirroredNumbers) {
  for (unsigned bits = 0; bits <= 10; ++bits) {
    for (std::uint32_t bucket = 0; bucket < 1U << bits; ++bucket) {
      std::uint32_t const mirrored = Image::reversed(bucket, bits) + 1;
      std::uint32_t const next =
          mirrored == 1U << bits ? VaultCore::BucketTable::kNoBucket : Image::reversed(mirrored, bits);
      ASSERT_EQ(VaultCore::BucketTable::nextBucket(bucket, bits), next) << bucket << " of 2^" << bits;
    }
  }
}

TEST(WriterHashMap, EmptyBucketsNameTheBucketThatFollowsAndIterationPassesThem) {
  auto descriptor = sharedDescriptor(1000);
  descriptor.shrinkBuckets = false;
  Store12 store(descriptor);
  fill(store, 0, 5);
  drain(store, 1, 5);
  store.write({100, 7});
  store.write({101, 15});
  Image const image = store.image();
  ASSERT_EQ(image.numBuckets(), 8U);
  EXPECT_EQ(image.head(1).target(), Image::kEnd | 5);
  EXPECT_EQ(image.head(4).target(), Image::kEnd | 2);
  EXPECT_EQ(image.head(6).target(), Image::kEnd | 1);
  EXPECT_EQ(image.head(3).target(), Image::kEnd | 7);
  EXPECT_THAT(store.iterated(), ElementsAre(ChosenKey{0, 0}, ChosenKey{100, 7}, ChosenKey{101, 15}));
  EXPECT_EQ(image.expectSound(), 3U);
}

TEST(WriterHashMap, AfterGrowthAllChainsEndAsTheRuleSays) {
  Store12 store;
  for (std::uint32_t number = 0; number < 300; ++number) {
    store.write({number, number * 2654435761U});
    if ((number & (number - 1)) == 0) store.image().expectSound();
  }
  EXPECT_EQ(store.image().numBuckets(), 512U);
  EXPECT_EQ(store.image().expectSound(), 300U);
}

TEST(WriterHashMap, GrowthAndShrinkingLeaveTheTableAsItWasButForSequences) {
  Store12 store;
  fill(store, 0, 4);
  store->markAndSweepFlag({1, 1}, Vault::MarkAndSweepOperation::set);
  auto& map = const_cast<WriterOf<Record12>::HashMap&>(store->hashMap());
  Image const before = store.image();
  map.growBuckets();
  Image const grown = store.image();
  EXPECT_EQ(grown.numBuckets(), 2 * before.numBuckets());
  EXPECT_EQ(grown.numBucketsVersion(), before.numBucketsVersion() + 1);
  EXPECT_EQ(grown.expectSound(), 4U);
  EXPECT_EQ(map.growThreshold(), grown.numBuckets());
  EXPECT_EQ(map.shrinkThreshold(), grown.numBuckets() / 4);
  map.shrinkBuckets();
  Image const after = store.image();
  EXPECT_EQ(after.numBuckets(), before.numBuckets());
  EXPECT_EQ(after.numBucketsVersion(), before.numBucketsVersion() + 2);
  for (std::uint32_t bucket = 0; bucket < before.numBuckets(); ++bucket) {
    EXPECT_EQ(after.head(bucket).next, before.head(bucket).next) << "bucket " << bucket;
    EXPECT_EQ(after.head(bucket).sequence % 4, 0U);
  }
  for (std::uint32_t id = 0; id < before.numSlots(); ++id) {
    EXPECT_EQ(after.link(id).next, before.link(id).next) << "slot " << id;
    EXPECT_EQ(after.value(id), before.value(id)) << "slot " << id;
    EXPECT_EQ(after.hash(id), before.hash(id)) << "slot " << id;
  }
}

TEST(WriterHashMap, ResizesKeepTheFlagsOfSlots) {
  Store12 store;
  fill(store, 0, 4);
  for (std::uint32_t const number : {0U, 3U})
    store->markAndSweepFlag({number, number}, Vault::MarkAndSweepOperation::set);
  fill(store, 4, 40);
  drain(store, 4, 40);
  for (std::uint32_t number = 0; number < 4; ++number) {
    EXPECT_EQ(store->markAndSweepFlag({number, number}, Vault::MarkAndSweepOperation::read),
              number == 0 || number == 3)
        << number;
  }
}

TEST(WriterHashMap, KeysOfOneHashAreOrderedByKey) {
  Store12 store;
  for (std::uint32_t const number : {30U, 10U, 50U, 20U, 40U}) store.write({number, 5});
  EXPECT_THAT(store.iterated(), ElementsAre(ChosenKey{10, 5}, ChosenKey{20, 5}, ChosenKey{30, 5},
                                            ChosenKey{40, 5}, ChosenKey{50, 5}));
  store.remove({30, 5});
  bool found = true;
  store->lookup({30, 5}, found, nullptr);
  EXPECT_FALSE(found);
  store->lookup({40, 5}, found, nullptr);
  EXPECT_TRUE(found);
}

TEST(WriterHashMap, IteratesInTheOrderOfMirroredHashes) {
  Store12 store;
  fill(store, 0, 100);
  Keys const keys = store.iterated();
  ASSERT_EQ(keys.size(), 100U);
  EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end(), [](ChosenKey const& a, ChosenKey const& b) {
    return Image::reversed(a.chosenHash, 32) < Image::reversed(b.chosenHash, 32);
  }));
}

TEST(WriterHashMap, ResizesWhereOccupancyCrossesTheThresholds) {
  Store12 store;
  std::string const traces = tracesOf("2", [&] {
    fill(store, 0, 8);
    EXPECT_EQ(store->buckets(), 8U);
    fill(store, 8, 9);
    EXPECT_EQ(store->buckets(), 16U);
    drain(store, 4, 9);
    EXPECT_EQ(store->buckets(), 16U);
    drain(store, 3, 4);
    EXPECT_EQ(store->buckets(), 8U);
    drain(store, 0, 3);
    EXPECT_EQ(store->buckets(), 2U);
  });
  EXPECT_THAT(traces, HasSubstr("growing from: 8 to: 16"));
  EXPECT_THAT(traces, HasSubstr("shrunk from:16 to:8 shrinkBuckets_:true time:"));
  EXPECT_GT(store->counters().buckets.maxGrowTime, 0);
  EXPECT_GT(store->counters().buckets.maxShrinkTime, 0);
  EXPECT_GT(store->counters().buckets.lastResizeTime, 0);
}

TEST(WriterHashMap, ThatMayNotShrinkKeepsItsBucketsAlsoAcrossAnAttach) {
  auto descriptor = sharedDescriptor(1000);
  descriptor.shrinkBuckets = false;
  Store12 store(descriptor);
  fill(store, 0, 20);
  drain(store, 0, 20);
  EXPECT_EQ(store->buckets(), 32U);
  store.reopen();
  EXPECT_EQ(store->buckets(), 32U);
  EXPECT_EQ(store->hashMap().growThreshold(), 32U);
}

TEST(WriterHashMap, TracesEveryStepOfASearch) {
  Store12 store;
  store.write({1, 8});
  store.write({3, 8});
  bool found = false;
  std::string traces = tracesOf("9", [&] { store->lookup({3, 8}, found, nullptr); });
  EXPECT_THAT(traces, HasSubstr("key3 next curr:0"));
  EXPECT_THAT(traces, HasSubstr("key3 found curr:1 next:"));
  EXPECT_THAT(traces, HasSubstr("key3 found bucket:0 slotId:1"));
  traces = tracesOf("9", [&] { store->lookup({2, 8}, found, nullptr); });
  EXPECT_THAT(traces, HasSubstr("key2 not found curr:1 next:"));
  EXPECT_THAT(traces, HasSubstr("key2 not found bucket:0"));
}

TEST(WriterHashMap, TracesIterationAndItsEnd) {
  Store12 store;
  EXPECT_THAT(tracesOf("8", [&] { EXPECT_TRUE(store.iterated().empty()); }), HasSubstr("none found!"));
  fill(store, 0, 3);
  std::string traces = tracesOf("9", [&] { store.iterated(); });
  EXPECT_THAT(traces, HasSubstr("key0 found at bucket 0"));
  EXPECT_THAT(traces, HasSubstr("key0 next bucket 2 using slot 0 of bucket 0 at sequence "));
  EXPECT_THAT(traces, HasSubstr("key0 success key2 using "));
  EXPECT_THAT(traces, HasSubstr(", saving new slot hint slot 2 of bucket 2 at sequence "));
  store.write({10, 2});
  WriterOf<Record12>::Value value;
  Vault::IterHint hint;
  traces = tracesOf("9", [&] { store->next({2, 2}, value, hint); });
  EXPECT_THAT(traces, HasSubstr("key2 comparing slot 2 key2"));
  EXPECT_EQ(value.key(), (ChosenKey{10, 2}));
}

class Iterator : public testing::Test {
 protected:
  // Comes to the record of that number.
  void walkTo(std::uint32_t number) {
    ASSERT_TRUE(store_->first(value_, hint_));
    while (value_.key().number != number) ASSERT_TRUE(store_->next(value_.key(), value_, hint_));
  }
  Keys rest() {
    Keys keys;
    while (store_->next(value_.key(), value_, hint_)) keys.push_back(value_.key());
    return keys;
  }
  // What stands behind the key now.
  Keys behind(ChosenKey const& key) {
    Keys keys = store_.iterated();
    keys.erase(keys.begin(), std::find_if(keys.begin(), keys.end(), [&](ChosenKey const& each) {
                 return Image::reversed(each.chosenHash, 32) > Image::reversed(key.chosenHash, 32);
               }));
    return keys;
  }

  Store12 store_;
  WriterOf<Record12>::Value value_;
  Vault::IterHint hint_;
};

TEST_F(Iterator, WhoseSlotWasFreedGoesOnBehindItsKey) {
  fill(store_, 0, 20);
  walkTo(5);
  store_.remove({5, 5});
  Keys const expected = behind({5, 5});
  EXPECT_EQ(rest(), expected);
  EXPECT_FALSE(expected.empty());
}

TEST_F(Iterator, WhoseSlotHasAnotherTenantGoesOnBehindItsKey) {
  fill(store_, 0, 20);
  walkTo(5);
  store_.remove({5, 5});
  store_.write({77, 15});
  Keys const expected = behind({5, 5});
  EXPECT_EQ(rest(), expected);
}

TEST_F(Iterator, WhoseSlotWasMovedGoesOnBehindItsKey) {
  fill(store_, 0, 200);
  walkTo(150);
  for (std::uint32_t number = 0; number < 200; ++number)
    if (number % 8 != 6) store_.remove({number, number});
  EXPECT_EQ(store_->capacity(), 64U);
  EXPECT_GT(store_->counters().slotsMoved, 0U);
  Keys const expected = behind({150, 150});
  EXPECT_EQ(rest(), expected);
  EXPECT_FALSE(expected.empty());
}

TEST_F(Iterator, GoesOnAcrossGrowthOfBuckets) {
  fill(store_, 0, 20);
  walkTo(5);
  fill(store_, 20, 300);
  Keys const expected = behind({5, 5});
  EXPECT_EQ(rest(), expected);
}

TEST_F(Iterator, WithoutAHintGoesByTheKeyAlsoWhereThatIsGone) {
  fill(store_, 0, 20);
  Keys const expected = behind({1005, 5});
  value_ = Record12::of({1005, 5}, 0);
  EXPECT_EQ(rest(), expected);
}

TEST_F(Iterator, WhoseHintLeadsAstrayTriesTheKeyBeforeItGivesUp) {
  fill(store_, 0, 4);
  walkTo(0);
  hint_.bucket = 3;
  std::string traces = tracesOf("5", [&] { EXPECT_TRUE(store_->next({0, 0}, value_, hint_)); });
  EXPECT_THAT(traces, HasSubstr("saw exception in fast path: "));
  EXPECT_THAT(traces, HasSubstr(". This might be okay, dropping to slow path to find out"));
  EXPECT_EQ(value_.key(), (ChosenKey{2, 2}));
}

}  // namespace
