#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "platform/memory/OwnerFile.h"
#include "runtime/Orlo/Hash.h"
#include "tests/host/Program.h"
#include "tests/support/Files.h"
#include "tests/support/Seed.h"
#include "tests/support/StoreBytes.h"

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using TestSupport::Bytes;
using TestSupport::put32;
using TestSupport::StoreBytes;
using TestSupport::TempDir;

constexpr std::uint32_t kSeed = 0x5eed;

// A row of MplsIsemHwEm: label and bottom-of-stack bit as the key, and the label in the row's bits 9 to 28.
StoreBytes::Record row(std::uint32_t label) {
  Bytes value(32);
  put32(value, 0, label);
  value[4] = std::byte{1};
  put32(value, 8, label << 9);
  Orlo::Hash hash(kSeed);
  hash.hashMix(label);
  hash.hashMix(std::uint8_t{1});
  return {value, hash.result()};
}

StoreBytes rows(std::vector<std::uint32_t> const& labels, std::string const& type = "MplsIsemHwEm") {
  std::vector<StoreBytes::Record> records;
  for (std::uint32_t const label : labels) records.push_back(row(label));
  return {{"bcm88490_a0::" + type + "::Entry", 32, 8, 4, 0x00050006, kSeed}, records};
}

// The root of all stores of a test.
class Root {
 public:
  // Makes the directory of a store.
  std::string make(std::string const& name) const {
    std::string const path = dir_.file(name);
    for (std::size_t at = dir_.path().size() + 1; at < path.size(); ++at) {
      if (path[at] == '/') ::mkdir(path.substr(0, at).c_str(), 0755);
    }
    ::mkdir(path.c_str(), 0755);
    return path;
  }
  std::string put(StoreBytes const& store, std::string const& name) const {
    std::string const path = make(name);
    store.writeTo(path);
    return path;
  }
  std::string const& path() const { return dir_.path(); }
  Outcome run(std::string const& command) const {
    return runShell("HWTABLES_ROOT=" + dir_.path() + " HWTABLES store " + command);
  }

 private:
  TempDir const dir_;
};

