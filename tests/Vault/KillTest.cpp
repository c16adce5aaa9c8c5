// A writer that is killed at any moment, and what the next one finds.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <random>
#include <utility>

#include "platform/memory/EmberFile.h"
#include "platform/memory/OwnerFile.h"
#include "tests/support/Seed.h"
#include "tests/support/TestStore.h"

namespace {

using Record = TestSupport::TestRecord<TestSupport::CollidingKey<4096>, 32>;
using Writer = TestSupport::WriterOf<Record>;
using Value = Writer::Value;
using Model = std::map<std::uint32_t, std::uint32_t>;  // content by key

// The operations, in an order that the killed process and the one that judges it both know.
struct Operation {
  enum Kind { write, remove, direct };
  Kind kind;
  std::uint32_t key;
  std::uint32_t content;

  static Operation at(std::uint64_t seed, std::uint64_t number) {
    std::seed_seq sequence{seed, seed >> 32, number, number >> 32};
    std::array<std::uint32_t, 3> word{};
    sequence.generate(word.begin(), word.end());
    // Turns of growing and of shrinking, of a few records and of many.
    std::uint64_t const turn = number / 1500;
    std::uint32_t const range = turn % 3 == 0 ? 40 : 900;
    bool const fills = turn % 2 == 0;
    bool const removes = word[0] % 8 < (fills ? 2 : 6);
    return {removes ? remove : word[0] % 3 == 0 ? direct : write, word[1] % range, word[2]};
  }

  void applyTo(Writer& writer) const {
    Value value = Record::of({key}, content);
    switch (kind) {
      case write:
        writer.write(value, true);
        break;
      case direct:
        writer.directWrite(value);
        writer.directCommit();
        break;
      case remove:
        writer.remove({key}, value);
        break;
    }
  }
  void applyTo(Model& model) const {
    if (kind == remove) {
      model.erase(key);
    } else {
      model.insert_or_assign(key, content);
    }
  }
};

// Seen by both processes.
struct Progress {
  std::atomic<std::uint64_t> acknowledged;  // operations that have returned
};

class Victim {
 public:
  Victim(std::string path, std::uint64_t seed) : path_(std::move(path)), seed_(seed) {
    void* const shared =
        ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    progress_ = new (shared) Progress{};
  }
  Victim(Victim const&) = delete;
  Victim& operator=(Victim const&) = delete;
  ~Victim() { ::munmap(progress_, sizeof(Progress)); }

  std::uint64_t acknowledged() const { return progress_->acknowledged; }
  unsigned kills() const { return kills_; }

  // Works on the table in a process of its own, from the first operation that isn't acknowledged, until it is
  // killed.
  void liveFor(std::chrono::microseconds span) {
    killedAfter(span, [this] { work(); });
  }
  // Attaches the table and does nothing more.
  void attachFor(std::chrono::microseconds span) {
    killedAfter(span, [this] {
      auto const own = writer();
      for (;;) ::pause();
    });
  }

  std::unique_ptr<Writer> writer() const {
    auto const handler = Dovel::Platform::getDebugHandler("KillTest", true);
    Vault::MapDescriptor descriptor(2000);
    descriptor.localMem = false;
    auto writer = std::make_unique<Writer>(handler, Mem::RootPath(handler, path_, true), descriptor);
    writer->initialize("none");
    return writer;
  }

 private:
  template <class Life>
  void killedAfter(std::chrono::microseconds span, Life life) {
    ++kills_;
    pid_t const child = ::fork();
    if (child == 0) life();
    timespec const sleep{0, std::chrono::nanoseconds(span).count()};
    ::nanosleep(&sleep, nullptr);
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "ended by itself: " << status;
  }

  [[noreturn]] void work() {
    auto const own = writer();
    for (std::uint64_t number = progress_->acknowledged;; ++number) {
      Operation::at(seed_, number).applyTo(*own);
      progress_->acknowledged = number + 1;
    }
  }

