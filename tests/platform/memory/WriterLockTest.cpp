#include "platform/memory/WriterLock.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/memory/OwnerFile.h"
#include "platform/memory/ProcessIdentity.h"
#include "platform/memory/WireletAcceptSm.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/TraceChannel.h"
#include "runtime/Orlo/Log.h"
#include "tests/platform/memory/Processes.h"
#include "tests/platform/memory/StoreFiles.h"
#include "tests/support/Files.h"
#include "tests/support/Message.h"

namespace {

using Mem::WriterLockState;
using testing::ElementsAre;
using testing::HasSubstr;
using TestSupport::forked;
using TestSupport::handler;
using TestSupport::messageOf;
using TestSupport::rootPath;
using TestSupport::Signpost;
using TestSupport::waitedFor;

constexpr char const* kDuplicate = "Duplicate Writer Detected, vault path not cleaned up";

std::vector<std::string>& logged() {
  static std::vector<std::string> texts;
  return texts;
}

struct WriterLock : testing::Test {
  TestSupport::StoreDir dir;
  Mem::RootPath const root = rootPath(dir.path());
  SharedMem::OwnerFile const owner{handler(), root, false};

  WriterLock() { Dovel::Trace::levelsIs("Log", 0); }

  Mem::WriterLock acquired(bool wait = false) const {
    return Mem::WriterLock::acquireWriterLock(handler(), root, owner, wait);
  }
  bool isFree() const {
    try {
      return acquired().held();
    } catch (Dovel::NoPermissionException const&) {
      return false;
    }
  }
};

TEST_F(WriterLock, IsHeldFromAcquisitionToRelease) {
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::free);
  Mem::WriterLock lock = acquired();
  EXPECT_TRUE(lock.held());
  EXPECT_FALSE(lock.foreign());
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::held);
  lock.release();
  lock.release();
  EXPECT_FALSE(lock.held());
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::free);
  EXPECT_TRUE(isFree());
  EXPECT_TRUE(TestSupport::isThere(dir.file(".writer.lock")));
}

TEST_F(WriterLock, SecondWriterOfTheProcessIsRefusedAndTheFirstKeepsTheLock) {
  Mem::WriterLock const lock = acquired();
  logged().clear();
  auto const before = Orlo::logBackEndIs([](int, char const* text) { logged().emplace_back(text); });
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { acquired(); }), kDuplicate);
  Orlo::logBackEndIs(before);
  EXPECT_THAT(logged(),
              ElementsAre(testing::AllOf(HasSubstr("HW_ABSTRACTION_RELAUNCH_ERROR"), HasSubstr(kDuplicate))));
  EXPECT_TRUE(lock.held());
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::held);
}

TEST_F(WriterLock, AnotherProcessIsRefused) {
  Mem::WriterLock const lock = acquired();
  pid_t const child = forked([&] {
    Orlo::logBackEndIs([](int, char const*) {});
    MUST(!isFree());
    MUST(Mem::WriterLock::lockState(root) == WriterLockState::held);
  });
  EXPECT_EQ(waitedFor(child), 0);
}

TEST_F(WriterLock, OfTwoProcessesThatRaceOneWins) {
  Orlo::logBackEndIs([](int, char const*) {});
  for (int round = 0; round < 100; ++round) {
    Signpost start;
    Signpost done;
    Signpost end;
    auto const race = [&] {
      start.stopTelling();
      end.stopTelling();
      start.wait();
      bool won = true;
      Mem::WriterLock lock;
      try {
        lock = acquired();
      } catch (Dovel::NoPermissionException const&) {
        won = false;
      }
      done.tell();
      end.wait();  // the winner holds on until both have tried
      ::_exit(won ? 1 : 0);
    };
    pid_t const a = forked(race);
    pid_t const b = forked(race);
    start.stopTelling();
    ASSERT_TRUE(done.wait() && done.wait());
    end.stopTelling();
    ASSERT_EQ(WEXITSTATUS(waitedFor(a)) + WEXITSTATUS(waitedFor(b)), 1);
  }
  Orlo::logBackEndIs(nullptr);
}

