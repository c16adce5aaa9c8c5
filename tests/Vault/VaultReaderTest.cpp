// A reader beside a writer of the same process: what it sees of every kind of change between two of its
// calls, and of files that are not as they should be.
#include "Vault/VaultReader.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <set>

#include "tests/support/Message.h"
#include "tests/support/TestStore.h"

namespace {

using Dovel::CorruptionDetectedException;
using TestSupport::messageOf;
using TestSupport::poke32;

using Key = TestSupport::ChosenKey;
using Record = TestSupport::TestRecord<Key, 32>;
using Ops = TestSupport::OpsFor<Record>;
using Reader = Vault::VaultReader<Ops>;
using Value = Reader::Value;

// Keys that follow each other in the order of the store, and all fall into different buckets soon.
Key keyOf(std::uint32_t number) { return {number, VaultCore::reverseBits(number << 20)}; }
// All in one chain, in the order of their numbers.
Key chained(std::uint32_t number) { return {number, 0}; }

class VaultReader : public testing::Test {
 protected:
  VaultReader() { store_.descriptor().shrink = true; }

  Reader& attached() {
    reader_.emplace(TestSupport::storeHandler(), store_.root());
    EXPECT_TRUE(reader_->initialize("test"));
    return *reader_;
  }
  static std::optional<Value> lookup(Reader const& reader, Key const& key) {
    bool found = false;
    Value const* const value = reader.lookup(key, found, nullptr);
    return found ? std::optional<Value>(*value) : std::nullopt;
  }
  static bool has(Reader const& reader, Key const& key, std::uint32_t content) {
    auto const value = lookup(reader, key);
    return value && value->theKey == key && value->payload == Record::of(key, content).payload;
  }
  static std::vector<std::uint32_t> numbersOf(Reader const& reader) {
    std::vector<std::uint32_t> numbers;
    Value value;
    Vault::IterHint hint;
    for (bool found = reader.first(value, hint); found; found = reader.next(value.fwkKey(), value, hint))
      numbers.push_back(value.theKey.number);
    return numbers;
  }
  // The slot of a key in a table that has one bucket.
  std::uint32_t slotOf(std::uint32_t at) const { return store_.image().chain(0).at(at); }
  std::size_t linkAt(std::uint32_t slot) const { return store_.image().offsetOf(slot); }

