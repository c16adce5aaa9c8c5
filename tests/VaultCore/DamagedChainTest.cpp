// What searches and iterations find wrong with chains and heads.
#include <gmock/gmock.h>

#include "tests/support/Message.h"
#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;
using Dovel::CorruptionDetectedException;
using testing::HasSubstr;
using Record12 = TestRecord<ChosenKey, 12>;
using Store12 = Store<Record12>;

constexpr std::uint32_t kEnd = Image::kEnd;

void fill(Store12& store, std::uint32_t from, std::uint32_t to) {
  for (std::uint32_t number = from; number < to; ++number) store.write({number, number});
}

// Eight records, one in each of eight buckets.
class DamagedChain : public testing::Test {
 protected:
  void SetUp() override { fill(store_, 0, 8); }

  std::string slots() const { return store_.file("slots"); }
  std::string buckets() const { return store_.file("buckets"); }
  std::size_t linkOf(ChosenKey const& key) const { return 640 + store_.slotOf(key) * 32; }
  static std::size_t headOf(std::uint32_t bucket) { return 24 + bucket * 8; }
  std::string lookup(ChosenKey const& key) {
    return messageOf<CorruptionDetectedException>([&] {
      bool found = false;
      store_->lookup(key, found, nullptr);
    });
  }
  std::string iterate() {
    return messageOf<CorruptionDetectedException>([&] { store_.iterated(); });
  }

  Store12 store_;
};

TEST_F(DamagedChain, ThatIsACycleEnds) {
  poke32(slots(), linkOf({3, 3}) + 4, store_.slotOf({3, 3}));
  EXPECT_THAT(lookup({100, 0xfffffffb}), HasSubstr("hash chain of 65 slots"));
  poke32(slots(), 588, 1);  // the count in the file plays no part in it
  EXPECT_THAT(lookup({100, 0xfffffffb}), HasSubstr("hash chain of 65 slots"));
}

TEST_F(DamagedChain, ThatIsACycleEndsAResizeToo) {
  poke32(slots(), linkOf({3, 3}) + 4, store_.slotOf({3, 3}));
  EXPECT_THAT(messageOf<CorruptionDetectedException>([&] { store_.write({8, 8}); }), HasSubstr("a cycle"));
  EXPECT_EQ(store_.image().runtimeFlags(), 1);
}

// Where the damage stands in the chain of bucket 3, when the buckets become 16: at its first record, or
// behind one that stays in that bucket.
class ResizeOfADamagedChain : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    fill(store_, 0, 7);
    store_.write({19, 19});
  }

  ChosenKey key() const { return GetParam() ? ChosenKey{3, 3} : ChosenKey{19, 19}; }
  std::size_t slot() const { return 640 + store_.slotOf(key()) * 32; }
  // What leads to it.
  std::pair<std::string, std::size_t> link() const {
    if (GetParam()) return {store_.file("buckets"), 24 + 3 * 8 + 4};
    return {store_.file("slots"), 640 + store_.slotOf({3, 3}) * 32 + 4};
  }
  std::string resize() {
    return messageOf<CorruptionDetectedException>([&] { store_.write({8, 8}); });
  }

  Store12 store_;
};

TEST_P(ResizeOfADamagedChain, FindsAFreeSlot) {
  poke32(store_.file("slots"), slot(), store_.image().link(store_.slotOf(key())).sequence & ~1U);
  EXPECT_THAT(resize(), HasSubstr("not occupied"));
  EXPECT_EQ(store_.image().runtimeFlags(), 1);
}

TEST_P(ResizeOfADamagedChain, FindsAHashOfAnotherBucket) {
  poke32(store_.file("slots"), slot() + 20, 0x12345678);
  EXPECT_THAT(resize(), HasSubstr("another bucket"));
}

TEST_P(ResizeOfADamagedChain, FindsALinkToASlotThatDoesNotExist) {
  poke32(link().first, link().second, 5000);
  EXPECT_EQ(resize(), "out-of-range index: 5000 max:63");
}

INSTANTIATE_TEST_SUITE_P(, ResizeOfADamagedChain, testing::Bool(),
                         [](auto const& at) { return at.param ? "AtItsHead" : "BehindARecord"; });

TEST_F(DamagedChain, WithAFreeSlotOnItIsFound) {
  poke32(slots(), linkOf({3, 3}), store_.image().link(store_.slotOf({3, 3})).sequence & ~1U);
  EXPECT_THAT(lookup({3, 3}), HasSubstr("not occupied"));
  EXPECT_THAT(iterate(), HasSubstr("not occupied"));
}

