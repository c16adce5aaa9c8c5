// Random operations against a plain map: what the writer says, what its iterators see, and what stands in its
// files is the same as there.
#include <gmock/gmock.h>

#include <map>
#include <random>

#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "Vault/TableFullException.h"
#include "tests/support/Seed.h"
#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;
using Vault::MarkAndSweepOperation;

// How the records of a kind are made: a key of each number, and contents.
template <class Record>
struct Maker {
  using Key = typename Record::Key;
  static Key key(std::uint32_t number) {
    Key made{};
    made.number = number;
    return made;
  }
  static Record record(Key const& key, std::uint32_t content) { return Record::of(key, content); }
};
template <std::size_t Size>
struct Maker<TestRecord<ChosenKey, Size>> {
  using Record = TestRecord<ChosenKey, Size>;
  static ChosenKey key(std::uint32_t number) { return {number, (number / 3) * 2654435761U}; }
  static Record record(ChosenKey const& key, std::uint32_t content) { return Record::of(key, content); }
};

// The record of a table, with the names that the other ones have.
struct MplsRecord : bcm88490_a0::MplsIsemHwEm::Entry {
  using Key = bcm88490_a0::MplsIsemHwEm::EntryKey;
  using Entry::Entry;
  Key const& key() const { return entryKey(); }
};
template <>
struct Maker<MplsRecord> {
  using Key = MplsRecord::Key;
  static Key key(std::uint32_t number) {
    return Key(Orlo::U20(number & 0xfffff), Orlo::U1(number >> 20 & 1));
  }
  static MplsRecord record(Key const& key, std::uint32_t content) {
    MplsRecord made{key};
    made.inLifIs(Orlo::U19(content & 0x7ffff));
    return made;
  }
};

template <class Record>
std::string bytesIn(Record const& record) {
  return {reinterpret_cast<char const*>(&record), sizeof(Record)};
}

template <class Record>
class WriterModel : public testing::Test {
 protected:
  using Key = typename Record::Key;
  using Value = typename WriterOf<Record>::Value;
  struct Expected {
    std::string bytes;
    bool flag = false;
  };
  // In the order of the store: by mirrored hash, then by key.
  using Place = std::pair<std::uint32_t, Key>;

  std::uint32_t pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }
  Key someKey() { return Maker<Record>::key(pick(keys_)); }
  Place placeOf(Key const& key) { return {Image::reversed(key.hash(store_->hashSeed()), 32), key}; }

  void write() {
    Key const key = someKey();
    Record const record = Maker<Record>::record(key, pick(1U << 30));
    bool const update = pick(3) != 0;
    auto const [at, isNew] = model_.try_emplace(placeOf(key), Expected{bytesIn(record)});
    if (!isNew && update) at->second.bytes = bytesIn(record);
    EXPECT_EQ(bytesIn<Record>(*store_->write(record, update)), at->second.bytes);
  }
  void writeDirectly() {
    Key const key = someKey();
    Record const record = Maker<Record>::record(key, pick(1U << 30));
    store_->directWrite(record);
    store_->directCommit();
    model_[placeOf(key)].bytes = bytesIn(record);
  }
  void remove() {
    Key const key = someKey();
    Value removed;
    auto const at = model_.find(placeOf(key));
    ASSERT_EQ(store_->remove(key, removed), at != model_.end());
    if (at == model_.end()) return;
    EXPECT_EQ(bytesIn<Record>(removed), at->second.bytes);
    model_.erase(at);
  }
  void mark() {
    Key const key = someKey();
    auto const at = model_.find(placeOf(key));
    auto const operation = static_cast<MarkAndSweepOperation>(pick(3));
    bool const answer = store_->markAndSweepFlag(key, operation);
    if (at == model_.end()) {
      EXPECT_FALSE(answer);
    } else if (operation == MarkAndSweepOperation::read) {
      EXPECT_EQ(answer, at->second.flag);
    } else {
      EXPECT_TRUE(answer);
      at->second.flag = operation == MarkAndSweepOperation::set;
    }
  }
  void lookup() {
    Key const key = someKey();
    auto const at = model_.find(placeOf(key));
    bool found = false;
    Value out;
    Value const* const given = store_->lookup(key, found, &out);
    ASSERT_EQ(found, at != model_.end());
    EXPECT_EQ(bytesIn<Record>(out), bytesIn<Record>(*given));
    if (found) {
      EXPECT_EQ(bytesIn<Record>(out), at->second.bytes);
      EXPECT_NO_THROW(store_->validateVersionAnchor());
    }
  }
  // One step of an iteration that goes on while the table changes.
  void iterate() {
    bool const more = walking_ ? store_->next(walked_.key(), walked_, hint_) : store_->first(walked_, hint_);
    auto const expected = walking_ ? model_.upper_bound(last_) : model_.begin();
    ASSERT_EQ(more, expected != model_.end());
    walking_ = more;
    if (!more) return;
    last_ = placeOf(walked_.key());
    EXPECT_EQ(last_, expected->first);
    EXPECT_EQ(bytesIn<Record>(walked_), expected->second.bytes);
  }
  void step(std::uint32_t writes) {
    std::uint32_t const what = pick(100);
    if (what < writes) return pick(4) == 0 ? writeDirectly() : write();
    if (what < 70) return remove();
    if (what < 80) return mark();
    if (what < 88) return lookup();
    if (what < 99) return iterate();
    store_->shrink();
  }

  void compareAll() {
    ASSERT_TRUE(store_->validate());
    Image const image = store_.image();
    ASSERT_EQ(image.expectSound(), model_.size());
    ASSERT_EQ(store_->members(), model_.size());
    Value value;
    Vault::IterHint hint;
    bool more = store_->first(value, hint);
    for (auto const& [place, expected] : model_) {
      ASSERT_TRUE(more);
      ASSERT_EQ(placeOf(value.key()), place);
      ASSERT_EQ(bytesIn<Record>(value), expected.bytes);
      ASSERT_EQ(image.value(hint.slot), expected.bytes);
      ASSERT_EQ(image.hash(hint.slot), place.first);
      ASSERT_EQ(image.link(hint.slot).flag(), expected.flag);
      more = store_->next(value.key(), value, hint);
    }
    ASSERT_FALSE(more);
  }

  // Phases in which the table mostly grows or mostly shrinks, and attaches in between.
  void run(int phases, int steps) {
    for (int phase = 0; phase < phases && !this->HasFatalFailure(); ++phase) {
      std::uint32_t const writes = phase % 2 == 0 ? 62 : 8;
      for (int at = 0; at < steps && !this->HasFailure(); ++at) step(writes);
      compareAll();
      if (pick(3) == 0) {
        auto const ember = store_->emberId();
        store_.reopen();
        ASSERT_EQ(store_->emberId(), ember);
        walking_ = false;
        compareAll();
      }
    }
  }

  std::mt19937_64 random_{seed()};
  std::uint32_t keys_ = 700;
  Store<Record> store_;
  std::map<Place, Expected> model_;
  bool walking_ = false;
  Value walked_;
  Vault::IterHint hint_;
  Place last_;
};