  TestSupport::Store<Record> store_;
  std::optional<Reader> reader_;
};

TEST_F(VaultReader, FindsWhatTheWriterHasWrittenAndNothingElse) {
  for (std::uint32_t number = 0; number < 500; ++number) store_.write(keyOf(number), number);
  Reader& reader = attached();
  for (std::uint32_t number = 0; number < 500; ++number)
    EXPECT_TRUE(has(reader, keyOf(number), number)) << number;
  EXPECT_FALSE(lookup(reader, keyOf(500)));
  EXPECT_EQ(reader.readerCounters().lookups, 501u);
}

TEST_F(VaultReader, CopiesToTheCallersBufferTheRecordOrTheDefaultOne) {
  store_.write(keyOf(1), 7);
  Reader& reader = attached();
  Record out = Record::of(keyOf(9), 9);
  bool found = false;
  EXPECT_EQ(static_cast<void const*>(reader.lookup(keyOf(1), found, &out)), &out);
  EXPECT_EQ(out.payload, Record::of(keyOf(1), 7).payload);
  Value const* const none = reader.lookup(keyOf(2), found, &out);
  EXPECT_FALSE(found);
  EXPECT_EQ(none, &Ops::ValueOps::type_default_);
  EXPECT_EQ(out.payload, Record{}.payload);
}

TEST_F(VaultReader, FollowsEveryChangeOfTheWriter) {
  store_.write(keyOf(1), 7);
  Reader& reader = attached();
  store_.write(keyOf(1), 8);
  EXPECT_TRUE(has(reader, keyOf(1), 8));
  store_->directWrite(Record::of(keyOf(1), 9));
  EXPECT_TRUE(has(reader, keyOf(1), 8));
  store_->directCommit();
  EXPECT_TRUE(has(reader, keyOf(1), 9));
  store_.remove(keyOf(1));
  EXPECT_FALSE(lookup(reader, keyOf(1)));
}

TEST_F(VaultReader, AnEmptyTableHasNoFirstRecordAndFindsTheDefaultOne) {
  Reader& reader = attached();
  Value value;
  Vault::IterHint hint;
  std::string const traces = TestSupport::tracesOf("9", [&] { EXPECT_FALSE(reader.first(value, hint)); });
  EXPECT_NE(traces.find("none found!"), std::string::npos) << traces;
  bool found = true;
  EXPECT_EQ(reader.lookup(keyOf(3), found, nullptr), &Ops::ValueOps::type_default_);
  EXPECT_FALSE(found);
}

TEST_F(VaultReader, WithoutBucketsNothingIsFoundAndTheTraceSaysWhy) {
  Reader const detached(TestSupport::storeHandler(), store_.root());
  std::string const traces = TestSupport::tracesOf("5", [&] { EXPECT_FALSE(lookup(detached, keyOf(1))); });
  EXPECT_NE(traces.find("bucket table detached"), std::string::npos) << traces;
}

TEST_F(VaultReader, ASlotThatIsBeingRewrittenIsReadFromTheLookasideSlot) {
  store_.write(chained(1), 7);
  Reader& reader = attached();
  ASSERT_TRUE(has(reader, chained(1), 7));
  // As the writer leaves it between opening the value and closing it, the value half rewritten.
  std::uint32_t const slot = slotOf(0);
  std::string const file = store_.file("slots");
  Record const former = Record::of(chained(1), 7);
  Record const torn = Record::of(chained(1), 99);
  std::uint32_t const hash = store_.image().hash(slot);
  TestSupport::poke(file, 616, &former, sizeof former);
  poke32(file, 616 + sizeof former, hash);
  poke32(file, linkAt(slot), store_.image().link(slot).sequence + 2);
  TestSupport::poke(file, linkAt(slot) + 8, &torn, sizeof torn / 2);
  EXPECT_TRUE(has(reader, chained(1), 7));
  EXPECT_EQ(reader.readerCounters().lookasideReads, 1u);
}

TEST_F(VaultReader, FollowsGrowthAndKeepsItsLastPosition) {
  store_.write(keyOf(0), 1);
  Reader& reader = attached();
  ASSERT_TRUE(has(reader, keyOf(0), 1));
  auto const before = reader.getCacheVersionAnchor();
  std::uint32_t const slotsBefore = reader.capacity();
  for (std::uint32_t number = 1; number < 800; ++number) store_.write(keyOf(number), number);
  EXPECT_TRUE(reader.doResize());
  EXPECT_FALSE(reader.doResize());
  EXPECT_GT(reader.capacity(), slotsBefore);
  EXPECT_EQ(reader.capacity(), store_->capacity());
  EXPECT_EQ(reader.buckets(), store_->buckets());
  auto const after = reader.getCacheVersionAnchor();
  EXPECT_EQ(after.version, before.version);
  EXPECT_EQ(after.offset, before.offset);
  EXPECT_TRUE(has(reader, keyOf(799), 799));
}

TEST_F(VaultReader, FollowsGrowthAndShrinkingOfTheSlotsAlone) {
  store_.descriptor().maxSize = 100;
  store_.descriptor().shrinkBuckets = false;
  store_.reopen();
  for (std::uint32_t number = 0; number < 100; ++number) store_.write(keyOf(number), number);
  Reader& reader = attached();
  ASSERT_TRUE(has(reader, keyOf(0), 0));
  std::uint32_t const buckets = store_->buckets();
  ASSERT_EQ(store_->capacity(), 100u);
  store_.write(keyOf(100), 100);
  ASSERT_EQ(store_->capacity(), 110u);
  ASSERT_EQ(store_->buckets(), buckets);
  Value value;
  EXPECT_TRUE(reader.getValue(100, value, nullptr));
  EXPECT_EQ(value.theKey, keyOf(100));
  EXPECT_EQ(reader.capacity(), store_->capacity());
  std::uint32_t number = 101;
  while (store_->capacity() > 100) store_.remove(keyOf(--number));
  ASSERT_EQ(store_->buckets(), buckets);
  EXPECT_TRUE(has(reader, keyOf(0), 0));
  EXPECT_EQ(reader.capacity(), store_->capacity());
}

TEST_F(VaultReader, NoticesACountThatHasChangedAndChangedBack) {
  auto const thereAndBack = [this] {
    for (std::uint32_t number = 0; number < 200; ++number) store_.write(keyOf(number), number);
    for (std::uint32_t number = 1; number < 200; ++number) store_.remove(keyOf(number));
  };
  thereAndBack();
  Reader& reader = attached();
  ASSERT_TRUE(has(reader, keyOf(0), 0));
  std::uint32_t const slots = store_->capacity();
  std::uint32_t const buckets = store_->buckets();
  thereAndBack();
  ASSERT_EQ(store_->capacity(), slots);
  ASSERT_EQ(store_->buckets(), buckets);
  EXPECT_TRUE(reader.doResize());
  EXPECT_EQ(reader.readerCounters().slotResizes, 2u);
  EXPECT_EQ(reader.readerCounters().bucketResizes, 2u);
}

TEST_F(VaultReader, APositionThatAShrinkCutOffIsNoneAnyMore) {
  for (std::uint32_t number = 0; number < 800; ++number) store_.write(keyOf(number), number);
  Reader& reader = attached();
  ASSERT_TRUE(has(reader, keyOf(799), 799));
  for (std::uint32_t number = 0; number < 800; ++number) store_.remove(keyOf(number));
  EXPECT_TRUE(reader.doResize());
  EXPECT_EQ(reader.getCacheVersionAnchor().offset, Mem::VersionAnchor::kInvalidOffset);
  EXPECT_THROW(reader.validateVersionAnchor(), CorruptionDetectedException);
  EXPECT_EQ(numbersOf(reader), std::vector<std::uint32_t>());
}

TEST_F(VaultReader, TheAnchorTellsThatItsValueHasChanged) {
  store_.write(keyOf(1), 7);
  Reader& reader = attached();
  ASSERT_TRUE(has(reader, keyOf(1), 7));
  EXPECT_NO_THROW(reader.validateVersionAnchor());
  store_.write(keyOf(1), 8);
  EXPECT_THROW(reader.validateVersionAnchor(), CorruptionDetectedException);
  EXPECT_FALSE(lookup(reader, keyOf(2)));
  EXPECT_EQ(reader.getCacheVersionAnchor().offset, Mem::VersionAnchor::kDefaultOffset);
}

TEST_F(VaultReader, AnIterationSeesEachRecordOnceInTheOrderOfTheStore) {
  std::vector<std::uint32_t> expected;
  for (std::uint32_t number = 0; number < 500; ++number) {
    store_.write(keyOf(499 - number), number);
    expected.push_back(number);
  }
  auto& reader = attached();
  EXPECT_EQ(numbersOf(reader), expected);
  EXPECT_EQ(reader.readerCounters().slowNexts, 0u);
}

TEST_F(VaultReader, AnIterationGoesOnBehindAKeyThatWasRemoved) {
  for (std::uint32_t number = 0; number < 20; ++number) store_.write(keyOf(number), number);
  Reader& reader = attached();
  Value value;
  Vault::IterHint hint;
  ASSERT_TRUE(reader.first(value, hint));
  for (int step = 0; step < 5; ++step) ASSERT_TRUE(reader.next(value.fwkKey(), value, hint));
  ASSERT_EQ(value.theKey.number, 5u);
  store_.remove(keyOf(5));
  std::uint64_t const slowBefore = reader.readerCounters().slowNexts;
  ASSERT_TRUE(reader.next(keyOf(5), value, hint));
  EXPECT_EQ(value.theKey.number, 6u);
  EXPECT_EQ(reader.readerCounters().slowNexts, slowBefore + 1);
}

TEST_F(VaultReader, AnIterationLastsThroughADoublingOfTheBuckets) {
  for (std::uint32_t number = 0; number < 4000; number += 8) store_.write(keyOf(number), number);
  Reader& reader = attached();
  std::set<std::uint32_t> seen;
  std::uint32_t last = 0;
  Value value;
  Vault::IterHint hint;
  std::uint32_t added = 0;
  std::uint32_t const bucketsBefore = store_->buckets();
  for (bool found = reader.first(value, hint); found; found = reader.next(value.fwkKey(), value, hint)) {
    EXPECT_TRUE(seen.insert(value.theKey.number).second);
    EXPECT_GE(value.theKey.number, last);
    last = value.theKey.number;
    for (int more = 0; more < 4; ++more, ++added) store_.write(keyOf(added * 8 % 4000 + 1 + added / 500), 0);
  }
  EXPECT_GT(store_->buckets(), bucketsBefore);
  for (std::uint32_t number = 0; number < 4000; number += 8) EXPECT_EQ(seen.count(number), 1u) << number;
}

TEST_F(VaultReader, AnIterationLastsThroughHalvingsOfTheBuckets) {
  for (std::uint32_t number = 0; number < 2000; ++number) store_.write(keyOf(number), number);
  Reader& reader = attached();
  std::set<std::uint32_t> seen;
  Value value;
  Vault::IterHint hint;
  std::uint32_t const bucketsBefore = store_->buckets();
  std::uint32_t removed = 0;
  for (bool found = reader.first(value, hint); found; found = reader.next(value.fwkKey(), value, hint)) {
    EXPECT_TRUE(seen.insert(value.theKey.number).second) << value.theKey.number;
    for (int more = 0; more < 20 && removed < 2000; ++more, ++removed)
      if (removed % 20 != 0) store_.remove(keyOf(removed));
  }
  EXPECT_LT(store_->buckets(), bucketsBefore);
  for (std::uint32_t number = 0; number < 2000; number += 20) EXPECT_EQ(seen.count(number), 1u) << number;
}

TEST_F(VaultReader, AnIterationGoesOnThoughItsSlotsWereMovedAndCutOff) {
  for (std::uint32_t number = 0; number < 800; ++number) store_.write(keyOf(number), number);
  Reader& reader = attached();
  Value value;
  Vault::IterHint hint;
  ASSERT_TRUE(reader.first(value, hint));
  while (value.theKey.number != 700) ASSERT_TRUE(reader.next(value.fwkKey(), value, hint));
  for (std::uint32_t number = 0; number < 690; ++number) store_.remove(keyOf(number));
  ASSERT_LT(store_->capacity(), 700u);
  ASSERT_TRUE(reader.next(keyOf(700), value, hint));
  EXPECT_EQ(value.theKey.number, 701u);
}

TEST_F(VaultReader, ALinkToAFreeSlotReachesTheCallerAtTheFirstTry) {
  store_.write(chained(1), 7);
  Reader& reader = attached();
  ASSERT_TRUE(has(reader, chained(1), 7));
  std::uint32_t const slot = slotOf(0);
  poke32(store_.file("slots"), linkAt(slot), store_.image().link(slot).sequence & ~1u);
  std::uint64_t const before = reader.readerCounters().suspicions;
  std::string const message = messageOf<CorruptionDetectedException>([&] { lookup(reader, chained(1)); });
  EXPECT_NE(message.find("not occupied"), std::string::npos) << message;
  EXPECT_EQ(reader.readerCounters().suspicions, before + 1);
  Value value;
  Vault::IterHint hint;
  EXPECT_THROW(reader.first(value, hint), CorruptionDetectedException);
  EXPECT_THROW(reader.next(chained(0), value, hint), CorruptionDetectedException);
}

TEST_F(VaultReader, ACycleInAChainEndsTheWalk) {
  for (std::uint32_t number = 1; number <= 3; ++number) store_.write({number, 0}, number);
  Reader& reader = attached();
  ASSERT_TRUE(lookup(reader, chained(1)));
  // The slot of the first record leads to itself.
  std::uint32_t const slot = slotOf(0);
  poke32(store_.file("slots"), linkAt(slot) + 4, slot);
  // Of the same hash, and of another one behind it.
  for (Key const& key : {Key{9, 0}, Key{9, 64}}) {
    std::string const message = messageOf<CorruptionDetectedException>([&] { lookup(reader, key); });
    EXPECT_NE(message.find("hash chain of " + std::to_string(store_->capacity() + 1) + " slots"),
              std::string::npos)
        << message;
  }
}

TEST_F(VaultReader, ALinkToNoSlotAndNoBucketIsDamage) {
  store_.write(chained(1), 7);
  Reader& reader = attached();
  ASSERT_TRUE(has(reader, chained(1), 7));
  std::uint32_t const slot = slotOf(0);
  for (auto const& [next, text] : std::map<std::uint32_t, std::string>{
           {0x80000000u | 1000, "bucket 1000 out of range"}, {1000, "out-of-range index:1000"}}) {
    poke32(store_.file("slots"), linkAt(slot) + 4, next);
    std::string const message = messageOf<CorruptionDetectedException>([&] { lookup(reader, {9, 64}); });
    EXPECT_NE(message.find(text), std::string::npos) << message;
  }
}

TEST_F(VaultReader, FindsRecordsOfALongChain) {
  for (std::uint32_t number = 0; number < 40; ++number) store_.write({number, number << 10}, number);
  Reader& reader = attached();
  for (std::uint32_t number = 0; number < 40; ++number) {
    EXPECT_TRUE(has(reader, {number, number << 10}, number)) << number;
    EXPECT_FALSE(lookup(reader, {number, (number + 40) << 10})) << number;
  }
  EXPECT_EQ(reader.readerCounters().suspicions, 0u);
}

TEST_F(VaultReader, ACycleOfBucketsEndsTheIteration) {
  for (std::uint32_t number = 0; number < 8; ++number) store_.write({number, number}, number);
  Reader& reader = attached();
  ASSERT_EQ(reader.buckets(), 0u);
  ASSERT_TRUE(lookup(reader, {0, 0}));
  ASSERT_GE(reader.buckets(), 8u);
  // The empty chain of the last bucket names one that doesn't follow.
  std::uint32_t const last = reader.buckets() - 1;
  poke32(store_.file("buckets"), 24 + 8 * std::size_t{last} + 4, 0x80000000u | 0);
  EXPECT_THROW(numbersOf(reader), CorruptionDetectedException);
}

TEST_F(VaultReader, AKeyInAWrongChainIsDamage) {
  store_.write(chained(1), 7);
  Reader& reader = attached();
  for (std::uint32_t number = 0; number < 8; ++number) store_.write({number + 10, number}, number);
  ASSERT_TRUE(lookup(reader, chained(1)));
  // Its hash is part of the key here: another one, of another bucket, without the record having moved.
  std::uint32_t const slot = slotOf(0);
  poke32(store_.file("slots"), linkAt(slot) + 12, 5);
  std::string const message = messageOf<CorruptionDetectedException>([&] { lookup(reader, {99, 0}); });
  EXPECT_NE(message.find("don't belong to bucket 0"), std::string::npos) << message;
}

TEST_F(VaultReader, CountsThatCantBeAreDamage) {
  store_.write(keyOf(1), 7);
  Reader& reader = attached();
  ASSERT_TRUE(has(reader, keyOf(1), 7));
  std::string const slots = store_.file("slots");
  std::uint32_t const numSlots = store_.image().numSlots();
  poke32(slots, 584, 77);
  poke32(slots, 588, 1000000);
  std::string message = messageOf<CorruptionDetectedException>([&] { reader.doResize(); });
  EXPECT_NE(message.find("requesting to map slots 1000000 slots. Requested file resize to 48000656 but real "
                         "file size is"),
            std::string::npos)
      << message;
  poke32(slots, 588, numSlots);
  EXPECT_TRUE(reader.doResize());
  std::string const buckets = store_.file("buckets");
  poke32(buckets, 16, 77);
  poke32(buckets, 20, 3);
  message = messageOf<CorruptionDetectedException>([&] { reader.doResize(); });
  EXPECT_NE(message.find("bad numBuckets: 3"), std::string::npos) << message;
}

TEST_F(VaultReader, ASlotIsReadByItsNumber) {
  store_.write(chained(1), 7);
  Reader& reader = attached();
  Value value;
  Record out;
  EXPECT_TRUE(reader.getValue(slotOf(0), value, &out));
  EXPECT_EQ(value.payload, Record::of(chained(1), 7).payload);
  EXPECT_EQ(out.payload, value.payload);
  EXPECT_NE(reader.getCacheVersionAnchor().offset, Mem::VersionAnchor::kDefaultOffset);
}

TEST_F(VaultReader, ASlotThatIsFreeOrPastTheCapacityIsEmptyAndTheDefault) {
  store_.write(chained(1), 7);
  Reader& reader = attached();
  for (std::uint32_t const slot : {slotOf(0) + 1, store_->capacity(), store_->capacity() + 1, 0xffffffffu}) {
    Value value = Record::of(chained(9), 9);
    Record out = value;
    EXPECT_FALSE(reader.getValue(slot, value, &out)) << slot;
    EXPECT_EQ(value.payload, Record{}.payload);
    EXPECT_EQ(out.payload, Record{}.payload);
    EXPECT_EQ(reader.getCacheVersionAnchor().offset, Mem::VersionAnchor::kDefaultOffset);
  }
}

TEST_F(VaultReader, TellsWhatItsTableIs) {
  for (std::uint32_t number = 0; number < 10; ++number) store_.write(keyOf(number), number);
  store_->scratchpadIs(0x1234567890);
  Reader& reader = attached();
  EXPECT_EQ(reader.type(), Vault::VaultType::reader);
  EXPECT_EQ(reader.capacity(), store_->capacity());
  EXPECT_EQ(reader.members(), 10u);
  EXPECT_EQ(reader.maxSize(), 1000u);
  EXPECT_EQ(reader.minSize(), 0u);
  EXPECT_EQ(reader.emberId(), store_->emberId());
  EXPECT_EQ(reader.scratchpad(), 0x1234567890u);
  EXPECT_TRUE(reader.quiesced());
  EXPECT_EQ(reader.mountStatus(), 1);
  EXPECT_TRUE(reader.validate());
  EXPECT_TRUE(reader.validateFiles());
}

TEST_F(VaultReader, WritesNothing) {
  store_.write(keyOf(1), 7);
  Reader& reader = attached();
  Value removed;
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { reader.write(Record::of(keyOf(1), 8), true); }),
            "write to read-only Vault table");
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { reader.directWrite(Record::of(keyOf(1), 8)); }),
            "write to read-only Vault table");
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { reader.directCommit(); }),
            "write to read-only Vault table");
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { reader.remove(keyOf(1), removed); }),
            "remove to read-only Vault table");
  EXPECT_THROW(reader.cleanup(), Dovel::NoPermissionException);
  EXPECT_TRUE(has(reader, keyOf(1), 7));
}