TEST_F(DamagedChain, WithTheKeyOfAnotherBucketIsFound) {
  poke32(slots(), linkOf({3, 3}) + 12, 4);
  EXPECT_THAT(lookup({3, 3}), HasSubstr("another bucket"));
  EXPECT_THAT(iterate(), HasSubstr("another bucket"));
}

TEST_F(DamagedChain, ThatNamesTheWrongBucketIsFound) {
  poke32(slots(), linkOf({0, 0}) + 4, kEnd | 5);
  EXPECT_THAT(iterate(), HasSubstr("the chain of bucket 0 leads to bucket 5"));
}

TEST_F(DamagedChain, ThatEndsTheTableTooSoonIsFound) {
  poke32(slots(), linkOf({0, 0}) + 4, Image::kNil);
  EXPECT_THAT(iterate(), HasSubstr("the chain of bucket 0 ends the table, though bucket 7 is the last"));
}

TEST_F(DamagedChain, ThatNamesABucketThatDoesNotExistIsFound) {
  poke32(slots(), linkOf({0, 0}) + 4, kEnd | 4000);
  EXPECT_THAT(iterate(), HasSubstr("bucket 4000"));
}

TEST_F(DamagedChain, OfTheLastBucketThatGoesOnIsFound) {
  poke32(slots(), linkOf({7, 7}) + 4, kEnd | 0);
  EXPECT_THAT(iterate(), HasSubstr("bucket 7 leads to bucket 0"));
}

TEST_F(DamagedChain, ThatLeadsToASlotThatDoesNotExistIsFound) {
  poke32(buckets(), headOf(3) + 4, 5000);
  EXPECT_EQ(lookup({3, 3}), "out-of-range index: 5000 max:63");
  EXPECT_EQ(iterate(), "out-of-range index: 5000 max:63");
}

TEST_F(DamagedChain, OfABucketThatDoesNotExistIsRefused) {
  WriterOf<Record12>::Value value;
  Vault::IterHint hint;
  EXPECT_THAT(messageOf<CorruptionDetectedException>([&] { store_->hashMap().first(8, value, hint); }),
              HasSubstr("bucket 8 out of range"));
  Mem::Cell* prev = nullptr;
  Mem::Cell* curr = nullptr;
  EXPECT_THAT(messageOf<CorruptionDetectedException>([&] {
                store_->hashMap().find({1, 1}, 8, prev, curr, 1);
              }),
              HasSubstr("bucket 8 out of range"));
}

TEST_F(DamagedChain, StopsAWriteInsideItsCriticalSectionAndARemovalBeforeIt) {
  poke32(buckets(), headOf(3) + 4, 5000);
  EXPECT_THROW(store_.remove({3, 3}), CorruptionDetectedException);
  EXPECT_EQ(store_.image().runtimeFlags(), 0);
  EXPECT_THROW(store_.write({3, 3}), CorruptionDetectedException);
  EXPECT_EQ(store_.image().runtimeFlags(), 1);
}

struct BucketDamage {
  char const* name;
  std::size_t offset;
  std::uint32_t word;
  char const* told;
};
void PrintTo(BucketDamage const& damage, std::ostream* out) { *out << damage.name; }

class BucketFileHeader : public testing::TestWithParam<BucketDamage> {};

TEST_P(BucketFileHeader, ThatSaysSomethingElseIsRefused) {
  Store12 store;
  fill(store, 0, 8);
  store.close();
  poke32(store.file("buckets"), GetParam().offset, GetParam().word);
  std::string const traces = tracesOf("0-2", [&] { store.open(); });
  EXPECT_THAT(traces, HasSubstr("mapAttached:8"));
  EXPECT_THAT(traces, HasSubstr(GetParam().told));
  EXPECT_EQ(store->members(), 0U);
  EXPECT_EQ(store.image().expectSound(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    , BucketFileHeader,
    testing::Values(BucketDamage{"magic", 0, 7, "bad magic"}, BucketDamage{"elementSize", 4, 16, "bad magic"},
                    BucketDamage{"generation", 8, 0x12345678, "mismatching ember:"},
                    BucketDamage{"noBucket", 20, 0, "bad numBuckets: 0"},
                    BucketDamage{"notAPowerOfTwo", 20, 6, "bad numBuckets: 6"},
                    BucketDamage{"moreThanTheFileHolds", 20, 1U << 20, "bad shmem size:4096 wanted:8388632"}),
    [](auto const& damage) { return std::string(damage.param.name); });

}  // namespace
