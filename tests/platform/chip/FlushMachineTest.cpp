#include "platform/chip/FlushMachine.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/platform/chip/ExactMatchSupport.h"
#include "tests/support/Seed.h"

namespace {

using namespace TestSupport;
using Sluice::FlushPass;
using Sluice::SchanResponse;
using Sluice::SchanStatus;

struct FlushMachine : ExactMatchRig {
  void fill(Database const& database, std::uint64_t keys) const {
    for (std::uint64_t key = 0; key < keys; ++key)
      ASSERT_EQ(write(database, key, key + 100).status, SchanStatus::ok);
  }
  void fillAll(std::uint64_t keys) const {
    for (Database const& database : kDatabases) fill(database, keys);
  }
  void expectDone(SchanResponse const& answer, std::uint32_t count, std::uint32_t next = 0) const {
    EXPECT_EQ(answer.status, SchanStatus::ok);
    EXPECT_EQ(flushAnswer(answer).entries, count);
    EXPECT_EQ(flushAnswer(answer).next, next);
  }
  static Entry marked(Database const& database, Entry entry) {
    bitsAre(entry, database.sweepBit, 1, 1);
    return entry;
  }
  static Entry expected(Database const& database, std::uint64_t key) {
    return entryOf(database, key, key + 100);
  }
  void expectUntouched(Database const& database, std::uint64_t keys) const {
    auto const held = entries(database);
    EXPECT_EQ(held.size(), keys);
    for (auto const& [key, entry] : held) EXPECT_EQ(entry, expected(database, key));
  }
  // Of every pair of databases, the pass of one leaves the other as it is.
  template <class PassOf>
  void expectNeighboursUntouched(PassOf const& passOfOne) const {
    for (Database const& one : kDatabases) {
      for (Database const& other : kDatabases) {
        if (one.physicalTable == other.physicalTable && one.tid == other.tid) continue;
        chip->reset(0);
        fill(one, 20);
        fill(other, 20);
        expectDone(run(passOfOne(one)), 20);
        expectUntouched(other, 20);
        fill(other, 20);
        EXPECT_EQ(entries(other).size(), 20U);
      }
    }
  }
  std::vector<Entry> readInto(FlushPass& pass, std::uint32_t capacity) const {
    pass.dmaAddress = dma.address();
    pass.capacity = capacity;
    SchanResponse const answer = run(pass);
    EXPECT_EQ(answer.status, SchanStatus::ok);
    std::vector<Entry> read(flushAnswer(answer).entries);
    for (std::size_t number = 0; number < read.size(); ++number)
      std::memcpy(read[number].data(), dma.bytes() + number * 24, 24);
    pass.from = flushAnswer(answer).next;
    return read;
  }
};

TEST_F(FlushMachine, ClearsOneDatabaseAndNoOther) {
  expectNeighboursUntouched([](Database const& one) { return passOf(one, Action::remove); });
}

TEST_F(FlushMachine, MarksOneDatabaseAndNoOther) { expectNeighboursUntouched(markOf); }

TEST_F(FlushMachine, SweepsOneDatabaseAndNoOther) {
  for (Database const& one : kDatabases) {
    for (Database const& other : kDatabases) {
      if (one.physicalTable == other.physicalTable && one.tid == other.tid) continue;
      chip->reset(0);
      fill(one, 10);
      fill(other, 10);
      run(markOf(one));
      run(markOf(other));
      expectDone(run(sweepOf(one)), 10);
      EXPECT_TRUE(entries(one).empty());
      EXPECT_EQ(entries(other).size(), 10U);
    }
  }
}

TEST_F(FlushMachine, ClearsWhatThereIs) {
  fillAll(30);
  for (Database const& database : kDatabases) {
    expectDone(run(passOf(database, Action::remove)), 30);
    EXPECT_TRUE(entries(database).empty());
    expectDone(run(passOf(database, Action::remove)), 0);
  }
}

TEST_F(FlushMachine, AMarkSetsTheSweepBitAndNothingElse) {
  fillAll(30);
  for (Database const& database : kDatabases) {
    expectDone(run(markOf(database)), 30);
    for (auto const& [key, entry] : entries(database))
      EXPECT_EQ(entry, marked(database, expected(database, key)));
  }
}

TEST_F(FlushMachine, AMarkLeavesEntriesOfAnotherFormatAlone) {
  Entry other = entryOf(kMpls, 1);
  bitsAre(other, kMpls.vmv, 2, 2);
  give(kMpls, other);
  write(kMpls, 2);
  expectDone(run(markOf(kMpls)), 1);
  EXPECT_EQ(look(kMpls, 1), other);
}

TEST_F(FlushMachine, AReconciliationLeavesWhatWasWrittenInBetween) {
  fill(kMpls, 100);
  run(markOf(kMpls));
  for (std::uint64_t key = 0; key < 100; key += 2) write(kMpls, key, key + 100);
  expectDone(run(sweepOf(kMpls)), 50);
  auto const held = entries(kMpls);
  EXPECT_EQ(held.size(), 50U);
  for (auto const& [key, entry] : held) {
    EXPECT_EQ(key % 2, 0U);
    EXPECT_EQ(entry, expected(kMpls, key));
  }
}

TEST_F(FlushMachine, ThePayloadIsAlignedToTheTopOfTheEntry) {
  for (Database const& database : kDatabases) {
    unsigned const top = database.entryType == 1 ? 84 : 144;
    for (unsigned bit = 9 + database.keyBits; bit <= top; ++bit) {
      if (payloadBit(database, bit) > 127) continue;
      Entry entry{};
      bitsAre(entry, 0, 9, kWrite);
      bitsAre(entry, 167, 3, database.entryType);
      bitsAre(entry, 170, 6, database.tid);
      give(database, entry);
      FlushPass pass = passOf(database, Action::merge);
      bitsAre(std::as_writable_bytes(std::span(pass.payload.mask)), payloadBit(database, bit), 1, 1);
      bitsAre(std::as_writable_bytes(std::span(pass.payload.value)), payloadBit(database, bit), 1, 1);
      expectDone(run(pass), 1);
      bitsAre(entry, bit, 1, 1);
      EXPECT_EQ(look(database, 0), entry) << database.tid << " bit " << bit;
    }
  }
}

TEST_F(FlushMachine, AMergeWritesTheBitsOfItsMaskOnlyAndClearsToo) {
  Entry entry = entryOf(kVsiToVni, 3);
  bitsAre(entry, 68, 64, ~0ULL);
  give(kVsiToVni, entry);
  FlushPass pass = passOf(kVsiToVni, Action::merge);
  bitsAre(std::as_writable_bytes(std::span(pass.payload.mask)), payloadBit(kVsiToVni, 100), 4, 15);
  bitsAre(std::as_writable_bytes(std::span(pass.payload.value)), payloadBit(kVsiToVni, 100), 8, 5);
  run(pass);
  bitsAre(entry, 100, 4, 5);
  EXPECT_EQ(look(kVsiToVni, 3), entry);
}

TEST_F(FlushMachine, AMergeNeverReachesTheKeyNorTheChipsOwnBits) {
  for (Database const& database : kDatabases) {
    std::uint64_t const key = (std::uint64_t{1} << database.keyBits) - 1;
    write(database, key, 0x1FFFF);
    FlushPass pass = passOf(database, Action::merge);
    pass.payload.mask.fill(0xFF);
    expectDone(run(pass), 1);
    auto const entry = look(database, key);
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(bitsOf(*entry, 9, database.keyBits), key);
    EXPECT_EQ(bitsOf(*entry, database.result, 17), 0U);
    EXPECT_EQ(bitsOf(*entry, 0, 9), kWrite);
    EXPECT_EQ(bitsOf(*entry, 167, 9), std::uint64_t{database.tid} << 3 | database.entryType);
  }
}

TEST_F(FlushMachine, ARuleSelectsByEveryBitOfTheImage) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(seed());
  for (unsigned round = 0; round < 200; ++round) {
    Database const& database = kDatabases[random() % kDatabases.size()];
    chip->reset(0);
    for (unsigned number = 0; number < 20; ++number) {
      Entry entry = entryOf(database, random());
      for (unsigned bit = 9; bit < 145; bit += 34) bitsAre(entry, bit, 34, random());
      give(database, entry);
    }
    FlushPass pass = passOf(database, Action::remove);
    std::map<std::uint64_t, Entry> left = entries(database);
    for (unsigned number = 0; number < 3; ++number) {
      unsigned const bit = static_cast<unsigned>(random() % 136);
      ruleIs(pass, 9 + bit, 1, random() & 1);
    }
    // What a value has outside the mask is nothing to the rule.
    pass.rule.value[random() % 17] ^= static_cast<std::uint8_t>(random());
    std::size_t const before = left.size();
    std::erase_if(left, [&pass](auto const& one) {
      for (unsigned bit = 0; bit < 136; ++bit)
        if ((pass.rule.mask[bit / 8] >> bit % 8 & 1) != 0 &&
            bitsOf(one.second, 9 + bit, 1) != (pass.rule.value[bit / 8] >> bit % 8 & 1U))
          return false;
      return true;
    });
    expectDone(run(pass), static_cast<std::uint32_t>(before - left.size()));
    EXPECT_EQ(entries(database), left);
  }
}

