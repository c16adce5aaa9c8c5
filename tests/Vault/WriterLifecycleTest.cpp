// How a writer comes to its files and lets go of them: what it adopts, what it wipes and why, and who may
// not.
#include "Vault/WriterLifecycle.h"

#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <sys/wait.h>

#include <set>

#include "Vault/Util.h"
#include "platform/memory/ControlFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Message.h"
#include "tests/support/TestStore.h"

namespace {

using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Record32 = TestRecord<ChosenKey, 32>;
using Store32 = Store<Record32>;
using Writer32 = WriterOf<Record32>;

ChosenKey keyOf(std::uint32_t number) { return {number, number * 2654435761U}; }

std::unique_ptr<Writer32> opened(std::string const& path) {
  auto writer = std::make_unique<Writer32>(storeHandler(), Mem::RootPath(storeHandler(), path, true),
                                           sharedDescriptor(1000));
  writer->initialize("test");
  return writer;
}

class WriterLifecycle : public testing::Test {
 protected:
  void SetUp() override {
    for (std::uint32_t number = 0; number < 3; ++number) store_.write(keyOf(number), number);
    ember_ = store_->emberId();
  }
  std::string path() const { return store_.folder().path(); }
  SharedMem::OwnerFile owner() const { return {storeHandler(), store_.root(), false, false}; }
  std::uint32_t emberInFile() const { return wordAt<std::uint32_t>(bytesOf(store_.file("ember")), 0); }

  void expectAdopted() {
    EXPECT_EQ(store_->emberId(), ember_);
    EXPECT_EQ(store_.image().expectSound(), 3U);
    EXPECT_EQ(emberInFile(), ember_.value());
  }
  // An empty table of another generation.
  void expectWiped() {
    EXPECT_NE(store_->emberId(), ember_);
    Image const image = store_.image();
    EXPECT_EQ(image.expectSound(), 0U);
    EXPECT_EQ(image.ember(), store_->emberId().value());
    EXPECT_EQ(image.bucketEmber(), store_->emberId().value());
    EXPECT_EQ(emberInFile(), store_->emberId().value());
    EXPECT_TRUE(owner().wiped());
    EXPECT_TRUE(store_->validate());
  }
  std::string wipedTraces() {
    std::string const traces = tracesOf("0-2", [&] { store_.open(); });
    expectWiped();
    EXPECT_THAT(traces, HasSubstr("all entries from " + path() + " will be lost"));
    EXPECT_THAT(traces, HasSubstr("re-formatted successfully"));
    return traces;
  }
  // Of the other machine start that the owner file then tells of.
  void changeBootId() {
    for (std::size_t const at : {0U, 1024U}) {
      auto record = wordAt<SharedMem::OwnerRecord>(bytesOf(store_.file("owner")), at);
      record.bootId[0] = record.bootId[0] == '0' ? '1' : '0';
      record.crc = record.computedCrc();
      poke(store_.file("owner"), at, &record, sizeof record);
    }
  }

