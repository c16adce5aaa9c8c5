#include "Vault/StoreCheck.h"

#include <gmock/gmock.h>

#include <cctype>
#include <cstring>
#include <functional>
#include <random>

#include "tests/support/Seed.h"
#include "tests/support/StoreBytes.h"

namespace {

using SharedMem::EmberId;
using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::Bytes;
using TestSupport::get32;
using TestSupport::put32;
using TestSupport::StoreBytes;
using Vault::BucketsImage;
using Vault::FileImage;
using Vault::SlotsImage;
using Vault::StoredType;

constexpr std::uint32_t kValueSize = 12;
constexpr std::uint32_t kSeed = 0x10;
constexpr std::uint32_t kGeneration = 0x00010002;

// A key of 32 bits, of which the hash takes the low 16: keys with equal hashes are easily had.
std::uint32_t keyOf(std::byte const* value) {
  std::uint32_t key = 0;
  std::memcpy(&key, value, sizeof key);
  return key;
}
std::uint32_t hashOf(std::uint32_t key, std::uint32_t seed) { return (key & 0xffff) ^ seed; }

constexpr StoredType kType{
    "Test::Entry",
    kValueSize,
    [](std::byte const* value, std::uint32_t seed) { return hashOf(keyOf(value), seed); },
    [](std::byte const* a, std::byte const* b) { return keyOf(a) <=> keyOf(b); },
    [](std::byte const* value) { return Dovel::String(std::to_string(keyOf(value))); },
    [](std::byte const*, Vault::FieldSink&) {}};

StoreBytes::Record record(std::uint32_t key) {
  Bytes value(kValueSize);
  put32(value, 0, key);
  put32(value, 4, ~key);
  return {value, hashOf(key, kSeed)};
}

StoreBytes::Plan plan(std::uint32_t slots, std::uint32_t buckets) {
  return {"Test::Entry", kValueSize, slots, buckets, kGeneration, kSeed};
}

// Bucket 0: slots 1 and 0. Bucket 1: slot 2. Bucket 2: none. Bucket 3: slots 3 and 4, of equal hashes. Free:
// slots 5 to 7. The order of buckets is 0, 2, 1, 3.
StoreBytes sample() {
  return {plan(8, 4), {record(4), record(8), record(1), record(0x10003), record(0x20003)}};
}

std::vector<std::string> problemsOf(StoreBytes const& store, StoredType const* type = &kType) {
  SlotsImage const slots((FileImage(store.slots)));
  BucketsImage const buckets((FileImage(store.buckets)));
  std::vector<std::string> texts;
  for (auto const& problem : checkStore(slots, buckets, EmberId(get32(store.ember, 0)), type).problems)
    texts.emplace_back(problem.view());
  return texts;
}

TEST(StoreCheck, FindsNothingInASoundStore) {
  EXPECT_THAT(problemsOf(sample()), IsEmpty());
  EXPECT_THAT(problemsOf(sample(), nullptr), IsEmpty());
}

TEST(StoreCheck, FindsNothingInAnEmptyStore) {
  EXPECT_THAT(problemsOf({plan(64, 1), {}}), IsEmpty());
  EXPECT_THAT(problemsOf({plan(64, 16), {}}), IsEmpty());
}

TEST(StoreCheck, FindsNothingInAFullStore) {
  EXPECT_THAT(problemsOf({plan(2, 1), {record(7), record(9)}}), IsEmpty());
}

TEST(StoreCheck, FindsNothingInSoundStoresOfAnySize) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  for (unsigned run = 0; run < 200; ++run) {
    std::vector<StoreBytes::Record> records;
    auto const count = static_cast<std::uint32_t>(random() % 100);
    for (std::uint32_t key = 0; key < count; ++key) records.push_back(record(key * 7919 & 0xffff));
    auto const spare = static_cast<std::uint32_t>(1 + random() % 10);
    StoreBytes const store(plan(count + spare, 1u << random() % 9), records);
    ASSERT_THAT(problemsOf(store), IsEmpty());
  }
}