TEST_F(WriterLock, LockOfADeadOwnerIsFreeAtOnce) {
  Signpost has;
  pid_t const child = forked([&] {
    Mem::WriterLock const lock = acquired();
    has.tell();
    for (;;) ::pause();
  });
  ASSERT_TRUE(has.wait());
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::held);
  ::kill(child, SIGKILL);
  waitedFor(child);
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::free);
  EXPECT_TRUE(isFree());
}

TEST_F(WriterLock, NumberOfADeadOwnerThatIsUsedAgainDoesNoHarm) {
  SharedMem::OwnerFile(handler(), root, false).typeNameIs("written by this very process, which lives");
  ASSERT_EQ(owner.pid(), ::getpid());
  EXPECT_TRUE(isFree());
}

TEST_F(WriterLock, ForkedChildHasNoRightsAndDoesNotReleaseItsParents) {
  Mem::WriterLock lock = acquired();
  bool const& foreign = lock.foreignFlag();
  pid_t const child = forked([&] {
    Orlo::logBackEndIs([](int, char const*) {});
    MUST(foreign);
    MUST(lock.foreign());
    MUST(!lock.held());
    lock.release();
    MUST(lock.foreign());
    MUST(Mem::WriterLock::lockState(root) == WriterLockState::held);
    MUST(!isFree());
  });
  EXPECT_EQ(waitedFor(child), 0);
  EXPECT_FALSE(foreign);
  EXPECT_TRUE(lock.held());
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::held);
}

TEST_F(WriterLock, ChildThatOutlivesItsParentDoesNotKeepTheLock) {
  Signpost has;
  Signpost end;
  pid_t const parent = forked([&] {
    end.stopTelling();
    Mem::WriterLock const lock = acquired();
    auto const ownerLock = owner.lock();
    forked([&] {
      has.tell();
      end.wait();
    });
    ::raise(SIGKILL);
  });
  waitedFor(parent);
  ASSERT_TRUE(has.wait());
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::free);
  EXPECT_TRUE(isFree());
  auto const ownerLock = owner.lock();
}

TEST_F(WriterLock, ChildOfAProcessMayWriteATableOfItsOwnAndSoMayItsChildren) {
  Mem::WriterLock const lock = acquired();
  Mem::RootPath const another = rootPath(dir.file("another"));
  pid_t const child = forked([&] {
    SharedMem::OwnerFile const owns(handler(), another, false);
    Mem::WriterLock mine = Mem::WriterLock::acquireWriterLock(handler(), another, owns, false);
    MUST(mine.held() && !mine.foreign());
    pid_t const grandchild = forked([&] { MUST(mine.foreign() && lock.foreign()); });
    MUST(waitedFor(grandchild) == 0);
    mine.release();
    MUST(Mem::WriterLock::lockState(another) == WriterLockState::free);
  });
  EXPECT_EQ(waitedFor(child), 0);
}

TEST_F(WriterLock, ForksBesideAThreadThatTakesAndReleasesKeepNoLock) {
  std::atomic<bool> stop{false};
  Orlo::logBackEndIs([](int, char const*) {});
  std::thread taker([&] {
    while (!stop) acquired();
  });
  for (int i = 0; i < 200; ++i) {
    // Where a child kept a copy of the lock, the thread's next attempt would throw and end the process.
    pid_t const child = forked([] { ::usleep(500); });
    if (i % 8 == 7) {
      EXPECT_EQ(waitedFor(child), 0);
    }
  }
  stop = true;
  taker.join();
  while (::waitpid(-1, nullptr, 0) > 0) continue;
  Orlo::logBackEndIs(nullptr);
  EXPECT_TRUE(isFree());
}