// The lock of a writer at work.
class HeldLock {
 public:
  explicit HeldLock(std::string const& directory)
      : file_(::open((directory + "/.writer.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    EXPECT_EQ(::fcntl(file_, F_OFD_SETLK, &lock), 0);
  }
  HeldLock(HeldLock const&) = delete;
  HeldLock& operator=(HeldLock const&) = delete;
  ~HeldLock() { ::close(file_); }

 private:
  int const file_;
};

void own(std::string const& directory, bool wiped) {
  Mem::RootPath const path(Dovel::Platform::getDebugHandler("StoreCommandTest", true), directory, true);
  SharedMem::OwnerFile owner(path.debugHandler(), path, false);
  owner.typeNameIs("bcm88490_a0::MplsIsemHwEm::Entry");
  owner.sharedMemTypeIs(1);
  owner.wipedIs(wiped);
}

TEST(StoreCommand, ListsTheStoresBelowTheRoot) {
  Root const root;
  root.put(rows({1, 2, 3}), "b/deep/er");
  own(root.put(rows({}), "a"), true);
  StoreBytes interrupted = rows({7});
  put32(interrupted.slots, 556, 1U << 16);
  std::string const marked = root.put(interrupted, "c");
  TestSupport::writeFile(marked + "/corruption-detected", "");
  ::unlink((marked + "/control").c_str());
  TestSupport::writeFile(root.make("d") + "/control", "");
  root.make("none");
  ASSERT_EQ(::symlink(root.path().c_str(), (root.path() + "/none/round").c_str()), 0);
  Outcome const outcome = root.run("list");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(
      outcome.out,
      "PATH       TYPE                              RECORDS  SLOTS  BUCKETS  GENERATION  WRITER  MARKS\n"
      "a          bcm88490_a0::MplsIsemHwEm::Entry        0      8        4  0x00050006  free    wiped\n"
      "b/deep/er  bcm88490_a0::MplsIsemHwEm::Entry        3      8        4  0x00050006  free\n"
      "c          bcm88490_a0::MplsIsemHwEm::Entry        1      8        4  0x00050006  free    corrupt, "
      "interrupted, incomplete\n"
      "d          no slots                                0      0        0  0x00000000  free\n");
}

TEST(StoreCommand, ListsPathsAsOtherCommandsTakeThem) {
  Root const root;
  std::string const path = root.put(rows({}), "b/deep");
  EXPECT_THAT(root.run("list b").out, HasSubstr("\nb/deep "));
  EXPECT_THAT(runShell("HWTABLES_ROOT=/nowhere HWTABLES store list " + root.path()).out,
              HasSubstr("\n" + path + " "));
}

TEST(StoreCommand, ListsAWriterAtWork) {
  Root const root;
  std::string const path = root.put(rows({}), "a");
  HeldLock const lock(path);
  EXPECT_THAT(root.run("list").out, HasSubstr("  held\n"));
  own(path, false);
  EXPECT_THAT(root.run("list").out, HasSubstr(fmt::format("  pid {}\n", ::getpid())));
}

TEST(StoreCommand, SaysWhereThereIsNothingToList) {
  Root const root;
  Outcome const empty = root.run("list");
  EXPECT_EQ(empty.exitCode, 0);
  EXPECT_EQ(empty.out, "");
  EXPECT_EQ(empty.err, "hwtables: there are no stores below " + root.path() + "\n");
  Outcome const absent = root.run("list no/where");
  EXPECT_EQ(absent.exitCode, 1);
  EXPECT_EQ(absent.err,
            "hwtables: cannot look into " + root.path() + "/no/where: No such file or directory\n");
}

TEST(StoreCommand, ShowsAStore) {
  Root const root;
  StoreBytes store = rows({1, 2, 3});
  put32(store.slots, 584, 1);
  put32(store.slots, 572, 16);
  put32(store.buckets, 16, 2);
  std::string const path = root.put(store, "a");
  Outcome const outcome = root.run("show a");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out, StartsWith(path + "\n  type         bcm88490_a0::MplsIsemHwEm::Entry\n"
                                             "  generation   0x00050006, written 20"));
  EXPECT_THAT(outcome.out, HasSubstr("  writer       none\n"
                                     "  records      3 in 8 slots, 0.38 full\n"
                                     "  buckets      4, 0.75 records a bucket\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\n  free list    5 slots\n"
                                     "  growth       slots changed once, most ever 16; buckets changed 2 "
                                     "times; records at most 3\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\nslots: 1040 bytes\n"
                                     "     0  magic               0x6c737468\n"
                                     "     4  header size         608\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\n   576  hash seed           0x00005eed\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\nbuckets: 56 bytes\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\nowner: none\n"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("changing")));
}

TEST(StoreCommand, ShowsWhatChangedWhileItLooked) {
  Root const root;
  std::string const path = root.put(rows({1}), "a");
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    int const slots = ::open((path + "/slots").c_str(), O_RDWR | O_CLOEXEC);
    int const buckets = ::open((path + "/buckets").c_str(), O_RDWR | O_CLOEXEC);
    for (std::uint64_t version = 0; !stop; ++version) {
      std::uint64_t const eight = std::uint64_t{8} << 32 | (version & 0xffffffff);
      std::uint64_t const four = std::uint64_t{4} << 32 | (version & 0xffffffff);
      EXPECT_EQ(::pwrite(slots, &eight, 8, 584), 8);
      EXPECT_EQ(::pwrite(buckets, &four, 8, 16), 8);
    }
    ::close(slots);
    ::close(buckets);
  });
  // A read takes microseconds; in some of them the writer has a processor, too.
  bool slotsSeen = false;
  bool bucketsSeen = false;
  for (unsigned attempt = 0; attempt < 500 && !(slotsSeen && bucketsSeen); ++attempt) {
    std::string const out = root.run("show a").out;
    slotsSeen = slotsSeen || out.find("  records      1 in 8 slots (changing), 0.12 full\n") != out.npos;
    bucketsSeen = bucketsSeen || out.find("  buckets      4 (changing), 0.25 records a bucket\n") != out.npos;
  }
  stop = true;
  writer.join();
  EXPECT_TRUE(slotsSeen);
  EXPECT_TRUE(bucketsSeen);
}

TEST(StoreCommand, FindsASoundStoreSound) {
  Root const root;
  std::string const path = root.put(rows({1, 2, 3}), "a");
  own(path, false);
  Outcome const outcome = root.run("check a");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out,
              StartsWith(path + ": sound: 3 records and 5 free slots in 8 slots, 4 buckets, the longest"));
  EXPECT_EQ(root.run("check " + path).out, outcome.out);
}

TEST(StoreCommand, ExitsWithOneAndTheReasonWhereAStoreIsNotSound) {
  Root const root;
  StoreBytes store = rows({1, 2, 3});
  put32(store.slots, 556, 1U << 16);
  put32(store.slots, 564, 4);
  std::string const path = root.put(store, "a");
  TestSupport::writeFile(path + "/owner", "junk");
  TestSupport::writeFile(path + "/corruption-detected", "");
  Outcome const outcome = root.run("check a");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.out,
            path + ": not sound: bad critical section runtimeFlags:1\n" +
                "  and: bad occupiedSlots:4, 3 records are on chains\n" + "  and: bad owner file " + path +
                "/owner: first copy short, second copy short\n" + "  somebody has marked it as corrupt\n");
}