TEST_F(VaultReader, ASecondDetachIsToldAndDoesNothing) {
  Reader& reader = attached();
  std::string traces = TestSupport::tracesOf("0-5", [&] { reader.detach(false); });
  EXPECT_NE(traces.find("delegating to SlotTable::detach()"), std::string::npos) << traces;
  traces = TestSupport::tracesOf("0-5", [&] { reader.detach(false); });
  EXPECT_NE(traces.find("already detached"), std::string::npos) << traces;
  EXPECT_EQ(traces.find("delegating"), std::string::npos) << traces;
}

TEST_F(VaultReader, IsInitializedAgainAfterADetach) {
  store_.write(keyOf(1), 7);
  Reader& reader = attached();
  reader.detach(false);
  EXPECT_FALSE(lookup(reader, keyOf(1)));
  EXPECT_TRUE(reader.initialize("again"));
  EXPECT_TRUE(has(reader, keyOf(1), 7));
}

TEST_F(VaultReader, WithoutAGenerationFileOrWithNoGenerationInItThereIsNoTableAndNoDamage) {
  std::string const ember = store_.file("ember");
  for (bool const absent : {false, true}) {
    if (absent) {
      std::filesystem::remove(ember);
    } else {
      poke32(ember, 0, 0);
    }
    Reader reader(TestSupport::storeHandler(), store_.root());
    std::string const traces = TestSupport::tracesOf("0", [&] { EXPECT_FALSE(reader.initialize("test")); });
    EXPECT_NE(traces.find("failed to read ember file"), std::string::npos) << traces;
    EXPECT_FALSE(store_.folder().has("corruption-detected"));
  }
}