TEST_F(FlushMachine, ReadsEntriesAsTheyWereGiven) {
  fillAll(50);
  for (Database const& database : kDatabases) {
    FlushPass pass = passOf(database, Action::read);
    std::vector<Entry> const read = readInto(pass, 2000);
    EXPECT_EQ(pass.from, 0U);
    EXPECT_EQ(read.size(), 50U);
    std::map<std::uint64_t, Entry> byKey;
    for (Entry const& entry : read) byKey[bitsOf(entry, 9, database.keyBits)] = entry;
    EXPECT_EQ(byKey, entries(database));
    expectUntouched(database, 50);
  }
}

TEST_F(FlushMachine, ReadsOnWhereItHadNoMoreRoom) {
  fillAll(50);
  FlushPass pass = passOf(kSrv6, Action::read);
  std::map<std::uint64_t, Entry> byKey;
  std::vector<std::size_t> counts;
  do {
    for (Entry const& entry : readInto(pass, 15))
      EXPECT_TRUE(byKey.emplace(bitsOf(entry, 9, 30), entry).second);
    counts.push_back(byKey.size());
  } while (pass.from != 0);
  EXPECT_EQ(counts, (std::vector<std::size_t>{15, 30, 45, 50}));
  EXPECT_EQ(byKey, entries(kSrv6));
}