  std::string const path_;
  std::uint64_t const seed_;
  Progress* progress_;
  unsigned kills_ = 0;
};

Model contentsOf(Writer const& writer) {
  Model model;
  Value value;
  Vault::IterHint hint;
  for (bool more = writer.first(value, hint); more; more = writer.next(value.fwkKey(), value, hint)) {
    std::uint32_t content = 0;
    std::memcpy(&content, value.payload.data(), 4);
    model.emplace(value.fwkKey().number, content);
    EXPECT_EQ(value.payload, Record::of(value.fwkKey(), content).payload) << "a torn record";
  }
  return model;
}

class Judge {
 public:
  Judge(TestSupport::StoreDir const& dir, Victim const& victim, std::uint64_t seed)
      : dir_(dir), victim_(victim), seed_(seed) {}

  // Before another process attaches the files: what that one loses may be lost.
  void look() { mayBeLost_ = mayBeLost_ || isInterrupted(); }
  // All was removed.
  void forget() { model_.clear(); }

  void judge() {
    look();
    bool const mayBeLost = std::exchange(mayBeLost_, false);
    while (applied_ < victim_.acknowledged()) Operation::at(seed_, applied_++).applyTo(model_);
    auto const writer = victim_.writer();
    ASSERT_TRUE(writer->validate());
    SharedMem::OwnerFile owner(writer->debugHandler(), writer->rootPath(), false);
    if (owner.wiped()) {
      ++wipes;
      EXPECT_TRUE(mayBeLost) << "wiped without need";
      EXPECT_EQ(writer->members(), 0U);
      owner.wipedIs(false);
      model_.clear();
      return;
    }
    ++kept;
    Model const found = contentsOf(*writer);
    if (found == model_) return;
    // Then the operation in flight was done, and its acknowledgement alone is missing.
    Operation::at(seed_, applied_).applyTo(model_);
    EXPECT_EQ(found, model_);
    ++inFlight;
  }

  unsigned kept = 0;
  unsigned inFlight = 0;
  unsigned wipes = 0;

 private:
  // Whether the files say that their writer was in the middle of something, or had not made them complete.
  bool isInterrupted() const {
    if (!dir_.has("slots") || !dir_.has("buckets") || !dir_.has("ember")) return true;
    std::string const slots = TestSupport::bytesOf(dir_.file("slots"));
    std::string const ember = TestSupport::bytesOf(dir_.file("ember"));
    if (slots.size() < 656 || ember.size() < 4) return true;
    return (TestSupport::wordAt<std::uint16_t>(slots, 558) & 1) != 0 ||
           TestSupport::wordAt<std::uint32_t>(ember, 0) == 0;
  }

  TestSupport::StoreDir const& dir_;
  Victim const& victim_;
  std::uint64_t const seed_;
  std::uint64_t applied_ = 0;
  bool mayBeLost_ = false;
  Model model_;
};

// HWTABLES_KILL_LOOPS asks for more, or fewer.
unsigned loops() {
  char const* const given = std::getenv("HWTABLES_KILL_LOOPS");
  return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 0)) : 2000;
}

TEST(KilledWriter, LosesNoAcknowledgedOperationOrTheWholeTableAndSaysSo) {
  PRINT_SEED_ON_FAILURE();
  std::uint64_t const seed = TestSupport::seed();
  TestSupport::StoreDir const dir;
  Victim victim(dir.path(), seed);
  Judge judge(dir, victim, seed);
  std::mt19937_64 random(seed);
  Dovel::Trace::levelsIs("KillTest", 0);
  for (unsigned loop = 0; loop < loops() && !testing::Test::HasFailure(); ++loop) {
    // Some lives end while the table is being attached.
    victim.liveFor(std::chrono::microseconds(random() % (loop % 4 == 0 ? 600 : 4000)));
    judge.look();
    // And some recoveries don't come to their end either.
    if (loop % 3 == 0) victim.attachFor(std::chrono::microseconds(random() % 900));
    judge.judge();
    if (loop % 100 == 99) std::filesystem::remove(dir.file("slots"));
    if (loop % 100 == 99) judge.judge();
    if (loop % 20 == 19) {
      victim.writer()->cleanup();
      judge.forget();
      victim.attachFor(std::chrono::microseconds(random() % 1200));
      judge.judge();
    }
  }
  EXPECT_GT(judge.kept, loops() / 4);
  EXPECT_GT(judge.wipes, 0U);
  fmt::print(
      "{} operations, {} kills: {} times all was kept, the one in flight too {} times, {} times wiped\n",
      victim.acknowledged(), victim.kills(), judge.kept, judge.inFlight, judge.wipes);
}

}  // namespace
