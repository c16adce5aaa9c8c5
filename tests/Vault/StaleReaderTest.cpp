// Readers whose picture of a table is older than the table: they look at slots and buckets that were cut off,
// and follow hints of another size. A cut page reads as zeroes, and never as a signal.
#include <gtest/gtest.h>

#include <set>
#include <utility>

#include "Vault/Util.h"
#include "Vault/VaultReader.h"
#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;

// Goes to the bucket of its number, whatever the seed.
ChosenKey keyOf(std::uint32_t number) { return {number, number}; }

using Record = TestRecord<ChosenKey, 32>;
using Reader = Vault::VaultReader<OpsFor<Record>>;
using Value = Reader::Value;

// Of a table with 2048 slots and buckets and more than one page of each.
constexpr std::uint32_t kMany = 1500;
constexpr std::uint32_t kFew = 20;

class StaleReader : public testing::Test {
 protected:
  StaleReader() { writeUpTo(kMany); }

  void writeUpTo(std::uint32_t count, std::uint32_t content = 0) {
    for (std::uint32_t number = 0; number < count; ++number) store_.write(keyOf(number), content + number);
  }
  // Down to the first `left` keys: the table gets small, and behind it the files have holes.
  void removeDownTo(std::uint32_t left) {
    for (std::uint32_t number = kMany; number-- > left;) store_.remove(keyOf(number));
  }

  std::unique_ptr<Reader> attached() {
    auto reader = std::make_unique<Reader>(storeHandler(), store_.root());
    EXPECT_TRUE(reader->initialize("test"));
    return reader;
  }
  // One that has mapped all of the table that there is.
  std::unique_ptr<Reader> settled() {
    auto reader = attached();
    EXPECT_TRUE(holds(*reader, 0));
    return reader;
  }

  static bool holds(Reader& reader, std::uint32_t number, std::uint32_t content = 0) {
    bool found = false;
    Value out;
    Value const* const value = reader.lookup(keyOf(number), found, &out);
    EXPECT_EQ(std::memcmp(value, &out, sizeof out), 0);
    if (found) {
      EXPECT_EQ(out.payload, Record::of(keyOf(number), content + number).payload);
    }
    return found;
  }
  static std::vector<std::uint32_t> restOf(Reader& reader, Value value, Vault::IterHint hint) {
    std::vector<std::uint32_t> numbers;
    while (reader.next(value.key(), value, hint)) numbers.push_back(value.key().number);
    return numbers;
  }
  // The numbers behind one, as the table orders them.
  static std::vector<std::uint32_t> orderedBehind(std::uint32_t number, std::uint32_t count) {
    std::vector<std::uint32_t> numbers;
    for (std::uint32_t at = 0; at < count; ++at)
      if (Image::reversed(at, 32) > Image::reversed(number, 32)) numbers.push_back(at);
    std::sort(numbers.begin(), numbers.end(), [](std::uint32_t left, std::uint32_t right) {
      return Image::reversed(left, 32) < Image::reversed(right, 32);
    });
    return numbers;
  }
  // Goes on in an iteration until it has come to the key.
  static void walkTo(Reader& reader, std::uint32_t number, Value& value, Vault::IterHint& hint) {
    ASSERT_TRUE(reader.first(value, hint));
    while (value.key().number != number) ASSERT_TRUE(reader.next(value.key(), value, hint));
  }

  Store<Record> store_{sharedDescriptor(4 * kMany)};
};

TEST_F(StaleReader, FindsWhatIsLeftAfterSlotsAndBucketsWereCutOff) {
  for (std::uint32_t number = 0; number < kMany; number += 37) {
    auto const reader = settled();
    removeDownTo(kFew);
    EXPECT_EQ(holds(*reader, number), number < kFew) << number;
    EXPECT_EQ(reader->capacity(), store_->capacity());
    EXPECT_EQ(reader->buckets(), store_->buckets());
    for (std::uint32_t other = 0; other < kMany; ++other) ASSERT_EQ(holds(*reader, other), other < kFew);
    writeUpTo(kMany);
  }
}

