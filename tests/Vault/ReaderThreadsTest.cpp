// A writer and readers as threads of one process, for the thread sanitizer. What it knows a place by is its
// address: so besides readers with mappings of their own there are some that look into the writer's.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "runtime/Dovel/Noop.h"
#include "runtime/Dovel/TraceChannel.h"
#include "tests/Vault/TortureLives.h"
#include "tests/support/Seed.h"
#include "tests/support/TestStore.h"

namespace {

using namespace Torture;
using namespace std::chrono_literals;

TEST(ReaderThreads, SeeOneHistoryThroughMappingsOfTheirOwn) {
  PRINT_SEED_ON_FAILURE();
  Dovel::Trace::levelsIs("Torture", 0);
  std::uint64_t const seed = TestSupport::seed();
  TestSupport::StoreDir const folder;
  auto const world = std::make_unique<World>();
  std::vector<std::thread> threads;
  auto const start = [&](auto life) {
    threads.emplace_back([&world, life]() mutable {
      try {
        while (!world->ends && !world->isComplained()) life->step();
      } catch (Dovel::Exception const& caught) {
        world->complain(caught.what());
      }
    });
  };
  auto const writer = std::make_shared<WriterLife>(*world, folder.path(), seed, true);
  writer->attach();
  start(writer);
  for (ReaderTally& tally : world->readers)
    start(std::make_shared<ReaderLife>(*world, tally, folder.path(), seed + threads.size()));
  std::this_thread::sleep_for(3s);
  world->ends = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(world->complaint(), "");
  for (ReaderTally const& tally : world->readers) EXPECT_GT(tally.found, 0U);
}

// A file of the store where its writer has it mapped. With room for the whole table it never moves.
class WritersMapping : public Mem::Mapping {
 public:
  WritersMapping(std::byte const* base, std::string path) : base_(base), path_(std::move(path)) {}

  std::byte* attach(std::size_t size, Mem::Access /*access*/, std::size_t /*hint*/) override {
    return resize(size);
  }
  std::byte* resize(std::size_t size) override {
    size_ = size;
    return const_cast<std::byte*>(base_);
  }
  void detach() override { size_ = 0; }
  std::size_t memSize() const override { return std::filesystem::file_size(path_); }
  std::size_t mappedSize() const override { return size_; }
  bool isInPlace() const override { return true; }
  Dovel::String const& error() const override { return nothing_; }
  Dovel::String const& getFilename() const override { return nothing_; }
  void dumpToCoreIs(Mem::CoreDump /*mode*/) override {}
  void removeFile() override {}

 private:
  std::byte const* const base_;
  std::string const path_;
  std::size_t size_ = 0;
  Dovel::String const nothing_;
};

std::byte const* bucketsOf(Writer& writer) {
  return reinterpret_cast<std::byte const*>(&writer.bucketTable().headCell(0) -
                                            VaultCore::BucketTable::kFirstBucketCell);
}

// The parts of a reader, over the writer's mappings.
class ReaderOfTheWritersMemory {
 public:
  ReaderOfTheWritersMemory(Writer& writer, std::string const& folder)
      : slots_(handler(), std::make_unique<WritersMapping>(writer.slotTable().base(), folder + "/slots"),
               counters_),
        buckets_(handler(), std::make_unique<WritersMapping>(bucketsOf(writer), folder + "/buckets")),
        map_(handler(), buckets_, slots_, counters_) {
    buckets_.attach();
    slots_.attach();
  }

  bool lookup(Key key, Value& value) {
    bool found = false;
    untilCurrent([&] { found = map_.lookup(key, &value); }, Dovel::noop);
    return found;
  }
  bool first(Value& value, Vault::IterHint& hint) {
    bool found = false;
    untilCurrent([&] { found = map_.first(0, value, hint); }, Dovel::noop);
    return found;
  }
  bool next(Key key, Value& value, Vault::IterHint& hint) {
    bool found = false;
    untilCurrent([&] { found = map_.next(key, value, hint); },
                 [&] { hint.bucket = Vault::IterHint::kNoBucket; });
    return found;
  }

 private:
  static Dovel::Platform::DebugHandler handler() { return Dovel::Platform::getDebugHandler("Torture", true); }