  Store32 store_;
  SharedMem::EmberId ember_;
};

TEST_F(WriterLifecycle, ANewTableIsCompleteOnceAttached) {
  EXPECT_NE(ember_, SharedMem::EmberId());
  EXPECT_EQ(emberInFile(), ember_.value());
  EXPECT_EQ(bytesOf(store_.file("ember")).size() >= 64, true);
  EXPECT_EQ(ember_.value() & 0xffff, static_cast<std::uint32_t>(::getpid()) & 0xffff);
  EXPECT_EQ(owner().typeName(), "TestSupport::TestRecord");
  EXPECT_EQ(owner().sharedMemType(), 1U);
  EXPECT_FALSE(owner().wiped());
  EXPECT_FALSE(owner().wireletInfo().socketName().empty());
  EXPECT_EQ(owner().pid(), ::getpid());
}

TEST_F(WriterLifecycle, FilesOfTheSameGenerationAreAdoptedWhole) {
  store_->scratchpadIs(77);
  Image const before = store_.image();
  store_.close();
  std::string const traces = tracesOf("1-2", [&] { store_.open(); });
  expectAdopted();
  Image const after = store_.image();
  EXPECT_EQ(after.slots(), before.slots());
  EXPECT_EQ(after.buckets(), before.buckets());
  EXPECT_EQ(store_->hashSeed(), before.seed());
  EXPECT_EQ(store_->scratchpad(), 77U);
  EXPECT_THAT(traces, HasSubstr("slotsAttached:2"));
  EXPECT_THAT(traces, HasSubstr("mapAttached:2"));
  EXPECT_THAT(traces, HasSubstr("heraldAttached:2"));
  EXPECT_THAT(traces, HasSubstr(fmt::format("success {} capacity:64 emberId:{} mtime:", path(), ember_)));
}

TEST_F(WriterLifecycle, ACrashBeforeTheGenerationIsWrittenLosesTheTable) {
  store_.close();
  poke32(store_.file("ember"), 0, 0);
  std::string const traces = wipedTraces();
  EXPECT_THAT(traces, HasSubstr("failed to attach to existing files"));
  EXPECT_THAT(traces, HasSubstr("owner file: "));
  EXPECT_THAT(traces, HasSubstr("expectReattach: false, attachResult: 0"));
}

TEST_F(WriterLifecycle, ACrashInACriticalSectionLosesTheTableAndRaisesTheGeneration) {
  store_.close();
  poke(store_.file("slots"), 558, "\1", 1);
  std::string const traces = wipedTraces();
  EXPECT_EQ(store_->emberId(), ember_.incremented());
  EXPECT_EQ(store_->emberId().value(), ember_.value() + 0x10000);
  EXPECT_THAT(traces, HasSubstr("bad critical section runtimeFlags:1"));
  EXPECT_THAT(traces, HasSubstr("failed to validate existing files"));
  EXPECT_THAT(traces, HasSubstr("expectReattach: true, attachResult: 0"));
}

TEST_F(WriterLifecycle, AMissingSlotFileOfACompleteTableCausesAWipe) {
  for (std::uint32_t number = 0; number < 3; ++number) store_.remove(keyOf(number));
  store_.close();
  std::filesystem::remove(store_.file("slots"));
  EXPECT_THAT(wipedTraces(), HasSubstr("expectReattach: true, attachResult: 1"));
}

TEST_F(WriterLifecycle, AMissingBucketFileOfACompleteTableCausesAWipe) {
  for (std::uint32_t number = 0; number < 3; ++number) store_.remove(keyOf(number));
  store_.close();
  std::filesystem::remove(store_.file("buckets"));
  EXPECT_THAT(wipedTraces(), HasSubstr("expectReattach: true, attachResult: 1"));
}

TEST_F(WriterLifecycle, ABadOwnerFileCausesAWipe) {
  store_.close();
  poke32(store_.file("owner"), 0, 7);
  poke32(store_.file("owner"), 1024, 7);
  EXPECT_THAT(wipedTraces(), HasSubstr("owner file validation failed, dumping owner file string: "));
}

TEST_F(WriterLifecycle, OneBadCopyInTheOwnerFileLosesNothing) {
  for (std::size_t const at : {0U, 1024U}) {
    store_.close();
    poke32(store_.file("owner"), at + 200, 0xffffffff);
    store_.open();
    expectAdopted();
  }
}

TEST_F(WriterLifecycle, ATableFromBeforeTheMachineCameUpIsWiped) {
  store_.close();
  changeBootId();
  EXPECT_THAT(wipedTraces(), HasSubstr("owner file validation failed, dumping owner file string: "));
}

TEST_F(WriterLifecycle, AWriterThatDiesBeforeItsWipeDoesNotHideTheDamage) {
  store_.close();
  changeBootId();
  // As much as an attach does before it wipes.
  owner().typeNameIs("TestSupport::TestRecord");
  owner().sharedMemTypeIs(1);
  wipedTraces();
}

TEST_F(WriterLifecycle, AMissingOrEmptyOwnerFileIsBegunAnew) {
  store_.close();
  std::filesystem::remove(store_.file("owner"));
  store_.open();
  expectAdopted();
  store_.close();
  std::filesystem::resize_file(store_.file("owner"), 0);
  store_.open();
  expectAdopted();
}

TEST_F(WriterLifecycle, GenerationsGoOnPastTheLastAndNeverBecomeNone) {
  EXPECT_EQ(SharedMem::EmberId(0x0001abcdU).incremented().value(), 0x0002abcdU);
  EXPECT_EQ(SharedMem::EmberId(0xffffabcdU).incremented().value(), 0x0000abcdU);
  EXPECT_EQ(SharedMem::EmberId(0xffff0000U).incremented().value(), 0x00010000U);
  EXPECT_EQ(SharedMem::EmberId(3, 0x12345678).value(), 0x00035678U);
}

TEST_F(WriterLifecycle, EveryWipeRaisesTheGeneration) {
  for (int wipe = 1; wipe <= 3; ++wipe) {
    store_.close();
    poke(store_.file("slots"), 558, "\1", 1);
    store_.open();
    EXPECT_EQ(store_->emberId().value(), ember_.value() + static_cast<unsigned>(wipe) * 0x10000);
  }
}

TEST_F(WriterLifecycle, NoGenerationOfATableComesAgainHoweverItWasLost) {
  std::set<std::uint32_t> generations{ember_.value()};
  for (int loss = 0; loss < 30; ++loss) {
    store_.close();
    if (loss % 3 == 2) {
      poke32(store_.file("ember"), 0, 0);
    } else {
      poke(store_.file("slots"), 558, "\1", 1);
    }
    store_.open();
    EXPECT_TRUE(generations.insert(store_->emberId().value()).second) << "loss " << loss;
  }
}

TEST_F(WriterLifecycle, TheMarkerOfCorruptionGoesWithASuccessfulAttach) {
  store_.close();
  Vault::Util::writeCorruptionFile(storeHandler(), store_.root(), "found by a test");
  EXPECT_TRUE(store_.folder().has("corruption-detected"));
  store_.open();
  EXPECT_FALSE(store_.folder().has("corruption-detected"));
}

TEST_F(WriterLifecycle, InitializingTwiceDoesNothing) {
  EXPECT_EQ(tracesOf("0-5", [&] { EXPECT_TRUE(store_->initialize("again")); }), "");
  expectAdopted();
}

TEST_F(WriterLifecycle, DetachKeepsAllFilesAndSaysThatNobodyIsToBeReached) {
  Mem::Util::createControlFile(storeHandler(), store_.root());
  std::string const traces = tracesOf("5", [&] { store_->detach(false); });
  EXPECT_THAT(traces, HasSubstr("owner:true localMem_:false rootPath:" + path()));
  EXPECT_THAT(traces, HasSubstr("clearing wireletInfo"));
  for (char const* const name : {"slots", "buckets", "owner", "ember", "control"})
    EXPECT_TRUE(store_.folder().has(name)) << name;
  EXPECT_EQ(owner().wireletInfo().socketName(), "");
  EXPECT_EQ(store_->mountStatus(), 0);
  store_->initialize("again");
  expectAdopted();
}

TEST_F(WriterLifecycle, DetachMakesNoFile) {
  std::filesystem::remove(store_.file("owner"));
  store_->detach(false);
  EXPECT_FALSE(store_.folder().has("owner"));
}

TEST_F(WriterLifecycle, DetachGoesOnWithADamagedOwnerFile) {
  poke32(store_.file("owner"), 0, 7);
  poke32(store_.file("owner"), 1024, 7);
  EXPECT_THAT(tracesOf("1", [&] { store_->detach(false); }), HasSubstr("ignoring owner file corruption:"));
  EXPECT_EQ(store_->mountStatus(), 0);
}

TEST_F(WriterLifecycle, DetachLeavesTheNoteOfAnotherWriterAlone) {
  auto mine = owner().wireletInfo();
  SharedMem::WireletInfo other;
  other.socketNameIs("of another");
  owner().wireletInfoIs(other);
  store_->detach(false);
  EXPECT_EQ(owner().wireletInfo().socketName(), "of another");
}

TEST_F(WriterLifecycle, CleanupRemovesAllFilesInOrderButForTheLocks) {
  Mem::Util::createControlFile(storeHandler(), store_.root());
  Vault::Util::writeCorruptionFile(storeHandler(), store_.root(), "found by a test");
  int const watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  ::inotify_add_watch(watch, path().c_str(), IN_DELETE);
  EXPECT_THAT(tracesOf("3", [&] { store_->cleanup(); }), HasSubstr("removing Vault files in " + path()));
  alignas(inotify_event) std::array<char, 4096> buffer{};
  ssize_t const size = ::read(watch, buffer.data(), buffer.size());
  ::close(watch);
  std::vector<std::string> removed;
  for (ssize_t at = 0; at < size;) {
    auto const* const event = reinterpret_cast<inotify_event const*>(buffer.data() + at);
    removed.emplace_back(event->name);
    at += static_cast<ssize_t>(sizeof *event + event->len);
  }
  EXPECT_THAT(removed, ElementsAre("corruption-detected", "buckets", "slots", "ember", "control", "owner"));
  EXPECT_TRUE(store_.folder().has(".owner.lock"));
  EXPECT_TRUE(store_.folder().has(".writer.lock"));
}

TEST_F(WriterLifecycle, CleanupTellsOfADamagedOwnerFileAndGoesOn) {
  poke32(store_.file("owner"), 0, 7);
  poke32(store_.file("owner"), 1024, 7);
  EXPECT_THAT(tracesOf("1", [&] { store_->cleanup(); }),
              HasSubstr("owner file corruption detected but continuing with cleanup, dumped owner file: "));
  EXPECT_FALSE(store_.folder().has("owner"));
}

TEST_F(WriterLifecycle, CleanupOfATableThatAnotherWritesIsRefused) {
  Writer32 other(storeHandler(), store_.root(), sharedDescriptor(1000));
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { other.cleanup(); }),
            "Duplicate Writer Detected, vault path not cleaned up");
  store_.reopen();
  expectAdopted();
}

