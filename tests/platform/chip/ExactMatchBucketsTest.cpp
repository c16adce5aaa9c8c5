// Where the chip puts keys, and when it has no room for one.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "platform/chip/ExactMatchStore.h"
#include "runtime/Dovel/Exception.h"
#include "tests/platform/chip/ExactMatchSupport.h"
#include "tests/support/Message.h"
#include "tests/support/Seed.h"

namespace {

using namespace TestSupport;
using Sluice::SchanResponse;
using Sluice::SchanStatus;

struct ExactMatchBuckets : ExactMatchRig {
  void capacityIs(std::uint32_t entries, unsigned candidates = 2) { chipIs({1, {}, entries, candidates}); }

  // The buckets of a key, told anew from its hash.
  static std::array<std::uint32_t, 2> bucketsOf(Database const& database, std::uint64_t key,
                                                std::uint32_t buckets) {
    auto const& of = *Chip::ExactMatchMap::find(database.physicalTable, database.tid);
    std::uint64_t const hash =
        Chip::ExactMatchKey(of, Chip::ExactMatchEntry::of(entryOf(database, key).data())).hash();
    return {static_cast<std::uint32_t>((hash & 0xFFFFFFFF) * buckets >> 32),
            static_cast<std::uint32_t>((hash >> 32) * buckets >> 32)};
  }

  // Writes twice as many keys as there is room for and holds each answer against a model. Tells how many were
  // taken before the first refusal.
  std::size_t expectPlacedAsInModel(std::uint32_t capacity, unsigned candidates) {
    capacityIs(capacity, candidates);
    std::vector<unsigned> fill(capacity / 4);
    std::mt19937_64 random(seed());
    std::size_t firstRefusal = 0;
    for (std::size_t number = 0; number < std::size_t{capacity} * 2; ++number) {
      Database const& database = number % 2 == 0 ? kSrv6 : kIp4Udp;
      std::uint64_t const key = random() & 0x3FFFFFFF;
      if (has(database, key)) continue;
      auto const [first, second] = bucketsOf(database, key, capacity / 4);
      bool const toSecond = candidates == 2 && fill[second] < fill[first];
      unsigned& into = fill[toSecond ? second : first];
      SchanResponse const answer = write(database, key);
      if (into == 4) {
        EXPECT_EQ(answer.status, SchanStatus::bucketFull);
        EXPECT_FALSE(has(database, key));
        if (firstRefusal == 0) firstRefusal = number;
      } else {
        EXPECT_EQ(answer.status, SchanStatus::ok);
        EXPECT_TRUE(has(database, key));
        EXPECT_EQ(address(answer), (toSecond ? second : first) * 4 + into);
        EXPECT_EQ(wayIndex(answer), (toSecond ? 4 : 0) + into);
        ++into;
      }
    }
    return firstRefusal;
  }
};

TEST_F(ExactMatchBuckets, AKeyGoesToTheEmptierOfItsTwoAndIsRefusedWhereBothAreFull) {
  PRINT_SEED_ON_FAILURE();
  EXPECT_GT(expectPlacedAsInModel(1024, 2), 330U);
}

TEST_F(ExactMatchBuckets, WithOneBucketAKeyIsRefusedWhereThatIsFull) {
  PRINT_SEED_ON_FAILURE();
  EXPECT_LT(expectPlacedAsInModel(1024, 1), 530U);
}

TEST_F(ExactMatchBuckets, TheirNumberNeedBeNoPowerOfTwo) {
  PRINT_SEED_ON_FAILURE();
  expectPlacedAsInModel(4 * 77, 2);
  expectPlacedAsInModel(12, 2);
}

TEST_F(ExactMatchBuckets, FourKeysFitOne) {
  capacityIs(4);
  for (std::uint64_t key = 0; key < 4; ++key) EXPECT_EQ(write(kMpls, key).status, SchanStatus::ok);
  SchanResponse const answer = write(kMpls, 4, 9);
  EXPECT_EQ(answer.status, SchanStatus::bucketFull);
  EXPECT_EQ(imageOf(answer), entryOf(kMpls, 4, 9));
  EXPECT_EQ(chip->counters(0).refused, 1U);
  EXPECT_EQ(entries(kMpls).size(), 4U);
}

TEST_F(ExactMatchBuckets, AKeyThatIsHeldIsUpdatedInAFullOne) {
  capacityIs(4);
  for (std::uint64_t key = 0; key < 4; ++key) write(kMpls, key);
  for (std::uint64_t key = 0; key < 4; ++key) EXPECT_EQ(write(kMpls, key, 50 + key).status, SchanStatus::ok);
  for (std::uint64_t key = 0; key < 4; ++key) EXPECT_EQ(resultOf(kMpls, key), 50 + key);
}

TEST_F(ExactMatchBuckets, ADeletionMakesRoom) {
  capacityIs(4);
  for (std::uint64_t key = 0; key < 4; ++key) write(kMpls, key);
  SchanResponse const deleted = del(kMpls, 2);
  SchanResponse const written = write(kMpls, 4);
  EXPECT_EQ(written.status, SchanStatus::ok);
  EXPECT_EQ(address(written), address(deleted));
  for (std::uint64_t key : {0U, 1U, 3U, 4U}) EXPECT_TRUE(has(kMpls, key));
}

TEST_F(ExactMatchBuckets, AreSharedByTheDatabasesOfAPhysicalTableOnly) {
  capacityIs(4);
  write(kMpls, 1);
  write(kSrv6, 1);
  write(kIp4Udp, 1);
  write(kIp4Udp, 2);
  EXPECT_EQ(write(kMpls, 2).status, SchanStatus::bucketFull);
  for (Database const& other : {kSVlan, kUntagged, kVsiToVni, kPortCvid})
    EXPECT_EQ(write(other, 2).status, SchanStatus::ok);
}

TEST_F(ExactMatchBuckets, HoldAHundredThousandKeysByDefault) {
  chip = nullptr;
  Chip::SoftwareChip::Options const options;
  EXPECT_EQ(options.exactMatchEntries, 262144U);
  chipIs(options);
  for (std::uint64_t key = 0; key < 100000; ++key) ASSERT_EQ(write(kMpls, key).status, SchanStatus::ok);
  EXPECT_EQ(entries(kMpls).size(), 100000U);
}

TEST_F(ExactMatchBuckets, ThereAreAsManyAsAskedFor) {
  auto const refusal = [this](std::uint32_t entries, unsigned candidates) {
    return messageOf<Dovel::RangeException>([&] { capacityIs(entries, candidates); });
  };
  EXPECT_EQ(refusal(6, 2), "room for 6 exact-match entries, where a multiple of 4 up to 16777216 is legal");
  EXPECT_EQ(refusal(0, 2), "room for 0 exact-match entries, where a multiple of 4 up to 16777216 is legal");
  EXPECT_EQ(refusal(16777220, 2),
            "room for 16777220 exact-match entries, where a multiple of 4 up to 16777216 is legal");
  EXPECT_EQ(refusal(4, 0), "0 buckets a key, where 1 or 2 is legal");
  EXPECT_EQ(refusal(4, 3), "3 buckets a key, where 1 or 2 is legal");
}

}  // namespace