TEST(StoreCheck, TakesAFileLargerThanItsSlotsNeed) {
  StoreBytes store = sample();
  store.slots.resize(store.slots.size() + 4096);
  store.buckets.resize(store.buckets.size() + 3);
  EXPECT_THAT(problemsOf(store), IsEmpty());
}

TEST(StoreCheck, TakesMarkAndSweepFlagsAnywhere) {
  StoreBytes store = sample();
  for (std::uint32_t id = 0; id < 8; ++id)
    put32(store.slots, store.linkAt(id), get32(store.slots, store.linkAt(id)) | 0x40000000);
  put32(store.buckets, StoreBytes::headAt(0), get32(store.buckets, StoreBytes::headAt(0)) | 0x40000000);
  EXPECT_THAT(problemsOf(store), IsEmpty());
}

// One rule broken; the reason that is told.
struct Damage {
  char const* name;
  std::function<void(StoreBytes&)> make;
  char const* reason;
};

void PrintTo(Damage const& damage, std::ostream* out) { *out << damage.name; }

std::string testName(testing::TestParamInfo<Damage> const& info) {
  std::string name = info.param.name;
  for (char& c : name) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  return name;
}

Damage slotsWord(char const* name, std::size_t offset, std::uint32_t value, char const* reason) {
  return {name, [=](StoreBytes& store) { put32(store.slots, offset, value); }, reason};
}
Damage bucketsWord(char const* name, std::size_t offset, std::uint32_t value, char const* reason) {
  return {name, [=](StoreBytes& store) { put32(store.buckets, offset, value); }, reason};
}
Damage sequence(char const* name, std::uint32_t id, std::uint32_t value, char const* reason) {
  return {name, [=](StoreBytes& store) { put32(store.slots, store.slotAt(id), value); }, reason};
}
Damage link(char const* name, std::uint32_t id, std::uint32_t value, char const* reason) {
  return {name, [=](StoreBytes& store) { put32(store.slots, store.linkAt(id), value); }, reason};
}
Damage head(char const* name, std::uint32_t bucket, std::uint32_t value, char const* reason) {
  return bucketsWord(name, StoreBytes::headAt(bucket), value, reason);
}

class DamagedHeader : public testing::TestWithParam<Damage> {};
class DamagedList : public testing::TestWithParam<Damage> {};