TEST_F(WriterLifecycle, FilesAreThereUntilOneIsGone) {
  Vault::Util::writeCorruptionFile(storeHandler(), store_.root(), "found by a test");
  EXPECT_TRUE(store_->validateFiles());
  EXPECT_FALSE(store_.folder().has("corruption-detected"));
  for (char const* const name : {"slots", "buckets", "owner", "ember"}) {
    std::filesystem::rename(store_.file(name), store_.file("aside"));
    Vault::Util::writeCorruptionFile(storeHandler(), store_.root(), "found by a test");
    EXPECT_FALSE(store_->validateFiles()) << name;
    EXPECT_TRUE(store_.folder().has("corruption-detected"));
    std::filesystem::rename(store_.file("aside"), store_.file(name));
    EXPECT_TRUE(store_->validateFiles()) << name;
  }
}

TEST_F(WriterLifecycle, FilesThatAreTooSmallOrOfAnotherGenerationAreNotThere) {
  poke32(store_.file("ember"), 0, ember_.value() + 1);
  EXPECT_FALSE(store_->validateFiles());
  poke32(store_.file("ember"), 0, ember_.value());
  std::filesystem::resize_file(store_.file("slots"), 3727);
  EXPECT_FALSE(store_->validateFiles());
  std::filesystem::resize_file(store_.file("slots"), 3728);
  EXPECT_TRUE(store_->validateFiles());
}

