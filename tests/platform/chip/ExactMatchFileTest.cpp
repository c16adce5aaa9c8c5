// Exact-match entries that are kept in files, through the lives of the processes that use them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

#include "runtime/Dovel/Exception.h"
#include "tests/platform/chip/ExactMatchSupport.h"
#include "tests/platform/memory/Processes.h"
#include "tests/support/Files.h"
#include "tests/support/Message.h"
#include "tests/support/Seed.h"

namespace {

using namespace TestSupport;
using Sluice::SchanStatus;
using testing::HasSubstr;

// Where things stand in a file with room for 1024 entries a physical table, told here anew.
constexpr std::size_t kLife = 32;
constexpr std::size_t kRoom = 36;
constexpr std::size_t kHead = 64 + 64;           // of physical table 64, the second
constexpr std::size_t kMarks = 2019328;          // one byte a table
constexpr std::size_t kTables = kMarks + 4096;   // 32 KiB each
constexpr std::size_t kSlots = kTables + 32768;  // of physical table 64

struct ExactMatchFile : ExactMatchRig {
  TempDir const dir;
  std::string const path = dir.file("fap-0.chip");

  ExactMatchFile() { open(); }
  void open(std::uint32_t entries = 1024) { chipIs({1, dir.path(), entries}); }
  void close() { chip = nullptr; }