  template <class Read, class Reset>
  void untilCurrent(Read&& read, Reset&& reset) {
    for (;;) {
      try {
        read();
        if (buckets_.isCurrent()) return;
        follow();
      } catch (Dovel::CorruptionDetectedException const&) {
        if (!follow()) throw;
      }
      reset();
    }
  }
  bool follow() {
    bool moved = false;
    while (slots_.doResize() || buckets_.doResize()) moved = true;
    return moved;
  }

  Vault::Reader::Counters counters_;
  Vault::SlotReaderTable<Ops> slots_;
  VaultCore::BucketReader<Vault::SlotLink> buckets_;
  VaultCore::ReaderHashMap<Ops, Vault::SlotReaderTable<Ops>> map_;
};

// Nothing but the store itself orders what the threads do: the versions go up for each reader by itself.
struct Watcher {
  Watcher(Writer& writer, std::string const& folder) : reader(writer, folder) {}

  ReaderOfTheWritersMemory reader;
  std::vector<Version> versions = std::vector<Version>(kKeys);
  std::string trouble;
  std::uint64_t found = 0;

  void see(Value const& value) {
    if (!value.isWhole() || value.theKey.number >= kKeys) {
      trouble = "a torn record";
    } else if (value.version() < std::exchange(versions[value.theKey.number], value.version())) {
      trouble = "an old version";
    }
    ++found;
  }
  void lookUp(std::uint32_t number) {
    Value value;
    if (reader.lookup({number}, value)) see(value);
  }
  void walk() {
    Value value;
    Vault::IterHint hint;
    Walk::Place last{};
    for (bool more = reader.first(value, hint); more; more = reader.next(value.theKey, value, hint)) {
      see(value);
      Walk::Place const before = std::exchange(last, placeOf(value.theKey));
      if (last < before) trouble = "a walk that goes back";
    }
  }
};

void writeForAWhile(Writer& writer, std::mt19937_64& random) {
  Version version = 1;
  auto const end = std::chrono::steady_clock::now() + 3s;
  while (std::chrono::steady_clock::now() < end) {
    // Turns of filling, of emptying, and of a few keys that change all the time.
    std::uint64_t const turn = version / 8000 % 3;
    auto const number = static_cast<std::uint32_t>(random()) % (turn == 2 ? 12 : kKeys);
    Value value = Record::of({number}, version += 2);
    bool const removes = random() % 16 < (turn == 1 ? 14 : 3);
    if (removes) {
      writer.remove({number}, value);
    } else if (random() % 4 == 0) {
      writer.directWrite(value);
      writer.directCommit();
    } else {
      writer.write(value, true);
    }
  }
}

TEST(ReaderThreads, SeeWholeRecordsOfRisingVersionsInTheWritersOwnMemory) {
  PRINT_SEED_ON_FAILURE();
  Dovel::Trace::levelsIs("Torture", 0);
  TestSupport::StoreDir const folder;
  auto const handler = Dovel::Platform::getDebugHandler("Torture", true);
  Writer writer(handler, Mem::RootPath(handler, folder.path(), true),
                TestSupport::sharedDescriptor(2 * kKeys));
  writer.initialize("torture");
  std::byte const* const slots = writer.slotTable().base();
  std::byte const* const buckets = bucketsOf(writer);
  std::atomic<bool> ends{false};
  std::vector<std::unique_ptr<Watcher>> watchers;
  std::vector<std::thread> threads;
  for (unsigned at = 0; at < 2; ++at) {
    watchers.push_back(std::make_unique<Watcher>(writer, folder.path()));
    threads.emplace_back([&ends, &watcher = *watchers.back(), seed = TestSupport::seed() + at] {
      std::mt19937_64 random(seed);
      while (!ends.load(std::memory_order_relaxed) && watcher.trouble.empty()) {
        if (random() % 500 == 0) watcher.walk();
        watcher.lookUp(static_cast<std::uint32_t>(random()) % (random() % 2 == 0 ? 12 : kKeys));
      }
    });
  }
  std::mt19937_64 random(TestSupport::seed());
  writeForAWhile(writer, random);
  ends.store(true, std::memory_order_relaxed);
  for (std::thread& thread : threads) thread.join();
  for (auto const& watcher : watchers) {
    EXPECT_EQ(watcher->trouble, "");
    EXPECT_GT(watcher->found, 0U);
  }
  EXPECT_GT(writer.counters().slotShrinks, 0U);
  EXPECT_EQ(writer.slotTable().base(), slots);
  EXPECT_EQ(bucketsOf(writer), buckets);
}

}  // namespace
