#include "platform/memory/EmberFile.h"

#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <sys/mman.h>

#include <set>

#include "runtime/Dovel/Exception.h"
#include "tests/platform/memory/Processes.h"
#include "tests/platform/memory/StoreFiles.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

namespace {

using SharedMem::EmberId;
using testing::HasSubstr;
using TestSupport::contentOf;
using TestSupport::handler;
using TestSupport::isThere;
using TestSupport::rootPath;
using TestSupport::statusOf;
using TestSupport::writeFile;

TEST(EmberId, HasTheCounterInItsUpperHalfAndTheProcessInItsLower) {
  EXPECT_EQ(EmberId().value(), 0U);
  EXPECT_EQ(EmberId(0x1234, 0x7f00abcd).value(), 0x1234abcdU);
  EXPECT_EQ(EmberId(0, 5), EmberId(5U));
  EXPECT_EQ(fmt::format("{}", EmberId(0x12, 0x34)), "0x00120034");
}

TEST(EmberId, IncrementGoesOverTheUpperHalfAndNeverToNone) {
  EXPECT_EQ(EmberId(1, 77).incremented(), EmberId(2, 77));
  EXPECT_EQ(EmberId(0xffff, 77).incremented(), EmberId(0, 77));
  EXPECT_EQ(EmberId(0xffff, 0).incremented(), EmberId(1, 0));
}

TEST(EmberId, FreshOnesDifferAndAreNeverNone) {
  std::set<std::uint32_t> given;
  for (int i = 0; i < 0x10000; ++i) {
    EmberId const id = EmberId::fresh();
    ASSERT_NE(id, EmberId());
    EXPECT_EQ(id.value() & 0xffff, static_cast<std::uint32_t>(::getpid()) & 0xffff);
    ASSERT_TRUE(given.insert(id.value()).second) << id.value();
  }
}

struct EmberFile : testing::Test {
  TestSupport::StoreDir dir;
  std::string const path = dir.file("ember");
  SharedMem::EmberFile ember{handler(), rootPath(dir.path()), false};
};

TEST_F(EmberFile, HoldsNoGenerationWhileAbsent) {
  EXPECT_EQ(ember.read(), EmberId());
  EXPECT_FALSE(isThere(path));
  EXPECT_EQ(ember.mtime(), "never");
}

TEST_F(EmberFile, GivesBackWhatWasWritten) {
  for (EmberId const id : {EmberId(3, 4), EmberId(0xffff, -1), EmberId()}) {
    ember.write(id);
    EXPECT_EQ(ember.read(), id);
    EXPECT_EQ(SharedMem::EmberFile(handler(), rootPath(dir.path()), false).read(), id);
  }
}

TEST_F(EmberFile, HasTheIdInItsFirstFourBytesAndZeroesBehind) {
  mode_t const before = ::umask(077);
  ember.write(EmberId(0x0403, 0x0201));
  ::umask(before);
  EXPECT_EQ(contentOf(path), std::string("\1\2\3\4") + std::string(60, '\0'));
  EXPECT_EQ(statusOf(path).st_mode, static_cast<mode_t>(S_IFREG | 0644));
}

TEST_F(EmberFile, IsWrittenInPlaceSoThatThoseWhoMappedItSee) {
  ember.write(EmberId(1, 1));
  int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  auto* const mapped =
      static_cast<std::uint32_t*>(::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, descriptor, 0));
  ::close(descriptor);
  ASSERT_EQ(*mapped, 0x10001U);
  ember.write(EmberId());
  EXPECT_EQ(*mapped, 0U);
  ember.write(EmberId(2, 2));
  EXPECT_EQ(*mapped, 0x20002U);
  ::munmap(mapped, 4096);
}

TEST_F(EmberFile, EveryWriteMovesItsTime) {
  ember.write(EmberId(1, 1));
  timespec const longAgo[2] = {{1000, 5}, {1000, 5}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), longAgo, 0), 0);
  EXPECT_EQ(ember.mtime(), "1000.000000005");
  ember.write(EmberId(1, 1));
  EXPECT_GT(statusOf(path).st_mtim.tv_sec, 1000);
}

TEST_F(EmberFile, EveryWriteWakesThoseWhoWatchItsTime) {
  ember.write(EmberId(1, 1));
  int const watch = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ASSERT_GE(::inotify_add_watch(watch, path.c_str(), IN_ATTRIB), 0);
  for (EmberId const id : {EmberId(2, 1), EmberId(2, 1), EmberId()}) {
    inotify_event event{};
    EXPECT_EQ(::read(watch, &event, sizeof event), -1);
    ember.write(id);
    EXPECT_EQ(::read(watch, &event, sizeof event), static_cast<ssize_t>(sizeof event));
  }
  ::close(watch);
}

TEST_F(EmberFile, WritingNoGenerationMakesNoFile) {
  ember.write(EmberId());
  EXPECT_FALSE(isThere(path));
}

TEST_F(EmberFile, ShortFileHoldsNoGenerationAndIsMadeWhole) {
  for (std::size_t size = 0; size < 64; ++size) {
    writeFile(path, std::string(size, 'x'));
    EXPECT_EQ(ember.read(), EmberId()) << size;
    ember.write(EmberId(5, 5));
    EXPECT_EQ(ember.read(), EmberId(5, 5)) << size;
    EXPECT_EQ(statusOf(path).st_size, 64) << size;
  }
}

TEST_F(EmberFile, ForeignFileHoldsNoGeneration) {
  writeFile(path, std::string(64, 'x'));
  EXPECT_EQ(ember.read(), EmberId());
  ember.write(EmberId(5, 5));
  EXPECT_EQ(ember.read(), EmberId(5, 5));
}

TEST_F(EmberFile, WhatIsNoFileHoldsNoGenerationAndCantBeWritten) {
  for (auto const& [name, make] : TestSupport::notFiles()) {
    make(path);
    EXPECT_EQ(ember.read(), EmberId()) << name;
    EXPECT_THROW(ember.write(EmberId(1, 1)), Dovel::InvalidInitializeException) << name;
    ASSERT_EQ(::remove(path.c_str()), 0) << name;
  }
}

void validatesAnother() {
  SharedMem::EmberFile const ember(handler(), rootPath(std::getenv("FOLDER")), false);
  MUST(!ember.validate(EmberId(1, 2)));
  MUST(ember.validate(EmberId(1, 1)));
}
TestSupport::ChildRole const validatesAnotherRole("validatesAnother", validatesAnother);

TEST_F(EmberFile, AnotherGenerationIsInvalidAndTraced) {
  ember.write(EmberId(1, 1));
  auto const child =
      TestSupport::runChild("validatesAnother", {{"FOLDER", dir.path()}, {"HWTABLES_TRACE", "storetest/0"}});
  EXPECT_EQ(child.exitCode, 0) << child.errors();
  EXPECT_THAT(child.errors(), HasSubstr("bad generation in " + path + ": 0x00010001 wanted:0x00010002"));
}

TEST_F(EmberFile, LocalTableHasNone) {
  SharedMem::EmberFile local(handler(), rootPath(dir.path()), true);
  local.write(EmberId(1, 1));
  EXPECT_EQ(local.read(), EmberId());
  EXPECT_TRUE(local.validate(EmberId(1, 1)));
  EXPECT_TRUE(dir.files().empty());
}

}  // namespace