  // Opens the chip again after a change of its file.
  template <class Change>
  void reopened(Change const& change) {
    close();
    std::string bytes = contentOf(path);
    change(bytes);
    writeFile(path, bytes);
    open();
  }
  static void put(std::string& bytes, std::size_t at, std::uint64_t word) {
    std::memcpy(&bytes.at(at), &word, sizeof word);
  }
  static void put(std::string& bytes, std::size_t at, Entry const& entry) {
    std::memcpy(&bytes.at(at), entry.data(), entry.size());
  }
  static std::uint64_t word(std::string const& bytes, std::size_t at) {
    std::uint64_t word = 0;
    std::memcpy(&word, &bytes.at(at), sizeof word);
    return word;
  }
  off_t blockBytes() const {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_blocks * 512;
  }
};

TEST_F(ExactMatchFile, KeepsEntriesForTheNextLife) {
  for (Database const& database : kDatabases)
    for (std::uint64_t key = 0; key < 40; ++key) write(database, key, key + database.tid);
  del(kMpls, 7);
  open();
  EXPECT_TRUE(chip->programmed(0));
  for (Database const& database : kDatabases) {
    for (std::uint64_t key = 0; key < 40; ++key) {
      if (database.tid == kMpls.tid && key == 7) continue;
      EXPECT_EQ(look(database, key), entryOf(database, key, key + database.tid));
    }
    EXPECT_EQ(flushAnswer(run(markOf(database))).entries, database.tid == kMpls.tid ? 39U : 40U);
  }
}

TEST_F(ExactMatchFile, StandsWhereItIsDocumented) {
  std::uint64_t const slot = address(write(kMpls, 5, 9));
  std::string const bytes = contentOf(path);
  EXPECT_EQ(bytes.size(), kTables + 3 * 32768);
  EXPECT_EQ(word(bytes, kRoom) & 0xFFFFFFFF, 1024U);
  EXPECT_EQ(word(bytes, kHead), 1U);
  EXPECT_EQ(bytes.substr(kMarks, 3), std::string("\0\1\0", 3));
  EXPECT_EQ(word(bytes, kSlots + 32 * slot), 1U << 2 | 1);
  EXPECT_EQ(std::memcmp(&bytes.at(kSlots + 32 * slot + 8), entryOf(kMpls, 5, 9).data(), 24), 0);
  write(kMpls, 5, 10);
  std::string const updated = contentOf(path);
  EXPECT_EQ(word(updated, kHead), 2U);
  EXPECT_EQ(word(updated, kHead + 8), 0U);
  EXPECT_EQ(word(updated, kSlots + 32 * slot), 2U << 2 | 1);
}

TEST_F(ExactMatchFile, AnotherRoomIsRefused) {
  close();
  EXPECT_EQ(messageOf<Dovel::InvalidInitializeException>([this] { open(2048); }),
            path + " is no chip of this program: its physical tables have room for 1024 entries, not 2048");
  open(1024);
}

TEST_F(ExactMatchFile, KeepsAResetAndMakesOneThatWasCutOffWhole) {
  for (Database const& database : kDatabases) write(database, 1);
  reopened([](std::string& bytes) { bytes[kLife] = 2; });
  EXPECT_FALSE(chip->programmed(0));
  for (Database const& database : kDatabases) EXPECT_TRUE(entries(database).empty());
  write(kMpls, 1);
  chip->reset(0);
  open();
  EXPECT_TRUE(entries(kMpls).empty());
}

TEST_F(ExactMatchFile, AnInsertionThatWasCutOffIsNone) {
  std::uint64_t const slot = address(write(kMpls, 5));
  reopened([&](std::string& bytes) { put(bytes, kSlots + 32 * slot, 0); });
  EXPECT_FALSE(has(kMpls, 5));
  EXPECT_EQ(address(write(kMpls, 5)), slot);
}

TEST_F(ExactMatchFile, AnUpdateThatWasCutOffIsMadeWhole) {
  std::uint64_t const slot = address(write(kMpls, 5, 1));
  reopened([&](std::string& bytes) {
    put(bytes, kHead + 8, slot + 1);
    put(bytes, kHead + 16, entryOf(kMpls, 5, 2));
    put(bytes, kSlots + 32 * slot, 2);
    bytes.replace(kSlots + 32 * slot + 8, 12, 12, 'x');
  });
  EXPECT_EQ(look(kMpls, 5), entryOf(kMpls, 5, 2));
  close();
  EXPECT_EQ(word(contentOf(path), kHead + 8), 0U);
}

TEST_F(ExactMatchFile, AnUpdateThatHadNotBegunIsNone) {
  std::uint64_t const slot = address(write(kMpls, 5, 1));
  reopened([&](std::string& bytes) { put(bytes, kHead + 16, entryOf(kMpls, 5, 2)); });
  EXPECT_EQ(resultOf(kMpls, 5), 1U);
  EXPECT_EQ(address(write(kMpls, 5, 3)), slot);
}

TEST_F(ExactMatchFile, AChangeOfASlotThatThereIsNotIsIgnored) {
  write(kMpls, 5, 1);
  for (std::uint64_t slot : {std::uint64_t{1025}, ~std::uint64_t{0}}) {
    reopened([&](std::string& bytes) {
      put(bytes, kHead + 8, slot);
      put(bytes, kHead + 16, entryOf(kMpls, 6));
    });
    EXPECT_EQ(entries(kMpls).size(), 1U);
  }
}

TEST_F(ExactMatchFile, WhatNoLookUpCouldFindIsDropped) {
  for (std::uint64_t key = 0; key < 8; ++key) write(kMpls, key);
  auto const slotOf = [this](std::uint64_t key) { return kSlots + 32 * address(write(kMpls, key)); };
  std::array const slots{slotOf(0), slotOf(1), slotOf(2), slotOf(3)};
  reopened([&](std::string& bytes) {
    put(bytes, slots[0], 2);                            // being changed by nobody
    put(bytes, slots[1] + 8, entryOf(kMpls, 0x12345));  // a key that belongs elsewhere
    put(bytes, slots[2] + 8, entryOf(kSVlan, 2));       // a database of another physical table
    Entry entry = entryOf(kMpls, 3);
    bitsAre(entry, 167, 3, 0);
    put(bytes, slots[3] + 8, entry);
  });
  EXPECT_EQ(entries(kMpls).size(), 4U);
  for (std::uint64_t key = 0; key < 8; ++key) EXPECT_EQ(has(kMpls, key), key >= 4);
  reopened([&](std::string& bytes) {
    for (std::size_t slot : slots) EXPECT_EQ(word(bytes, slot), 0U);
  });
}

TEST_F(ExactMatchFile, OfAKeyThatStandsTwiceOneIsDropped) {
  std::uint64_t const slot = address(write(kMpls, 5, 1));
  std::uint64_t const other = slot % 4 == 3 ? slot - 1 : slot + 1;
  reopened([&](std::string& bytes) {
    put(bytes, kSlots + 32 * other, 99U << 2 | 1);
    put(bytes, kSlots + 32 * other + 8, entryOf(kMpls, 5, 2));
  });
  EXPECT_EQ(entries(kMpls).size(), 1U);
  del(kMpls, 5);
  EXPECT_FALSE(has(kMpls, 5));
}

TEST_F(ExactMatchFile, OpensWhateverItHolds) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(seed());
  for (unsigned round = 0; round < 20; ++round) {
    for (Database const& database : kDatabases)
      for (std::uint64_t key = 0; key < 20; ++key) write(database, key);
    reopened([&](std::string& bytes) {
      for (unsigned number = 0; number < 20000; ++number) {
        std::size_t const at = 64 + random() % (bytes.size() - 64);
        if (at < 64 + 192 || at >= kMarks) bytes[at] = static_cast<char>(random());
      }
    });
    for (Database const& database : kDatabases) {
      for (std::uint64_t key = 0; key < 20; ++key) look(database, key);
      entries(database);
      run(passOf(database, Action::remove));
      EXPECT_TRUE(entries(database).empty());
    }
  }
}