TEST_F(StaleReader, ReadsEverySlotThatWasCutOffAsEmpty) {
  std::uint32_t const before = store_->capacity();
  std::vector<std::unique_ptr<Reader>> readers;
  for (std::uint32_t slot = 0; slot < before; slot += 97) readers.push_back(settled());
  removeDownTo(kFew);
  std::uint32_t const left = store_->capacity();
  ASSERT_LT(left, before / 8);
  std::uint32_t slot = 0;
  for (auto const& reader : readers) {
    Value value = Record::of(keyOf(1), 1);
    bool const occupied = reader->getValue(slot, value, nullptr);
    EXPECT_EQ(reader->capacity(), left);
    if (slot >= left) {
      EXPECT_FALSE(occupied) << slot;
      EXPECT_EQ(std::memcmp(&value, &OpsFor<Record>::ValueOps::type_default_, sizeof value), 0);
    }
    slot += 97;
  }
}

TEST_F(StaleReader, AnswersOfATableThatWasEmptied) {
  auto const reader = settled();
  removeDownTo(0);
  Value value;
  Vault::IterHint hint;
  EXPECT_FALSE(reader->first(value, hint));
  EXPECT_FALSE(holds(*reader, kMany - 1));
  EXPECT_EQ(reader->members(), 0U);
}

TEST_F(StaleReader, GoesOnFromASlotThatWasCutOff) {
  for (std::uint32_t const number : {0U, 1U, 7U, 512U, 1023U, 1024U, 1499U}) {
    auto const reader = attached();
    Value value;
    Vault::IterHint hint;
    walkTo(*reader, number, value, hint);
    removeDownTo(kFew);
    EXPECT_EQ(restOf(*reader, value, hint), orderedBehind(number, kFew)) << number;
    EXPECT_GT(reader->readerCounters().slowNexts, 0U);
    writeUpTo(kMany);
  }
}

// A slot that was cut off and came back must not pass for the one of the hint, though all has happened to it
// again that had happened before, and only its key is another one.
TEST_F(StaleReader, GoesByTheKeyFromASlotThatWasCutOffAndCameBackWithAnotherRecord) {
  auto const reader = attached();
  std::vector<std::pair<ChosenKey, Vault::IterHint>> visited;
  Value value;
  Vault::IterHint hint;
  for (bool more = reader->first(value, hint); more; more = reader->next(value.key(), value, hint))
    visited.emplace_back(value.key(), hint);
  ASSERT_EQ(visited.size(), kMany);
  removeDownTo(0);
  // Of the same hashes, and so each is behind the one that had its place.
  for (std::uint32_t number = 0; number < kMany; ++number) store_.write({kMany + number, number});
  for (auto& [key, hintOfKey] : visited) {
    ASSERT_TRUE(reader->next(key, value, hintOfKey));
    EXPECT_EQ(value.key(), (ChosenKey{kMany + key.number, key.chosenHash}));
  }
}

TEST_F(StaleReader, SeesTheFreshRecordsOfATableThatWasCutAndHasGrownToTheSameSize) {
  auto const reader = settled();
  std::uint32_t const slots = store_->capacity();
  std::uint32_t const buckets = store_->buckets();
  removeDownTo(0);
  writeUpTo(kMany, 100);
  ASSERT_EQ(store_->capacity(), slots);
  ASSERT_EQ(store_->buckets(), buckets);
  for (std::uint32_t number = 0; number < kMany; ++number) ASSERT_TRUE(holds(*reader, number, 100));
}

TEST_F(StaleReader, MissesNothingWhileATableShrinksUnderItStepByStep) {
  auto const reader = settled();
  for (std::uint32_t left = kMany; left-- > 0;) {
    store_.remove(keyOf(left));
    ASSERT_FALSE(holds(*reader, left));
    ASSERT_TRUE(left == 0 || holds(*reader, left / 2));
  }
  EXPECT_GT(reader->readerCounters().slotResizes, 4U);
  EXPECT_GT(reader->readerCounters().bucketResizes, 4U);
}