TEST_P(DamagedHeader, IsToldAsTheReason) {
  StoreBytes store = sample();
  GetParam().make(store);
  auto const problems = problemsOf(store);
  ASSERT_FALSE(problems.empty());
  EXPECT_EQ(problems.front(), GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(
    StoreCheck, DamagedHeader,
    testing::Values(
        Damage{"empty slot file", [](StoreBytes& store) { store.slots.clear(); },
               "slots: bad header file size: 0 wanted:608"},
        Damage{"slot file shorter than the common header", [](StoreBytes& store) { store.slots.resize(607); },
               "slots: bad header file size: 607 wanted:608"},
        Damage{"slot file without a whole lookaside slot", [](StoreBytes& store) { store.slots.resize(639); },
               "slots: bad header file size: 639 wanted:640"},
        Damage{"slot file one byte short", [](StoreBytes& store) { store.slots.pop_back(); },
               "slots: bad shmem size:895 wanted:896 for 8 slots"},
        slotsWord(
            "foreign slot file", 0, 0x464c457f,
            "slots: not a slot file: magic:0x464c457f header size:608 format:1, wanted 0x6c737468 608 1"),
        slotsWord(
            "other header size", 4, 600 | 1 << 16,
            "slots: not a slot file: magic:0x6c737468 header size:600 format:1, wanted 0x6c737468 608 1"),
        slotsWord(
            "other format", 4, 608 | 2 << 16,
            "slots: not a slot file: magic:0x6c737468 header size:608 format:2, wanted 0x6c737468 608 1"),
        slotsWord("slot size of another value", 12, 40, "slots: bad sizes: value:12 slot:40"),
        slotsWord("value of no whole words", 8, 14, "slots: bad sizes: value:14 slot:32"),
        slotsWord("value of no size", 8, 0, "slots: bad sizes: value:0 slot:32"),
        slotsWord("value whose slot overflows", 8, 0xfffffff0, "slots: bad sizes: value:4294967280 slot:32"),
        slotsWord("marshalled size", 28, 16, "slots: bad marshalled size:16 wanted:12"),
        slotsWord("no capacity", 20, 0, "slots: bad capacity:0 wanted: 1 to 1073741823"),
        slotsWord("capacity past all ids", 20, 0x40000000,
                  "slots: bad capacity:1073741824 wanted: 1 to 1073741823"),
        slotsWord("no maximum size", 24, 0, "slots: bad maximum size:0"),
        slotsWord("value size of another type", 8, 16, "slots: bad marshalled size:12 wanted:16"),
        Damage{"generation of slots", [](StoreBytes& store) { put32(store.slots, 16, 0x00020002); },
               "slots: mismatching ember:0x00010002, oldEmber:0x00020002"},
        Damage{"generation of buckets", [](StoreBytes& store) { put32(store.buckets, 8, 0x00020002); },
               "buckets: mismatching ember:0x00010002, oldEmber:0x00020002"},
        Damage{"no generation", [](StoreBytes& store) { put32(store.ember, 0, 0); },
               "the generation is 0: the store was never completed, or is being replaced"},
        Damage{"another type",
               [](StoreBytes& store) {
                 put32(store.slots, 36, 0x74736554);
                 put32(store.slots, 40, 0);
               },
               "slots: holds Test, not Test::Entry"},
        Damage{"type name without end",
               [](StoreBytes& store) {
                 for (std::size_t i = 0; i < 512; ++i) store.slots[36 + i] = std::byte{'x'};
               },
               "slots: the type name has no end"},
        slotsWord("critical section", 556, 1u << 16, "bad critical section runtimeFlags:1"),
        slotsWord("critical section and more", 556, 0x8001u << 16, "bad critical section runtimeFlags:8001"),
        slotsWord("watermark of no closed slot", 580, 6,
                  "slots: bad sequence watermark:6, not a multiple of 4"),
        slotsWord("no slots", 588, 0, "slots: bad numSlots:0 wanted: 1 to 1073741823"),
        slotsWord("more slots than ids", 588, 0x40000000,
                  "slots: bad numSlots:1073741824 wanted: 1 to 1073741823"),
        slotsWord("more slots than bytes", 588, 9, "slots: bad shmem size:896 wanted:928 for 9 slots"),
        slotsWord("far more slots than bytes", 588, 0x3fffffff,
                  "slots: bad shmem size:896 wanted:34359738976 for 1073741823 slots"),
        Damage{"empty bucket file", [](StoreBytes& store) { store.buckets.clear(); },
               "buckets: bad header file size: 0 wanted:24"},
        Damage{"bucket file shorter than its header", [](StoreBytes& store) { store.buckets.resize(23); },
               "buckets: bad header file size: 23 wanted:24"},
        Damage{"bucket file one byte short", [](StoreBytes& store) { store.buckets.pop_back(); },
               "buckets: bad shmem size:55 wanted:56 for 4 buckets"},
        bucketsWord("foreign bucket file", 0, 0,
                    "buckets: not a bucket file: magic:0x00000000 element size:8, wanted 0x6b627468 8"),
        bucketsWord("element size", 4, 16,
                    "buckets: not a bucket file: magic:0x6b627468 element size:16, wanted 0x6b627468 8"),
        bucketsWord("no buckets", 20, 0, "buckets: bad numBuckets:0, not a power of two"),
        bucketsWord("three buckets", 20, 3, "buckets: bad numBuckets:3, not a power of two"),
        bucketsWord("too many buckets for a link", 20, 0x80000000,
                    "buckets: bad numBuckets:2147483648, not a power of two"),
        bucketsWord("more buckets than bytes", 20, 8, "buckets: bad shmem size:56 wanted:88 for 8 buckets")),
    testName);

TEST_P(DamagedList, IsToldAsTheOnlyProblemOfItsList) {
  StoreBytes store = sample();
  GetParam().make(store);
  EXPECT_THAT(problemsOf(store), ElementsAre(GetParam().reason));
}

INSTANTIATE_TEST_SUITE_P(
    StoreCheck, DamagedList,
    testing::Values(
        head("head out of range", 2, 8, "bucket 2: out-of-range index: 8 max:7"),
        link("link out of range", 2, 0x3fffffff, "bucket 1: out-of-range index: 1073741823 max:7"),
        link("slot linked to itself", 1, 1, "slot 1 is on the chains twice"),
        link("slot on two chains", 2, 0, "slot 0 is on the chains twice"),
        head("free slot on a chain", 2, 5, "slot 5 is on the chain of bucket 2, but not occupied"),
        sequence("occupied bit missing", 2, 4, "slot 2 is on the chain of bucket 1, but not occupied"),
        sequence("lookaside bit stuck", 2, 7, "slot 2 is stuck in the lookaside slot"),
        slotsWord("count below the records", 564, 4, "more records are on chains than occupiedSlots:4"),
        slotsWord("count above the records", 564, 6, "bad occupiedSlots:6, 5 records are on chains"),
        Damage{"chain in another bucket",
               [](StoreBytes& store) {
                 put32(store.buckets, StoreBytes::headAt(2), 2);
                 put32(store.slots, store.linkAt(2), 0x80000001);
                 put32(store.buckets, StoreBytes::headAt(1), 0x80000003);
               },
               "slot 2 is in bucket 2, its hash 0x88000000 belongs in 1"},
        Damage{"hash of another key, in the same bucket",
               [](StoreBytes& store) { put32(store.slots, store.hashAt(2), 0x88000001); },
               "slot 2 holds the hash 0x88000001, its key has 0x88000000"},
        Damage{"another key under the hash",
               [](StoreBytes& store) { put32(store.slots, store.slotAt(2) + 8, 5); },
               "slot 2 holds the hash 0x88000000, its key has 0xa8000000"},
        slotsWord("another seed", 576, 0x20, "slot 1 holds the hash 0x18000000, its key has 0x14000000"),
        Damage{"chain against the order of hashes",
               [](StoreBytes& store) {
                 put32(store.buckets, StoreBytes::headAt(0), 0);
                 put32(store.slots, store.linkAt(0), 1);
                 put32(store.slots, store.linkAt(1), 0x80000002);
               },
               "slot 0 stands before slot 1 against the order of hashes"},
        Damage{"chain against the order of keys",
               [](StoreBytes& store) {
                 put32(store.buckets, StoreBytes::headAt(3), 4);
                 put32(store.slots, store.linkAt(4), 3);
                 put32(store.slots, store.linkAt(3), 0xbfffffff);
               },
               "slot 4 stands before slot 3 against the order of keys"},
        Damage{"one key twice", [](StoreBytes& store) { put32(store.slots, store.slotAt(4) + 8, 0x10003); },
               "slots 3 and 4 hold the same key"},
        link("list ends early", 0, 0xbfffffff, "the list ends in bucket 0, before the last"),
        head("empty bucket ends the list", 2, 0xbfffffff, "the list ends in bucket 2, before the last"),
        link("chain names another bucket", 0, 0x80000001,
             "the chain of bucket 0 names bucket 1 as the next, not 2"),
        link("last chain names a bucket", 4, 0x80000000,
             "the chain of bucket 3, the last, names bucket 0 as the next"),
        slotsWord("free list begins out of range", 568, 8, "free list: out-of-range index: 8 max:7"),
        slotsWord("free list begins with a flag", 568, 0x40000005,
                  "free list: out-of-range index: 1073741829 max:7"),
        slotsWord("free list begins at a bucket", 568, 0x80000000,
                  "free list: out-of-range index: 2147483648 max:7"),
        link("free list leaves the table", 6, 8, "free list: out-of-range index: 8 max:7"),
        link("free list turns back", 7, 5, "slot 5 is on the free list twice"),
        link("free list runs into a record", 6, 2, "slot 2 is on the free list, but occupied"),
        sequence("free slot with the occupied bit", 6, 9, "slot 6 is on the free list, but occupied"),
        link("free list loses slots", 5, 0xbfffffff,
             "5 records and 1 free slots do not add up to numSlots:8")),
    testName);

TEST(StoreCheck, TellsBothListsWhereBothAreDamaged) {
  StoreBytes store = sample();
  put32(store.slots, store.linkAt(0), 0xbfffffff);
  put32(store.slots, store.linkAt(7), 5);
  EXPECT_THAT(problemsOf(store),
              ElementsAre("the list ends in bucket 0, before the last", "slot 5 is on the free list twice"));
}

TEST(StoreCheck, PutsTheCriticalSectionBeforeTheDamageItLeft) {
  StoreBytes store = sample();
  put32(store.slots, 556, 1u << 16);
  put32(store.slots, 564, 6);
  EXPECT_THAT(problemsOf(store), ElementsAre("bad critical section runtimeFlags:1",
                                             "bad occupiedSlots:6, 5 records are on chains"));
}

TEST(StoreCheck, LeavesKeysAloneWithoutTheirType) {
  StoreBytes store = sample();
  put32(store.slots, store.slotAt(2) + 8, 5);
  put32(store.slots, 576, 0x20);
  EXPECT_THAT(problemsOf(store, nullptr), IsEmpty());
}

TEST(StoreCheck, RefusesATypeOfAnotherSize) {
  StoredType other = kType;
  other.valueSize = 8;
  EXPECT_THAT(problemsOf(sample(), &other), ElementsAre("slots: bad value size:12, Test::Entry has 8"));
}

TEST(StoreCheck, TellsWhichFilesAreAbsent) {
  auto const report = checkStore(SlotsImage(FileImage()), BucketsImage(FileImage()), {}, nullptr);
  ASSERT_EQ(report.problems.size(), 2U);
  EXPECT_EQ(report.problems[0], "slots: absent");
  EXPECT_EQ(report.problems[1], "buckets: absent");
}

// The words that lead somewhere take values at and past every bound.
TEST(StoreCheck, EndsOnAnyBytes) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  std::uint32_t const values[] = {0,          1,          5,          7,          8,          9,
                                  0x3fffffff, 0x40000003, 0x80000000, 0x80000003, 0xbfffffff, 0xffffffff};
  unsigned sound = 0;
  for (unsigned run = 0; run < 20000; ++run) {
    StoreBytes store = sample();
    for (auto changes = random() % 8; changes > 0; --changes) {
      Bytes& file = random() % 3 == 0 ? store.buckets : store.slots;
      std::uint32_t const value =
          random() % 2 == 0 ? values[random() % std::size(values)] : static_cast<std::uint32_t>(random());
      put32(file, random() % (file.size() / 4) * 4, value);
    }
    if (random() % 8 == 0) store.slots.resize(random() % store.slots.size());
    if (random() % 8 == 0) store.buckets.resize(random() % store.buckets.size());
    if (problemsOf(store).empty()) ++sound;
  }
  EXPECT_GT(sound, 1000U);
  EXPECT_LT(sound, 19000U);
}

}  // namespace