// A process may be killed at any moment, so at any moment the head tells of the change that is under way.
TEST_F(ExactMatchFile, AChangeStandsInTheHeadForAsLongAsItLasts) {
  std::uint64_t const slot = address(write(kMpls, 5));
  int const file = ::open(path.c_str(), O_RDONLY);
  ASSERT_GE(file, 0);
  void* const mapped = ::mmap(nullptr, kSlots + 32768, PROT_READ, MAP_SHARED, file, 0);
  ::close(file);
  ASSERT_NE(mapped, MAP_FAILED);
  auto const loaded = [mapped](std::size_t at) {
    auto* const word = reinterpret_cast<std::uint64_t*>(static_cast<std::byte*>(mapped) + at);
    return std::atomic_ref(*word).load(std::memory_order_acquire);
  };
  std::atomic<unsigned> seen = 0;
  std::atomic<unsigned> untold = 0;
  std::atomic<bool> stopped = false;
  std::thread watcher([&] {
    while (!stopped.load()) {
      std::uint64_t const changes = loaded(kHead);
      if ((loaded(kSlots + 32 * slot) & 2) == 0) continue;
      bool const told = loaded(kHead + 8) == slot + 1 && (loaded(kHead + 16) & 0x1FF) == kWrite;
      if ((loaded(kSlots + 32 * slot) & 2) == 0 || loaded(kHead) != changes) continue;
      ++seen;
      if (!told) ++untold;
    }
  });
  std::array const messages{messageOf(kMpls, entryOf(kMpls, 5, 1)), messageOf(kMpls, entryOf(kMpls, 5, 2))};
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (seen.load() < 100 && std::chrono::steady_clock::now() < end)
    for (unsigned number = 0; number < 1000; ++number) answerTo(*chip, messages[number % 2]);
  stopped = true;
  watcher.join();
  ::munmap(mapped, kSlots + 32768);
  EXPECT_EQ(untold.load(), 0U);
}

// Updates keys over and over, each with its generation in two words.
Entry generationOf(std::uint64_t key, std::uint64_t generation) {
  Entry entry = entryOf(kMpls, key, generation);
  bitsAre(entry, 128, 13, generation);
  return entry;
}

