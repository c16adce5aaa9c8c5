#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "platform/memory/OwnerFile.h"
#include "tests/host/Stores.h"
#include "tests/support/Seed.h"

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using TestSupport::Bytes;
using TestSupport::put32;
using TestSupport::StoreBytes;
using TestSupport::TempDir;

void own(std::string const& directory, bool wiped) {
  Mem::RootPath const path(Dovel::Platform::getDebugHandler("StoreCommandTest", true), directory, true);
  SharedMem::OwnerFile owner(path.debugHandler(), path, false);
  owner.typeNameIs("bcm88490_a0::MplsIsemHwEm::Entry");
  owner.sharedMemTypeIs(1);
  owner.wipedIs(wiped);
}

TEST(StoreCommand, ListsTheStoresBelowTheRoot) {
  StoreRoot const root;
  root.put(storeOf({1, 2, 3}), "b/deep/er");
  own(root.put(storeOf({}), "a"), true);
  StoreBytes interrupted = storeOf({7});
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
  StoreRoot const root;
  std::string const path = root.put(storeOf({}), "b/deep");
  EXPECT_THAT(root.run("list b").out, HasSubstr("\nb/deep "));
  EXPECT_THAT(runShell("HWTABLES_ROOT=/nowhere HWTABLES store list " + root.path()).out,
              HasSubstr("\n" + path + " "));
}

TEST(StoreCommand, ListsAWriterAtWork) {
  StoreRoot const root;
  std::string const path = root.put(storeOf({}), "a");
  HeldLock const lock(path);
  EXPECT_THAT(root.run("list").out, HasSubstr("  held\n"));
  own(path, false);
  EXPECT_THAT(root.run("list").out, HasSubstr(fmt::format("  pid {}\n", ::getpid())));
}

TEST(StoreCommand, SaysWhereThereIsNothingToList) {
  StoreRoot const root;
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
  StoreRoot const root;
  StoreBytes store = storeOf({1, 2, 3});
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
  StoreRoot const root;
  std::string const path = root.put(storeOf({1}), "a");
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
  StoreRoot const root;
  std::string const path = root.put(storeOf({1, 2, 3}), "a");
  own(path, false);
  Outcome const outcome = root.run("check a");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out,
              StartsWith(path + ": sound: 3 records and 5 free slots in 8 slots, 4 buckets, the longest"));
  EXPECT_EQ(root.run("check " + path).out, outcome.out);
}

TEST(StoreCommand, ExitsWithOneAndTheReasonWhereAStoreIsNotSound) {
  StoreRoot const root;
  StoreBytes store = storeOf({1, 2, 3});
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
  StoreRoot const root;
  StoreBytes store = storeOf({1});
  put32(store.slots, store.slotAt(0) + 8, 2);
  root.put(store, "a");
  Outcome const outcome = root.run("check a");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.out, HasSubstr(": not sound: slot 0 holds the hash 0x"));
}

TEST(StoreCommand, DoesNotVouchForATypeThatItDoesNotKnow) {
  StoreRoot const root;
  std::string const path = root.put(storeOf({1}, "Other"), "a");
  Outcome const outcome = root.run("check a");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.out,
            path +
                ": the structure is sound: 1 records and 7 free slots in 8 slots, 4 buckets, the longest "
                "chain has 1\n"
                "  the keys were not judged: the bundle knows no type \"bcm88490_a0::Other::Entry\"\n");
}

TEST(StoreCommand, RefusesToJudgeAStoreThatIsBeingWritten) {
  StoreRoot const root;
  std::string const path = root.put(storeOf({1}), "a");
  HeldLock const lock(path);
  Outcome const outcome = root.run("check a");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "hwtables: " + path + " is being written (held): a store can be judged only at rest\n");
}

TEST(StoreCommand, ExitsWithOneWhereThereIsNoStore) {
  StoreRoot const root;
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

TEST(StoreCommand, LetsNoFileSteerTheTerminal) {
  StoreRoot const root;
  StoreBytes store = storeOf({1}, "\x1b[2J\n\xff");
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
  StoreRoot const root;
  StoreBytes const good = storeOf({1, 2, 3, 4, 5});
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
  StoreRoot const root;
  std::string const path = root.put(storeOf({1}), "a");
  auto const look = [&] { return runShell("cd " + root.path() + "; find . -printf '%p %T@ %i %s\\n'").out; };
  std::string const before = look();
  for (char const* const command : {"list", "show a", "check a", "dump a"}) root.run(command);
  EXPECT_EQ(look(), before);
}

}  // namespace