TEST(StoreCommand, JudgesKeysByTheirType) {
  Root const root;
  StoreBytes store = rows({1});
  put32(store.slots, store.slotAt(0) + 8, 2);
  root.put(store, "a");
  Outcome const outcome = root.run("check a");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.out, HasSubstr(": not sound: slot 0 holds the hash 0x"));
}

TEST(StoreCommand, DoesNotVouchForATypeThatItDoesNotKnow) {
  Root const root;
  std::string const path = root.put(rows({1}, "Other"), "a");
  Outcome const outcome = root.run("check a");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.out,
            path +
                ": the structure is sound: 1 records and 7 free slots in 8 slots, 4 buckets, the longest "
                "chain has 1\n"
                "  the keys were not judged: the bundle knows no type \"bcm88490_a0::Other::Entry\"\n");
}

TEST(StoreCommand, RefusesToJudgeAStoreThatIsBeingWritten) {
  Root const root;
  std::string const path = root.put(rows({1}), "a");
  HeldLock const lock(path);
  Outcome const outcome = root.run("check a");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "hwtables: " + path + " is being written (held): a store can be judged only at rest\n");
}

TEST(StoreCommand, DumpsSlotsDecodedAndRaw) {
  Root const root;
  StoreBytes store = rows({0x12345});
  put32(store.slots, store.linkAt(1), 0x40000002);
  root.put(store, "a");
  Outcome const outcome = root.run("dump a --first 2");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  std::string const hash = fmt::format("{:08x}", TestSupport::get32(store.slots, store.hashAt(0)));
  std::string const link = fmt::format("{:08x}", TestSupport::get32(store.slots, store.linkAt(0)));
  auto const swapped = [](std::string const& word) {
    return word.substr(6, 2) + word.substr(4, 2) + word.substr(2, 2) + word.substr(0, 2);
  };
  std::string const next = link == "bfffffff" ? "nil" : fmt::format("bucket {}", link.substr(7));
  std::string const zeroes(32, '0');
  EXPECT_EQ(outcome.out,
            fmt::format("slot 0  occupied  sequence 0x5  next {}  hash 0x{}\n"
                        "  00000290  05000000{}4523010001000000008a4602{}\n"
                        "  000002b0  0000000000000000{}00000000\n"
                        "  bcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:74565,mplsBos:1) mplsLabel:74565 "
                        "key:74565 entry:0x0000000000000000000000000000012345\n"
                        "slot 1  free  sequence 0x4  next slot 2  flag  hash 0x00000000\n"
                        "  000002c0  0400000002000040{}{}\n"
                        "  000002e0  {}\n",
                        next, hash, swapped(link), zeroes.substr(0, 24), swapped(hash), zeroes,
                        zeroes.substr(0, 16), zeroes));
}

TEST(StoreCommand, DumpsJsonForPrograms) {
  Root const root;
  StoreBytes const store = rows({10, 11, 12});
  std::string const path = root.put(store, "a");
  Json const dump = Json::parse(root.run("dump a --json").out);
  EXPECT_EQ(dump["path"], path);
  EXPECT_EQ(dump["type"], "bcm88490_a0::MplsIsemHwEm::Entry");
  EXPECT_EQ(dump["generation"], 0x00050006);
  EXPECT_EQ(dump["numSlots"], 8);
  EXPECT_EQ(dump["live"], false);
  ASSERT_EQ(dump["slots"].size(), 8U);
  Json const& second = dump["slots"][1];
  EXPECT_EQ(second["id"], 1);
  EXPECT_EQ(second["occupied"], true);
  EXPECT_EQ(second["sequence"], 5);
  EXPECT_EQ(second["hash"], TestSupport::get32(store.slots, store.hashAt(1)));
  EXPECT_EQ(second["key"], "bcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:11,mplsBos:1)");
  EXPECT_EQ(second["fields"]["mplsLabel"], 11);
  EXPECT_EQ(second["fields"]["hits"], 0);
  EXPECT_EQ(second["bytes"].get<std::string>().size(), 96U);
  Json const& last = dump["slots"][7];
  EXPECT_EQ(last["occupied"], false);
  EXPECT_EQ(last["next"], nullptr);
  EXPECT_FALSE(last.contains("fields"));
  EXPECT_EQ(dump["slots"][6]["next"], Json({{"slot", 7}}));
  Json const one = Json::parse(root.run("dump a --json --slot 2").out);
  ASSERT_EQ(one["slots"].size(), 1U);
  EXPECT_EQ(one["slots"][0]["id"], 2);
}