[[noreturn]] void updateForever(std::string const& directory, Signpost const& written) {
  auto const chip = chipOf(1, directory);
  for (std::uint64_t number = 0;; ++number) {
    std::uint64_t const key = number % 300;
    MUST(answerTo(*chip, messageOf(kMpls, generationOf(key, number / 300 & 0x1FFF))).status ==
         SchanStatus::ok);
    std::uint64_t const passing = 1000 + number % 50;
    MUST(answerTo(*chip, messageOf(kMpls, entryOf(kMpls, passing, 1, number % 100 < 50 ? kWrite : kDelete)))
             .status == SchanStatus::ok);
    if (number % 1000 == 0) {
      Sluice::SchanResponse response;
      chip->flush(0, markOf(kMpls), response);
      MUST(response.status == SchanStatus::ok);
    }
    if (number == 2000) written.tell();
  }
}

TEST_F(ExactMatchFile, NoKeyIsLostWithAProcessThatIsKilled) {
  for (unsigned round = 0; round < 20; ++round) {
    close();
    Signpost const written;
    pid_t const child = forked([&] { updateForever(dir.path(), written); });
    EXPECT_TRUE(written.wait());
    ::usleep(round * 100);
    ::kill(child, SIGKILL);
    EXPECT_EQ(WTERMSIG(waitedFor(child)), SIGKILL);
    open();
    for (std::uint64_t key = 0; key < 300; ++key) {
      auto const entry = look(kMpls, key);
      ASSERT_TRUE(entry.has_value()) << key;
      EXPECT_EQ(bitsOf(*entry, 64, 17), bitsOf(*entry, 128, 13)) << key;
    }
  }
}

TEST_F(ExactMatchFile, TakesRoomAsItIsUsedAndGivesItBack) {
  close();
  std::filesystem::remove(path);
  open(262144);
  off_t const blank = blockBytes();
  EXPECT_LT(blank, off_t{2} << 20);
  EXPECT_GT(std::filesystem::file_size(path), 3U * 262144 * 32);
  write(kMpls, 1);
  off_t const one = blockBytes();
  EXPECT_GE(one, blank + 65536);
  EXPECT_LT(one, blank + 4 * 65536);
  for (std::uint64_t key = 0; key < 2000; ++key) write(kMpls, key);
  EXPECT_GE(blockBytes(), blank + 262144 * 32);
  for (Database const& database : {kSVlan, kVsiToVni}) {
    EXPECT_EQ(flushAnswer(run(passOf(database, Action::remove))).entries, 0U);
    EXPECT_TRUE(entries(database).empty());
  }
  EXPECT_LT(blockBytes(), blank + 262144 * 32 + 65536);
  chip->reset(0);
  EXPECT_LE(blockBytes(), blank + 65536);
  write(kMpls, 1);
  EXPECT_EQ(entries(kMpls).size(), 1U);
}

// A file that can't be given more room, since its descriptor is one to read by now.
TEST_F(ExactMatchFile, HasNoRoomForAKeyWhereTheDiskHasNone) {
  close();
  std::filesystem::remove(path);
  open(262144);
  std::uint64_t const slot = address(write(kMpls, 1));
  pid_t const child = forked([&] {
    int const reading = ::open(path.c_str(), O_RDONLY);
    for (auto const& link : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code error;
      int const number = std::stoi(link.path().filename());
      if (number != reading && std::filesystem::read_symlink(link.path(), error) == path)
        MUST(::dup2(reading, number) == number);
    }
    MUST(write(kSVlan, 1).status == SchanStatus::bucketFull);
    MUST(!has(kSVlan, 1));
    MUST(write(kMpls, 1, 2).status == SchanStatus::ok);
  });
  EXPECT_EQ(waitedFor(child), 0);
  open(262144);
  EXPECT_EQ(address(write(kMpls, 1)), slot);
  EXPECT_TRUE(entries(kSVlan).empty());
}

}  // namespace
