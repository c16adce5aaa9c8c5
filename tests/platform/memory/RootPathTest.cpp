#include "platform/memory/RootPath.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "runtime/Dovel/Exception.h"
#include "tests/platform/memory/Processes.h"
#include "tests/platform/memory/StoreFiles.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/Message.h"

namespace {

using Mem::RootPath;
using testing::AllOf;
using testing::HasSubstr;
using TestSupport::handler;
using TestSupport::isThere;
using TestSupport::messageOf;
using TestSupport::rootPath;
using TestSupport::runChild;
using TestSupport::statusOf;
using TestSupport::TempDir;

void printsDirectories() {
  for (char const* path : {"a/b", "/x/y//", "/"}) {
    std::fputs((RootPath(handler(), path, true).dirName().view().data() + std::string("\n")).c_str(), stderr);
  }
}
TestSupport::ChildRole const printsDirectoriesRole("printsDirectories", printsDirectories);

TEST(RootPath, RelativePathLiesUnderTheRootOfAllStoresAndAnAbsoluteOneStandsForItself) {
  EXPECT_EQ(runChild("printsDirectories").errors(), "/dev/shm/hwtables/a/b\n/x/y\n/\n");
  EXPECT_EQ(runChild("printsDirectories", {{"HWTABLES_ROOT", ""}}).errors(),
            "/dev/shm/hwtables/a/b\n/x/y\n/\n");
  EXPECT_EQ(runChild("printsDirectories", {{"HWTABLES_ROOT", "/run/t/"}}).errors(), "/run/t/a/b\n/x/y\n/\n");
}

TEST(RootPath, RelativeRootOfAllStoresIsTakenFromTheCurrentDirectory) {
  std::string const here = std::filesystem::current_path();
  EXPECT_EQ(runChild("printsDirectories", {{"HWTABLES_ROOT", "t"}}).errors(), here + "/t/a/b\n/x/y\n/\n");
}

TEST(RootPath, KnowsThePathAsGivenAndTheNamesOfFiles) {
  RootPath const path(handler(), "/x/y/", false);
  EXPECT_EQ(path.path(), "/x/y/");
  EXPECT_FALSE(path.shared());
  EXPECT_EQ(path.fileName("slots"), "/x/y/slots");
}

TEST(RootPath, MakesAllParentsReadableByAllWhateverTheUmask) {
  TempDir const dir;
  mode_t const before = ::umask(077);
  rootPath(dir.file("a/b/c")).makeDirectory();
  ::umask(before);
  for (char const* made : {"a", "a/b", "a/b/c"}) {
    EXPECT_EQ(statusOf(dir.file(made)).st_mode, static_cast<mode_t>(S_IFDIR | 0755)) << made;
  }
}

TEST(RootPath, DirectoryThatStandsIsLeftAsItIs) {
  TempDir const dir;
  ASSERT_EQ(::mkdir(dir.file("a").c_str(), 0700), 0);
  rootPath(dir.file("a")).makeDirectory();
  EXPECT_EQ(statusOf(dir.file("a")).st_mode, static_cast<mode_t>(S_IFDIR | 0700));
}

TEST(RootPath, LocalTableHasNoDirectory) {
  TempDir const dir;
  RootPath(handler(), dir.file("a"), false).makeDirectory();
  EXPECT_FALSE(isThere(dir.file("a")));
}

TEST(RootPath, FileInTheWayIsToldWithPathAndReason) {
  TempDir const dir;
  TestSupport::writeFile(dir.file("a"), "x");
  for (char const* path : {"a", "a/b"}) {
    EXPECT_THAT(
        messageOf<Dovel::InvalidInitializeException>([&] { rootPath(dir.file(path)).makeDirectory(); }),
        AllOf(HasSubstr(dir.file(path)), HasSubstr("Not a directory")));
  }
}

void makesADirectoryAsNobody() {
  TestSupport::becomeNobody();
  std::string const message =
      messageOf<Dovel::InvalidInitializeException>([] { rootPath(std::getenv("FOLDER")).makeDirectory(); });
  std::fputs(message.c_str(), stderr);
}
TestSupport::ChildRole const makesADirectoryAsNobodyRole("makesADirectoryAsNobody", makesADirectoryAsNobody);

TEST(RootPath, LackOfRightsIsTold) {
  TempDir const dir;
  auto const child = runChild("makesADirectoryAsNobody", {{"FOLDER", dir.file("a")}});
  if (child.exitCode == TestSupport::kNoRights) GTEST_SKIP() << "no right to become another user";
  EXPECT_THAT(child.errors(), AllOf(HasSubstr(dir.file("a")), HasSubstr("Permission denied")));
}

TEST(RootPath, NetworkFileSystemsAreRefusedAndLocalOnesAreNot) {
  for (long type : {0x6969L, 0x517bL, 0xff534d42L, 0xfe534d42L, 0x01021997L, 0x00c36400L}) {
    EXPECT_TRUE(Mem::Impl::isNetworkFileSystem(type)) << std::hex << type;
    EXPECT_TRUE(Mem::Impl::isNetworkFileSystem(static_cast<std::int32_t>(type))) << std::hex << type;
  }
  // tmpfs, ext4, XFS, Btrfs, overlay, FUSE
  for (long type : {0x01021994L, 0xef53L, 0x58465342L, 0x9123683eL, 0x794c7630L, 0x65735546L}) {
    EXPECT_FALSE(Mem::Impl::isNetworkFileSystem(type)) << std::hex << type;
  }
}

TEST(RootPath, RemovesAFileAndSaysWhetherItWasThere) {
  TempDir const dir;
  TestSupport::writeFile(dir.file("slots"), "x");
  EXPECT_TRUE(rootPath(dir.path()).removeFile("slots"));
  EXPECT_FALSE(isThere(dir.file("slots")));
  EXPECT_FALSE(rootPath(dir.path()).removeFile("slots"));
}

void removesWhatIsNoFile() { MUST(!rootPath(std::getenv("FOLDER")).removeFile("slots")); }
TestSupport::ChildRole const removesWhatIsNoFileRole("removesWhatIsNoFile", removesWhatIsNoFile);

TEST(RootPath, FailureToRemoveIsTracedAndNothingMore) {
  TempDir const dir;
  ASSERT_EQ(::mkdir(dir.file("slots").c_str(), 0755), 0);
  auto const child =
      runChild("removesWhatIsNoFile", {{"FOLDER", dir.path()}, {"HWTABLES_TRACE", "storetest/1"}});
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_THAT(child.errors(), HasSubstr("cannot remove file " + dir.file("slots")));
}

}  // namespace