TEST_F(StaleReader, WalksOverATableThatShrinksUnderItAtEveryStep) {
  auto const reader = attached();
  Value value;
  Vault::IterHint hint;
  std::set<std::uint32_t> seen;
  std::uint32_t left = kMany;
  for (bool more = reader->first(value, hint); more; more = reader->next(value.key(), value, hint)) {
    EXPECT_TRUE(seen.insert(value.key().number).second);
    for (int removals = 0; removals < 3 && left > kFew; ++removals) store_.remove(keyOf(--left));
  }
  for (std::uint32_t number = 0; number < left; ++number) EXPECT_TRUE(seen.contains(number)) << number;
}

// Hints are of the size that the table had, and what comes between two steps may have followed it since.
TEST_F(StaleReader, GoesOnAfterTheBucketsHaveDoubledManyTimesAndAnotherCallHasFollowed) {
  removeDownTo(kFew);
  for (std::uint32_t number = 0; number < kFew; ++number) {
    auto const reader = attached();
    Value value;
    Vault::IterHint hint;
    walkTo(*reader, number, value, hint);
    writeUpTo(kMany);
    EXPECT_TRUE(holds(*reader, kMany - 1));
    EXPECT_EQ(restOf(*reader, value, hint), orderedBehind(number, kMany)) << number;
    removeDownTo(kFew);
  }
}

// Two records between which nothing can come, so that the link from one to the other never changes, while
// their bucket is split time and again.
TEST_F(StaleReader, GoesOnFromALinkThatIsUnchangedThoughItsBucketWasSplitManyTimes) {
  removeDownTo(kFew);
  constexpr std::uint32_t kHash = 999;
  ChosenKey const here{kMany, kHash};
  ChosenKey const behind{kMany + 1, kHash};
  store_.write(here);
  store_.write(behind);
  auto const reader = attached();
  Value value;
  Vault::IterHint hint;
  walkTo(*reader, here.number, value, hint);
  ASSERT_NE(hint.bucket, kHash);
  writeUpTo(kHash);
  EXPECT_TRUE(holds(*reader, kHash - 1));
  ASSERT_EQ(store_->buckets(), 1024U);
  ASSERT_TRUE(reader->next(here, value, hint));
  EXPECT_EQ(value.key(), behind);
}

// The same for a record that stays the last of its chain, and for the last of all.
TEST_F(StaleReader, GoesOnFromAnUnchangedEndOfAChainThoughItsBucketWasSplitManyTimes) {
  for (std::uint32_t const hash : {0xffffffe7U, 0xffffffffU}) {
    removeDownTo(kFew);
    ChosenKey const here{kMany, hash};
    store_.write(here);
    auto const reader = attached();
    Value value;
    Vault::IterHint hint;
    walkTo(*reader, here.number, value, hint);
    writeUpTo(kMany - 1);
    EXPECT_TRUE(holds(*reader, 1));
    EXPECT_EQ(restOf(*reader, value, hint), orderedBehind(hash, kMany - 1));
    store_.remove(here);
  }
}

TEST_F(StaleReader, GoesOnAfterTheBucketsWereHalvedManyTimesAndAnotherCallHasFollowed) {
  for (std::uint32_t number = 0; number < kFew; ++number) {
    auto const reader = attached();
    Value value;
    Vault::IterHint hint;
    walkTo(*reader, number, value, hint);
    removeDownTo(kFew);
    EXPECT_TRUE(holds(*reader, kFew - 1));
    EXPECT_EQ(restOf(*reader, value, hint), orderedBehind(number, kFew)) << number;
    writeUpTo(kMany);
  }
}

TEST_F(StaleReader, LeavesNoCorruptionMarkerBehind) {
  auto const reader = settled();
  removeDownTo(kFew);
  EXPECT_FALSE(holds(*reader, kMany - 1));
  EXPECT_FALSE(store_.folder().has(Vault::Util::kCorruptionFile));
}

}  // namespace