TEST_F(WriterLock, MovedLockKeepsItsFlagAndItsRights) {
  Mem::WriterLock first = acquired();
  bool const* const flag = &first.foreignFlag();
  Mem::WriterLock second = std::move(first);
  EXPECT_EQ(&second.foreignFlag(), flag);
  EXPECT_TRUE(second.held());
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::held);
  second = Mem::WriterLock();
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::free);
}

TEST_F(WriterLock, AskingForTheStateTakesAndMakesNothing) {
  EXPECT_EQ(Mem::WriterLock::lockState(rootPath(dir.file("nowhere"))), WriterLockState::free);
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::free);
  EXPECT_FALSE(TestSupport::isThere(dir.file(".writer.lock")));
  acquired();
  EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::free);
  EXPECT_TRUE(isFree());
}

TEST_F(WriterLock, WaitingWriterGetsTheLockWhenItIsFree) {
  Signpost has;
  pid_t const child = forked([&] {
    Mem::WriterLock const lock = acquired();
    has.tell();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  });
  ASSERT_TRUE(has.wait());
  EXPECT_TRUE(acquired(true).held());
  waitedFor(child);
}

TEST_F(WriterLock, WhatIsNoFileIsAnErrorAtOnce) {
  for (auto const& [name, make] : TestSupport::notFiles()) {
    make(dir.file(".writer.lock"));
    EXPECT_THROW(acquired(), Dovel::InvalidInitializeException) << name;
    EXPECT_EQ(Mem::WriterLock::lockState(root), WriterLockState::held) << name;
    ASSERT_EQ(::remove(dir.file(".writer.lock").c_str()), 0) << name;
  }
}

TEST_F(WriterLock, DescriptorsAreNotLeftToPrograms) {
  Mem::WriterLock const lock = acquired();
  auto const ownerLock = owner.lock();
  std::string const command = "ls -l /proc/self/fd | grep -c 'lock$'";
  FILE* const listing = ::popen(command.c_str(), "r");
  int found = -1;
  EXPECT_EQ(std::fscanf(listing, "%d", &found), 1);
  ::pclose(listing);
  EXPECT_EQ(found, 0);
}

TEST_F(WriterLock, OwnerIsTheProcessThatTheFileNames) {
  auto const isMe = [&](char const* socket) { return Mem::WriterLock::ownerIsMe(handler(), root, socket); };
  SharedMem::WireletInfo info;
  info.socketNameIs("@s");
  SharedMem::OwnerFile(handler(), root, false).wireletInfoIs(info);
  EXPECT_TRUE(isMe("@s"));
  EXPECT_FALSE(isMe("@t"));
  pid_t const child = forked([&] { MUST(!isMe("@s")); });
  EXPECT_EQ(waitedFor(child), 0);
}

TEST_F(WriterLock, OwnerFileThatIsAbsentNamesNobodyAndADamagedOneIsCorruption) {
  std::filesystem::remove(dir.file("owner"));
  EXPECT_FALSE(Mem::WriterLock::ownerIsMe(handler(), root, ""));
  EXPECT_FALSE(TestSupport::isThere(dir.file("owner")));
  TestSupport::writeFile(dir.file("owner"), "x");
  EXPECT_THROW(Mem::WriterLock::ownerIsMe(handler(), root, ""), Dovel::CorruptionDetectedException);
}

TEST(WireletAcceptSm, SocketNameIsOneAProcessAndFits) {
  auto const name = [] { return Nudge::WireletAcceptSm(handler()).socketName(); };
  auto const mine = name();
  EXPECT_EQ(mine, name());
  EXPECT_THAT(mine.data(), HasSubstr(std::to_string(::getpid())));
  EXPECT_LE(mine.size(), SharedMem::WireletInfo::kLongestName);
  pid_t const child = forked([&] { MUST(name() != mine); });
  EXPECT_EQ(waitedFor(child), 0);
}

}  // namespace