TEST_F(VaultReader, AnotherGenerationIsDamageAndLeavesTheMarker) {
  poke32(store_.file("ember"), 0, 4711);
  Reader reader(TestSupport::storeHandler(), store_.root());
  std::string const traces = TestSupport::tracesOf("0", [&] { EXPECT_FALSE(reader.initialize("test")); });
  EXPECT_NE(traces.find("failed to validate buckets"), std::string::npos) << traces;
  EXPECT_TRUE(store_.folder().has("corruption-detected"));
  EXPECT_EQ(reader.capacity(), 0u);
}

TEST_F(VaultReader, SlotsOfAnotherKindAreDamageAndLeaveTheMarker) {
  poke32(store_.file("slots"), 8, 36);
  Reader reader(TestSupport::storeHandler(), store_.root());
  std::string const traces = TestSupport::tracesOf("0", [&] { EXPECT_FALSE(reader.initialize("test")); });
  EXPECT_NE(traces.find("failed to validate slots"), std::string::npos) << traces;
  EXPECT_TRUE(store_.folder().has("corruption-detected"));
}

TEST_F(VaultReader, AMissingFileIsToldAndLeavesNoMarker) {
  store_.close();
  for (char const* const name : {"slots", "buckets"}) {
    std::filesystem::rename(store_.file(name), store_.file("away"));
    Reader reader(TestSupport::storeHandler(), store_.root());
    std::string const traces = TestSupport::tracesOf("0", [&] { EXPECT_FALSE(reader.initialize("test")); });
    EXPECT_NE(traces.find(std::string("failed to attach to ") + name), std::string::npos) << traces;
    EXPECT_FALSE(store_.folder().has("corruption-detected"));
    std::filesystem::rename(store_.file("away"), store_.file(name));
  }
}