TEST_F(WriterLifecycle, ASecondWriterOfTheProcessIsRefusedAndTheFirstGoesOn) {
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { opened(path()); }),
            "Duplicate Writer Detected, vault path not cleaned up");
  store_.write(keyOf(2), 9);
  expectAdopted();
  store_.close();
  EXPECT_EQ(opened(path())->members(), 3U);
}

// Tries to be a second writer of the table in the environment.
void secondWriter() {
  std::string const told =
      messageOf<Dovel::NoPermissionException>([] { opened(std::getenv("HWTABLES_TEST_TABLE")); });
  std::_Exit(told == "Duplicate Writer Detected, vault path not cleaned up" ? 0 : 1);
}
ChildRole const secondWriterRole("secondWriter", secondWriter);

TEST_F(WriterLifecycle, AWriterInAnotherProcessIsRefusedAndThatIsLogged) {
  ChildResult const child = runChild("secondWriter", {{"HWTABLES_TEST_TABLE", path()}});
  EXPECT_EQ(child.exitCode, 0) << child.errors();
  EXPECT_THAT(child.errors(), HasSubstr("HW_ABSTRACTION_RELAUNCH_ERROR"));
  expectAdopted();
}

void strictWriter() {
  std::string const path = std::getenv("HWTABLES_TEST_TABLE");
  std::string const told = messageOf<Dovel::CorruptionDetectedException>([&] { opened(path); });
  std::_Exit(told == "failed initial validation of " + path + " after re-attaching" ? 0 : 1);
}
ChildRole const strictWriterRole("strictWriter", strictWriter);

