#include "Vault/FileImage.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/Files.h"

namespace {

using TestSupport::TempDir;
using TestSupport::writeFile;
using Vault::FileImage;

class Folder {
 public:
  std::string path(char const* name) const { return dir_.file(name); }
  FileImage read(char const* name, std::uint64_t limit = FileImage::kWhole) const {
    return FileImage(path(name), limit);
  }

 private:
  TempDir const dir_;
};

TEST(FileImage, HoldsWhatTheFileHeld) {
  Folder const folder;
  writeFile(folder.path("f"), std::string("\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\2", 16));
  FileImage const image = folder.read("f");
  writeFile(folder.path("f"), "else");
  EXPECT_TRUE(image.exists());
  EXPECT_EQ(image.problem(), "");
  EXPECT_EQ(image.size(), 16U);
  ASSERT_EQ(image.words().size(), 2U);
  EXPECT_EQ(image.words()[0], 1U);
  EXPECT_EQ(image.words()[1], 0x0200000000000000U);
}

TEST(FileImage, LeavesOutAWordThatIsNotWhole) {
  Folder const folder;
  writeFile(folder.path("f"), "12345678abcdefg");
  FileImage const image = folder.read("f");
  EXPECT_EQ(image.size(), 15U);
  EXPECT_EQ(image.words().size(), 1U);
  EXPECT_EQ(image.word(0), 0x3837363534333231U);
  EXPECT_EQ(image.word(1), 0U);
  EXPECT_EQ(image.word(~std::uint64_t{0}), 0U);
}

TEST(FileImage, StopsAtItsLimit) {
  Folder const folder;
  writeFile(folder.path("f"), std::string(100, 'x'));
  FileImage const image = folder.read("f", 16);
  EXPECT_EQ(image.size(), 100U);
  EXPECT_EQ(image.words().size(), 2U);
}

TEST(FileImage, OfAnEmptyFileHasNoWordsAndNoProblem) {
  Folder const folder;
  writeFile(folder.path("f"), "");
  FileImage const image = folder.read("f");
  EXPECT_TRUE(image.exists());
  EXPECT_EQ(image.problem(), "");
  EXPECT_TRUE(image.words().empty());
}

TEST(FileImage, TellsAnAbsentFile) {
  Folder const folder;
  FileImage const image = folder.read("f");
  EXPECT_FALSE(image.exists());
  EXPECT_EQ(image.problem(), "absent");
  EXPECT_EQ(image.word(0), 0U);
}

TEST(FileImage, ReadsNothingButRegularFiles) {
  Folder const folder;
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(::mkdir(folder.path("folder").c_str(), 0700), 0);
  writeFile(folder.path("f"), "12345678");
  ASSERT_EQ(::symlink("f", folder.path("link").c_str()), 0);
  for (auto const& [name, why] :
       {std::pair{"fifo", "it is not a regular file"}, std::pair{"folder", "it is not a regular file"},
        std::pair{"link", "it is a link"}}) {
    FileImage const image = folder.read(name);
    EXPECT_TRUE(image.exists()) << name;
    EXPECT_EQ(image.problem().view(), "cannot open " + folder.path(name) + ": " + why);
    EXPECT_TRUE(image.words().empty()) << name;
  }
}

// On the file system of stores, where reading a hole through a mapping takes a page.
TEST(FileImage, ReadsNoHolesAndFillsNone) {
  std::string path = "/dev/shm/hwtables-test-XXXXXX";
  int const file = ::mkstemp(path.data());
  ASSERT_GE(file, 0);
  ASSERT_EQ(::ftruncate(file, 1 << 30), 0);
  ASSERT_EQ(::pwrite(file, "aaaaaaaa", 8, 1 << 20), 8);
  ASSERT_EQ(::pwrite(file, "bbbbbbbb", 8, (1 << 30) - 8), 8);
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(::fstat(file, &before), 0);
  FileImage const image{Dovel::String(path)};
  ASSERT_EQ(::fstat(file, &after), 0);
  ::close(file);
  ::unlink(path.c_str());
  ASSERT_EQ(image.words().size(), (1U << 30) / 8);
  EXPECT_EQ(image.word(0), 0U);
  EXPECT_EQ(image.word((1 << 20) / 8), 0x6161616161616161U);
  EXPECT_EQ(image.word((1 << 20) / 8 + 1), 0U);
  EXPECT_EQ(image.word((1 << 30) / 8 - 1), 0x6262626262626262U);
  EXPECT_EQ(after.st_blocks, before.st_blocks);
}

TEST(FileImage, RefusesAFileLargerThanTheMachine) {
  Folder const folder;
  int const file = ::open(folder.path("f").c_str(), O_RDWR | O_CREAT, 0600);
  bool const made = ::ftruncate(file, off_t{1} << 43) == 0;
  ::close(file);
  if (!made) GTEST_SKIP() << "the file system has no files of that size";
  EXPECT_EQ(folder.read("f").problem(), "too large to be read: 8796093022208 bytes");
  EXPECT_EQ(folder.read("f", 64).words().size(), 8U);
}

}  // namespace
