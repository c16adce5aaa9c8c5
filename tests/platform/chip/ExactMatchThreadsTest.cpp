// Look-ups from other threads while the chip's entries change.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "tests/platform/chip/ExactMatchSupport.h"
#include "tests/support/Seed.h"

namespace {

using namespace TestSupport;
using Sluice::SchanStatus;

constexpr std::uint64_t kGood = 200;
constexpr std::uint64_t kPassing = 2000;  // the first of the keys that come and go

struct ExactMatchThreads : ExactMatchRig {
  ExactMatchThreads() : ExactMatchRig(512) {}
  ~ExactMatchThreads() override { stop(); }

  // The generation stands on both sides of a word's end, so a torn entry would show.
  static Entry entryFor(Database const& database, std::uint64_t key, std::uint64_t generation) {
    Entry entry = entryOf(database, key, 0);
    bitsAre(entry, 86, 13, generation);
    bitsAre(entry, 102, 13, key ^ generation);
    bitsAre(entry, 128, 13, generation);
    return entry;
  }
  static bool isWhole(Entry const& entry, std::uint64_t key) {
    std::uint64_t const generation = bitsOf(entry, 86, 13);
    return bitsOf(entry, 128, 13) == generation && bitsOf(entry, 102, 13) == ((key ^ generation) & 0x1FFF);
  }

  void watch(Database const& database, bool alsoPassing) {
    threads.emplace_back([this, &database, alsoPassing] {
      while (!stopped.load()) {
        for (std::uint64_t key = 0; key < kGood; ++key) {
          auto const entry = look(database, key);
          if (!entry) ++missing;
          if (entry && !isWhole(*entry, key)) ++torn;
        }
        for (std::uint64_t key = kPassing; alsoPassing && key < kPassing + 100; ++key)
          if (auto const entry = look(database, key); entry && !isWhole(*entry, key)) ++torn;
        ++rounds;
      }
    });
  }
  void stop() {
    stopped = true;
    for (std::thread& thread : threads) thread.join();
    threads.clear();
  }
  // Until the watchers have been round so often.
  template <class Work>
  void during(unsigned wanted, Work const& work) {
    for (unsigned number = 0; rounds.load() < wanted; ++number) work(number);
    stop();
    EXPECT_EQ(missing.load(), 0U);
    EXPECT_EQ(torn.load(), 0U);
  }
  void writeGood(Database const& database, std::uint64_t generation) const {
    for (std::uint64_t key = 0; key < kGood; ++key)
      ASSERT_EQ(give(database, entryFor(database, key, generation)).status, SchanStatus::ok);
  }

  std::vector<std::thread> threads;
  std::atomic<bool> stopped = false;
  std::atomic<unsigned> rounds = 0;
  std::atomic<unsigned> missing = 0;
  std::atomic<unsigned> torn = 0;
};

// One key only, so that look-ups fall into its changes.
TEST_F(ExactMatchThreads, AKeyThatIsUpdatedIsNeverMissingNorTorn) {
  constexpr std::uint64_t kGenerations = 64;
  std::vector<Entry> generations;
  std::vector<Sluice::schan_xmsg_user_> messages;
  for (std::uint64_t number = 0; number < kGenerations; ++number) {
    generations.push_back(entryFor(kVsiToVni, 5, number));
    messages.push_back(messageOf(kVsiToVni, generations.back()));
  }
  answerTo(*chip, messages[0]);
  std::atomic<unsigned> seenToChange = 0;
  for (unsigned watcher = 0; watcher < 2; ++watcher) {
    threads.emplace_back([&] {
      std::uint64_t before = 0;
      while (!stopped.load(std::memory_order_relaxed)) {
        auto const entry = look(kVsiToVni, generations[0]);
        if (!entry) {
          ++missing;
          continue;
        }
        std::uint64_t words[3];
        std::memcpy(words, entry->data(), sizeof words);
        std::uint64_t const generation = words[1] >> (86 - 64) & 0x1FFF;
        if (generation >= kGenerations || *entry != generations[generation]) ++torn;
        if (generation != before) ++seenToChange;
        before = generation;
      }
    });
  }
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (seenToChange.load() < 20000 && std::chrono::steady_clock::now() < end)
    for (Sluice::schan_xmsg_user_ const& message : messages) answerTo(*chip, message);
  stop();
  EXPECT_EQ(missing.load(), 0U);
  EXPECT_EQ(torn.load(), 0U);
  EXPECT_GT(seenToChange.load(), 0U);
}

TEST_F(ExactMatchThreads, KeysThatComeAndGoDisturbNoOther) {
  PRINT_SEED_ON_FAILURE();
  writeGood(kSrv6, 0);
  watch(kSrv6, true);
  std::mt19937_64 random(seed());
  during(200, [&](unsigned number) {
    std::uint64_t const key = kPassing + random() % 100;
    if (random() % 2 == 0) {
      del(kSrv6, key);
    } else {
      give(kSrv6, entryFor(kSrv6, key, number));
    }
  });
}

TEST_F(ExactMatchThreads, NoGoodKeyIsMissingDuringReconciliations) {
  for (Database const& database : {kMpls, kPortCvid}) {
    rounds = 0;
    stopped = false;
    writeGood(database, 0);
    watch(database, true);
    during(100, [&](unsigned number) {
      for (std::uint64_t key = kPassing; key < kPassing + 20; ++key)
        give(database, entryFor(database, key, number));
      Sluice::FlushPass mark = markOf(database);
      bitsAre(std::as_writable_bytes(std::span(mark.rule.mask)), 0, 136, 0);
      EXPECT_EQ(flushAnswer(run(mark)).entries, kGood + 20);
      std::vector<Entry> good;
      for (std::uint64_t key = 0; key < kGood; ++key) good.push_back(entryFor(database, key, number));
      EXPECT_EQ(bulk(database, good).status, SchanStatus::ok);
      EXPECT_EQ(flushAnswer(run(sweepOf(database))).entries, 20U);
    });
  }
}

TEST_F(ExactMatchThreads, LookUpsGoOnThroughResets) {
  watch(kVsiToVni, true);
  for (unsigned number = 0; rounds.load() < 100; ++number) {
    writeGood(kVsiToVni, number);
    chip->reset(0);
  }
  stop();
  EXPECT_EQ(torn.load(), 0U);
}

}  // namespace