using Records = testing::Types<MplsRecord, TestRecord<CollidingKey<0xffffffff>, 12>,
                               TestRecord<ChosenKey, 20>, TestRecord<CollidingKey<7>, 32>,
                               TestRecord<CollidingKey<1>, 20>, TestRecord<CollidingKey<64>, 700>>;
struct RecordNames {
  template <class Record>
  static std::string GetName(int) {
    using Key = typename Record::Key;
    if (std::is_same_v<Record, MplsRecord>) return "MplsIsemHwEm";
    std::string const size = std::to_string(sizeof(Record));
    if (std::is_same_v<Key, CollidingKey<1>>) return size + "AllOfOneHash";
    if (std::is_same_v<Key, CollidingKey<7>>) return size + "OfSevenHashes";
    if (std::is_same_v<Key, CollidingKey<64>>) return size + "Of64Hashes";
    return size;
  }
};
TYPED_TEST_SUITE(WriterModel, Records, RecordNames);

TYPED_TEST(WriterModel, HoldsForRandomOperations) {
  PRINT_SEED_ON_FAILURE();
  this->run(12, 3000);
}

TYPED_TEST(WriterModel, HoldsWithFewKeysThatComeAndGo) {
  PRINT_SEED_ON_FAILURE();
  this->keys_ = 6;
  this->run(40, 100);
}

TYPED_TEST(WriterModel, HoldsForAFixedTableThatIsOftenFull) {
  PRINT_SEED_ON_FAILURE();
  auto descriptor = sharedDescriptor(20);
  descriptor.fixedSize = true;
  Store<TypeParam> store(descriptor);
  std::map<typename TypeParam::Key, bool> model;
  for (int at = 0; at < 5000; ++at) {
    auto const key = Maker<TypeParam>::key(this->pick(40));
    if (this->pick(3) == 0) {
      ASSERT_EQ(store.remove(key), model.erase(key) != 0);
    } else if (model.size() < 20 || model.contains(key)) {
      store->write(Maker<TypeParam>::record(key, 1), true);
      model[key] = true;
    } else {
      ASSERT_THROW(store->write(Maker<TypeParam>::record(key, 1), true), Vault::TableFullException);
    }
  }
  EXPECT_EQ(store.image().expectSound(), model.size());
  EXPECT_TRUE(store->validate());
}

}  // namespace