TEST(StoreCommand, DumpsBytesAloneOfATypeThatItDoesNotKnow) {
  Root const root;
  root.put(rows({1}, "Other"), "a");
  std::string const out = root.run("dump a --slot 0").out;
  EXPECT_THAT(out, StartsWith("slot 0  occupied  sequence 0x5  "));
  EXPECT_THAT(out, Not(HasSubstr("EntryKey")));
  EXPECT_FALSE(Json::parse(root.run("dump a --slot 0 --json").out)["slots"][0].contains("key"));
}

TEST(StoreCommand, SaysThatADumpOfAStoreAtWorkIsOfDifferentMoments) {
  Root const root;
  HeldLock const lock(root.put(rows({1}), "a"));
  Outcome const outcome = root.run("dump a");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "hwtables: a writer is at work: the slots are of different moments\n");
}

TEST(StoreCommand, ExitsWithTwoForASlotThatThereIsNot) {
  Root const root;
  std::string const path = root.put(rows({1}), "a");
  Outcome const outcome = root.run("dump a --slot 8");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_EQ(outcome.err, "hwtables: there is no slot 8: " + path + " has 8\n");
  EXPECT_EQ(root.run("dump a --slot 1 --first 2").exitCode, 2);
}

TEST(StoreCommand, ExitsWithOneWhereThereIsNoStore) {
  Root const root;
  root.make("empty");
  for (std::string const command : {"show", "check", "dump"}) {
    Outcome const absent = root.run(command + " gone");
    EXPECT_EQ(absent.exitCode, 1);
    EXPECT_EQ(absent.err, "hwtables: cannot open " + root.path() + "/gone: No such file or directory\n");
    Outcome const empty = root.run(command + " empty");
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_EQ(empty.err, "hwtables: there is no store in " + root.path() + "/empty\n");
  }
}

TEST(StoreCommand, SaysWhyNoSlotsCanBeDumped) {
  Root const root;
  TestSupport::writeFile(root.make("a") + "/control", "");
  EXPECT_EQ(root.run("dump a").err, "hwtables: no slots can be read in " + root.path() + "/a: absent\n");
  StoreBytes store = rows({1});
  put32(store.slots, 12, 40);
  root.put(store, "b");
  Outcome const outcome = root.run("dump b");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err,
            "hwtables: no slots can be read in " + root.path() + "/b: the header's sizes make no sense\n");
}

TEST(StoreCommand, LetsNoFileSteerTheTerminal) {
  Root const root;
  StoreBytes store = rows({1}, "\x1b[2J\n\xff");
  root.put(store, "a\x1b");
  for (std::string const command :
       {"list", "show a$'\\x1b'", "check a$'\\x1b'", "dump a$'\\x1b'", "dump --json a$'\\x1b'"}) {
    Outcome const outcome = root.run(command);
    EXPECT_THAT(outcome.out, Not(HasSubstr("\x1b"))) << command;
    EXPECT_NE(outcome.out, "") << command;
  }
  EXPECT_TRUE(Json::accept(root.run("dump --json a$'\\x1b'").out));
}

// Every command ends by itself and tells of no success that isn't.
TEST(StoreCommand, EndsOnAnyFiles) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  Root const root;
  StoreBytes const good = rows({1, 2, 3, 4, 5});
  for (unsigned run = 0; run < 12; ++run) {
    StoreBytes store = good;
    for (Bytes* const file : {&store.slots, &store.buckets, &store.ember}) {
      bool const all = random() % 3 == 0;
      for (std::byte& byte : *file) {
        if (all || random() % 64 == 0) byte = static_cast<std::byte>(random());
      }
      file->resize(random() % (file->size() + 1));
    }
    std::string const path = root.put(store, "a");
    TestSupport::writeFile(path + "/owner", std::string(random() % 3000, static_cast<char>(random())));
    EXPECT_EQ(root.run("list").exitCode, 0);
    EXPECT_EQ(root.run("show a").exitCode, 0);
    EXPECT_EQ(root.run("check a").exitCode, 1);
    EXPECT_LE(root.run("dump a").exitCode, 1);
    EXPECT_LE(root.run("dump a --json").exitCode, 1);
  }
}

TEST(StoreCommand, MakesAndChangesNothing) {
  Root const root;
  std::string const path = root.put(rows({1}), "a");
  auto const look = [&] { return runShell("cd " + root.path() + "; find . -printf '%p %T@ %i %s\\n'").out; };
  std::string const before = look();
  for (char const* const command : {"list", "show a", "check a", "dump a"}) root.run(command);
  EXPECT_EQ(look(), before);
}

}  // namespace