TEST_F(WriterLifecycle, StrictValidationOnHardwareKeepsTheFilesAndGivesUp) {
  store_.close();
  poke(store_.file("slots"), 558, "\1", 1);
  Image const before = store_.image();
  ChildResult const child = runChild(
      "strictWriter",
      {{"HWTABLES_TEST_TABLE", path()}, {"HWTABLES_STRICT_VALIDATION", "1"}, {"HWTABLES_PHYSICAL_DUT", "1"}});
  EXPECT_EQ(child.exitCode, 0) << child.errors();
  EXPECT_FALSE(store_.folder().has("ember"));
  EXPECT_EQ(store_.image().slots(), before.slots());
  EXPECT_EQ(store_.image().buckets(), before.buckets());
  wipedTraces();
}

void writerThatMustWipe() {
  auto const writer = opened(std::getenv("HWTABLES_TEST_TABLE"));
  bool const empty = writer->members() == 0;
  std::_Exit(empty ? 0 : 1);
}
ChildRole const writerThatMustWipeRole("writerThatMustWipe", writerThatMustWipe);

TEST_F(WriterLifecycle, StrictValidationWithoutHardwareWipesAndSoTheOtherWayRound) {
  for (char const* const variable : {"HWTABLES_STRICT_VALIDATION", "HWTABLES_PHYSICAL_DUT"}) {
    store_.close();
    poke(store_.file("slots"), 558, "\1", 1);
    ChildResult const child =
        runChild("writerThatMustWipe", {{"HWTABLES_TEST_TABLE", path()}, {variable, "1"}});
    EXPECT_EQ(child.exitCode, 0) << child.errors();
    store_.open();
    store_.write(keyOf(1));
  }
}

// Writes ten records more and dies without a word.
void writerThatDies() {
  auto const writer = opened(std::getenv("HWTABLES_TEST_TABLE"));
  for (std::uint32_t number = 100; number < 110; ++number)
    writer->write(Record32::of(keyOf(number), number), true);
  ::raise(SIGKILL);
}
ChildRole const writerThatDiesRole("writerThatDies", writerThatDies);

TEST_F(WriterLifecycle, WhatADeadWriterHasFinishedIsThere) {
  store_.close();
  EXPECT_EQ(runChild("writerThatDies", {{"HWTABLES_TEST_TABLE", path()}}).signal, SIGKILL);
  EXPECT_FALSE(owner().wireletInfo().socketName().empty());
  store_.open();
  EXPECT_EQ(store_->emberId(), ember_);
  EXPECT_EQ(store_.image().expectSound(), 13U);
}

TEST_F(WriterLifecycle, ADeadWriterWhoseProcessNumberIsTakenAgainIsDeadAllTheSame) {
  store_.close();
  // The number of a process that lives, with another start.
  for (std::size_t const at : {0U, 1024U}) {
    auto record = wordAt<SharedMem::OwnerRecord>(bytesOf(store_.file("owner")), at);
    record.pid = ::getppid();
    record.startTime = 1;
    record.crc = record.computedCrc();
    poke(store_.file("owner"), at, &record, sizeof record);
  }
  store_.open();
  expectAdopted();
  EXPECT_EQ(owner().pid(), ::getpid());
}

