// The small parts of a store's files.
#include <gmock/gmock.h>

#include <array>
#include <set>
#include <thread>

#include "platform/memory/Atomics.h"
#include "platform/memory/ControlFile.h"
#include "platform/memory/FileSize.h"
#include "platform/memory/ValidateFile.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Random.h"
#include "tests/platform/memory/Processes.h"
#include "tests/platform/memory/StoreFiles.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/Message.h"

namespace {

using testing::HasSubstr;
using TestSupport::handler;
using TestSupport::messageOf;
using TestSupport::rootPath;
using TestSupport::statusOf;
using TestSupport::TempDir;
using TestSupport::writeFile;

TEST(FileSize, IsHeaderAndElementsRoundedToNothing) {
  EXPECT_EQ(Dovel::Util::fileSizeHelper(64, 48, 656), 3728U);
  EXPECT_EQ(Dovel::Util::fileSizeHelper(0, 48, 656), 656U);
  EXPECT_EQ(Dovel::Util::fileSizeHelper(~0ULL, 1, 0), ~0ULL);
}

TEST(FileSize, OverflowOfProductAndSumIsAnException) {
  EXPECT_THAT(messageOf<Dovel::RuntimeException>([] { Dovel::Util::fileSizeHelper(1ULL << 60, 48, 656); }),
              HasSubstr("1152921504606846976 times 48"));
  EXPECT_THAT(messageOf<Dovel::RuntimeException>([] { Dovel::Util::fileSizeHelper(~0ULL, 1, 1); }),
              HasSubstr("more than 64 bits hold"));
  EXPECT_EQ(Mem::multiplyOverflowCheck(1ULL << 32, (1ULL << 32) - 1), ((1ULL << 32) - 1) << 32);
  EXPECT_THROW(Mem::multiplyOverflowCheck(1ULL << 32, 1ULL << 32), Dovel::RuntimeException);
}

TEST(Atomics, ProcessorOfTheTestsIsSupported) { EXPECT_TRUE(Mem::Atomics::checkCpuSupport()); }

TEST(Random, NumbersDifferInThreadsAndAfterAFork) {
  std::set<std::uint64_t> drawn;
  std::array<std::uint64_t, 64> others{};
  std::thread thread([&] {
    for (auto& number : others) number = Dovel::Random::rand64();
  });
  for (std::size_t i = 0; i < others.size(); ++i) drawn.insert(Dovel::Random::rand64());
  thread.join();
  drawn.insert(others.begin(), others.end());
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  pid_t const child = TestSupport::forked([&] {
    std::uint64_t const number = Dovel::Random::rand64();
    MUST(::write(ends[1], &number, sizeof number) == sizeof number);
  });
  EXPECT_EQ(TestSupport::waitedFor(child), 0);
  std::uint64_t childs = 0;
  ASSERT_EQ(::read(ends[0], &childs, sizeof childs), static_cast<ssize_t>(sizeof childs));
  drawn.insert(childs);
  drawn.insert(Dovel::Random::rand64());
  EXPECT_EQ(drawn.size(), 2 * others.size() + 2);
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(ControlFile, IsMadeWithItsDirectoryReadableByAll) {
  TempDir const dir;
  mode_t const before = ::umask(077);
  Mem::Util::createControlFile(handler(), rootPath(dir.file("a/b")));
  ::umask(before);
  EXPECT_EQ(statusOf(dir.file("a/b/control")).st_mode, static_cast<mode_t>(S_IFREG | 0644));
}

TEST(ControlFile, MadeAgainItsTimeMovesAndNothingElseChanges) {
  TempDir const dir;
  writeFile(dir.file("control"), "kept");
  timespec const longAgo[2] = {{1000, 0}, {1000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, dir.file("control").c_str(), longAgo, 0), 0);
  Mem::Util::createControlFile(handler(), rootPath(dir.path()));
  EXPECT_GT(statusOf(dir.file("control")).st_mtim.tv_sec, 1000);
  EXPECT_EQ(TestSupport::contentOf(dir.file("control")), "kept");
}

TEST(ControlFile, WhatIsNoFileInItsPlaceIsToldAtOnce) {
  for (auto const& [name, make] : TestSupport::notFiles()) {
    TempDir const dir;
    make(dir.file("control"));
    EXPECT_THAT(messageOf<Dovel::InvalidInitializeException>(
                    [&] { Mem::Util::createControlFile(handler(), rootPath(dir.path())); }),
                HasSubstr("cannot open " + dir.file("control")))
        << name;
  }
}

void validatesFiles() {
  auto const root = rootPath(std::getenv("FOLDER"));
  MUST(!Mem::validateFile(handler(), root, "absent", 0));
  MUST(!Mem::validateFile(handler(), root, "slots", 101));
  MUST(!Mem::validateFile(handler(), root, ".", 0));
  MUST(Mem::validateFile(handler(), root, "slots", 100));
  MUST(Mem::validateFile(handler(), root, "slots", 99));
}
TestSupport::ChildRole const validatesFilesRole("validatesFiles", validatesFiles);

TEST(ValidateFile, WantsARegularFileOfTheSizeAndTracesWhatItIsNot) {
  TempDir const dir;
  writeFile(dir.file("slots"), std::string(100, 'x'));
  auto const child =
      TestSupport::runChild("validatesFiles", {{"FOLDER", dir.path()}, {"HWTABLES_TRACE", "storetest/0"}});
  EXPECT_EQ(child.exitCode, 0) << child.errors();
  EXPECT_THAT(child.errors(), HasSubstr("bad file " + dir.file("absent") + ": No such file or directory"));
  EXPECT_THAT(child.errors(), HasSubstr("bad file " + dir.file("slots") + ": size:100 wanted:101"));
  EXPECT_THAT(child.errors(), HasSubstr("it is not a regular file"));
}

}  // namespace