TEST_F(VaultReader, ABusyWriterIsNoDamage) {
  store_.write(keyOf(1), 7);
  store_->directWrite(Record::of(keyOf(1), 8));
  auto& reader = attached();
  EXPECT_TRUE(has(reader, keyOf(1), 7));
  store_->directCommit();
  EXPECT_TRUE(has(reader, keyOf(1), 8));
}

TEST_F(VaultReader, AWriterThatComesBackIsTheSameTable) {
  store_.write(keyOf(1), 7);
  Reader& reader = attached();
  store_.reopen();
  store_.write(keyOf(1), 8);
  EXPECT_TRUE(has(reader, keyOf(1), 8));
  EXPECT_TRUE(reader.connected());
}

TEST_F(VaultReader, AReplacedTableAnswersLikeAnEmptyOneAndIsToldOnce) {
  store_.write(keyOf(1), 7);
  unsigned told = 0;
  Reader reader(TestSupport::storeHandler(), store_.root(), [&] { ++told; });
  ASSERT_TRUE(reader.initialize("test"));
  ASSERT_TRUE(has(reader, keyOf(1), 7));
  store_.close();
  // What the next writer takes for a crash in the middle of an operation.
  std::uint16_t const flags = 1;
  TestSupport::poke(store_.file("slots"), 558, &flags, sizeof flags);
  store_.open();
  store_.write(keyOf(2), 8);
  EXPECT_FALSE(lookup(reader, keyOf(1)));
  EXPECT_FALSE(lookup(reader, keyOf(2)));
  Value value;
  Vault::IterHint hint;
  EXPECT_FALSE(reader.first(value, hint));
  EXPECT_FALSE(reader.next(keyOf(0), value, hint));
  EXPECT_FALSE(reader.getValue(0, value, nullptr));
  EXPECT_EQ(reader.mountStatus(), 0);
  EXPECT_EQ(told, 1u);
  reader.detach(false);
  ASSERT_TRUE(reader.initialize("again"));
  EXPECT_TRUE(has(reader, keyOf(2), 8));
}

TEST_F(VaultReader, ARemovedTableAnswersLikeAnEmptyOne) {
  store_.write(keyOf(1), 7);
  Reader& reader = attached();
  store_->cleanup();
  EXPECT_FALSE(lookup(reader, keyOf(1)));
  EXPECT_FALSE(reader.connected());
  EXPECT_FALSE(reader.validateFiles());
}

}  // namespace