TEST_F(WriterLifecycle, AForkedChildIsRefusedEverythingAndItsParentGoesOn) {
  pid_t const child = ::fork();
  if (child == 0) {
    Writer32::Value value;
    Vault::IterHint hint;
    bool found = false;
    int refused = 0;
    auto const attempt = [&](auto&& call) {
      refused += messageOf<Dovel::NoPermissionException>(call) ==
                         "the Vault table belongs to the process that this one was forked from"
                     ? 1
                     : 0;
    };
    attempt([&] { store_.write(keyOf(7)); });
    attempt([&] { store_->remove(keyOf(1), value); });
    attempt([&] { store_->directWrite(Record32::of(keyOf(1), 0)); });
    attempt([&] { store_->directCommit(); });
    attempt([&] { store_->markAndSweepFlag(keyOf(1), Vault::MarkAndSweepOperation::set); });
    attempt([&] { store_->shrink(); });
    attempt([&] { store_->scratchpadIs(1); });
    attempt([&] { store_->lookup(keyOf(1), found, nullptr); });
    attempt([&] { store_->first(value, hint); });
    attempt([&] { store_->next(keyOf(1), value, hint); });
    attempt([&] { store_->members(); });
    attempt([&] { store_->scratchpad(); });
    attempt([&] { store_->validate(); });
    attempt([&] { store_->validateVersionAnchor(); });
    attempt([&] { store_->cleanup(); });
    store_.close();
    ::_exit(refused);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 15);
  store_.write(keyOf(1), 8);
  EXPECT_TRUE(store_->validate());
  EXPECT_THROW(opened(path()), Dovel::NoPermissionException);
  EXPECT_EQ(owner().wireletInfo().socketName().empty(), false);
  expectAdopted();
}

TEST_F(WriterLifecycle, AForkedChildInTheMiddleOfADirectWriteCanLetGo) {
  store_->directWrite(Record32::of(keyOf(1), 5));
  pid_t const child = ::fork();
  if (child == 0) {
    store_->detach(false);
    ::_exit(0);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  store_->directCommit();
  expectAdopted();
}

TEST_F(WriterLifecycle, AChildThatLivesOnDoesNotKeepItsParentsTable) {
  pid_t const child = ::fork();
  if (child == 0) {
    ::pause();
    ::_exit(0);
  }
  store_.reopen();
  expectAdopted();
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

TEST_F(WriterLifecycle, WritersThatRaceForATableLoseNothing) {
  store_.close();
  std::vector<pid_t> children;
  for (std::uint32_t child = 0; child < 4; ++child) {
    pid_t const pid = ::fork();
    if (pid != 0) {
      children.push_back(pid);
      continue;
    }
    int written = 0;
    for (int attempt = 0; attempt < 20000 && written < 20; ++attempt) {
      try {
        auto const writer = opened(path());
        writer->write(Record32::of(keyOf(1000 * (child + 1) + static_cast<std::uint32_t>(written)), 0), true);
        ++written;
      } catch (Dovel::NoPermissionException const&) {
        ::usleep(500);
      }
    }
    ::_exit(written == 20 ? 0 : 1);
  }
  for (pid_t const child : children) {
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  store_.open();
  EXPECT_EQ(store_->emberId(), ember_);
  EXPECT_EQ(store_.image().expectSound(), 83U);
}

TEST(LocalTable, HasNoFilesAndStartsEmptyEachTime) {
  for (bool const useHeap : {false, true}) {
    Vault::MapDescriptor descriptor(1000);
    descriptor.useHeap = useHeap;
    Store32 store(descriptor);
    EXPECT_EQ(store->emberId(), SharedMem::EmberId(0, ::getpid()));
    for (std::uint32_t number = 0; number < 200; ++number) store.write(keyOf(number));
    for (std::uint32_t number = 0; number < 150; ++number) store.remove(keyOf(number));
    EXPECT_EQ(store->members(), 50U);
    EXPECT_EQ(store.iterated().size(), 50U);
    EXPECT_TRUE(store->validate());
    EXPECT_TRUE(store->validateFiles());
    EXPECT_TRUE(std::filesystem::is_empty(store.folder().path()));
    store.reopen();
    EXPECT_EQ(store->members(), 0U);
    store->cleanup();
  }
}

}  // namespace