TEST_F(FlushMachine, KnowsThatItIsAtTheEndWhereTheRoomIsJustEnough) {
  fill(kSrv6, 50);
  FlushPass pass = passOf(kSrv6, Action::read);
  EXPECT_EQ(readInto(pass, 50).size(), 50U);
  EXPECT_EQ(pass.from, 0U);
  pass.from = 1024;
  EXPECT_TRUE(readInto(pass, 50).empty());
  EXPECT_EQ(pass.from, 0U);
}

TEST_F(FlushMachine, AReadWritesNoMoreThanItHasRoomFor) {
  fill(kSrv6, 50);
  std::memset(dma.bytes(), 0x5A, 65536);
  FlushPass pass = passOf(kSrv6, Action::read);
  readInto(pass, 10);
  for (std::size_t at = 240; at < 65536; ++at) ASSERT_EQ(dma.bytes()[at], std::byte{0x5A});
}

TEST_F(FlushMachine, ReadsWhatTheRuleSelects) {
  fill(kMpls, 50);
  FlushPass pass = passOf(kMpls, Action::read);
  ruleIs(pass, 9, 21, 7);
  EXPECT_EQ(readInto(pass, 10), std::vector{expected(kMpls, 7)});
}

TEST_F(FlushMachine, AReadIsRefusedWhereItHasNoBuffer) {
  fill(kSrv6, 3);
  FlushPass pass = passOf(kSrv6, Action::read);
  auto const refused = [&](std::uint64_t dmaAddress, std::uint32_t capacity) {
    pass.dmaAddress = dmaAddress;
    pass.capacity = capacity;
    return run(pass).status == SchanStatus::badAddress;
  };
  EXPECT_TRUE(refused(dma.address(), 0));
  EXPECT_TRUE(refused(0, 10));
  EXPECT_TRUE(refused(dma.address(), 65536 / 24 + 1));
  EXPECT_TRUE(refused(dma.address(), ~0U));
  EXPECT_FALSE(refused(dma.address(), 65536 / 24));
}

TEST_F(FlushMachine, RefusesADatabaseThatThereIsNot) {
  fillAll(3);
  auto const expectRefused = [this](auto const& change) {
    FlushPass pass = passOf(kMpls, Action::remove);
    change(pass);
    EXPECT_EQ(run(pass).status, SchanStatus::badDatabase);
  };
  expectRefused([](auto& pass) { pass.block = 281; });
  expectRefused([](auto& pass) { pass.location = 1; });
  expectRefused([](auto& pass) { pass.core = 1; });
  expectRefused([](auto& pass) { pass.physicalTableId = 66; });
  expectRefused([](auto& pass) { pass.tid = 1; });
  expectRefused([](auto& pass) { pass.entryType = 0; });
  for (Database const& database : kDatabases) expectUntouched(database, 3);
  EXPECT_EQ(run(passOf(kMpls, Action::remove), 2).status, SchanStatus::noResponse);
}

// Looks every key up each time that the pass changes an entry.
class KeyWatcher : public Chip::ChipObserver {
 public:
  KeyWatcher(FlushMachine const& rig, Database const& database, std::uint64_t keys)
      : rig_(rig), database_(database), keys_(keys) {}
  void rowWritten(Sluice::FapId, std::uint32_t, std::uint32_t, std::span<std::byte const>,
                  std::span<std::byte const>) override {}
  void entryWritten(Sluice::FapId, std::uint32_t, std::uint32_t, std::span<std::byte const>,
                    std::span<std::byte const>) override {
    ++changes;
    for (std::uint64_t key = 0; key < keys_; ++key) ASSERT_TRUE(rig_.has(database_, key)) << key;
  }
  void wasReset(Sluice::FapId) override {}

  std::size_t changes = 0;

 private:
  FlushMachine const& rig_;
  Database const& database_;
  std::uint64_t keys_;
};

TEST_F(FlushMachine, NoGoodKeyIsMissingWhileAPassRuns) {
  fill(kMpls, 100);
  KeyWatcher watcher(*this, kMpls, 80);
  chip->observerIs(&watcher);
  run(markOf(kMpls));
  for (std::uint64_t key = 0; key < 80; ++key) write(kMpls, key, key);
  expectDone(run(sweepOf(kMpls)), 20);
  chip->observerIs(nullptr);
  EXPECT_EQ(watcher.changes, 100U + 80 + 20);
}

}  // namespace
