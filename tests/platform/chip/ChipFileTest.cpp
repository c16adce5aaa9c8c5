// Chips whose state is kept in files, through the lives of the processes that use them.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>

#include "platform/chip/ChipState.h"
#include "runtime/Dovel/Exception.h"
#include "tests/platform/chip/ChipSupport.h"
#include "tests/platform/memory/Processes.h"
#include "tests/support/Files.h"
#include "tests/support/Message.h"

namespace {

using namespace TestSupport;
using Sluice::SchanStatus;
using testing::HasSubstr;

// Where things stand in the file, told here anew.
constexpr std::size_t kMagic = 0;
constexpr std::size_t kVersion = 8;
constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kFileSize = 16;
constexpr std::size_t kFingerprint = 24;
constexpr std::size_t kLife = 32;
constexpr std::size_t kRows = 4096;

struct ChipFile : testing::Test {
  TempDir const dir;
  std::string const path = dir.file("fap-0.chip");

  Dovel::Ptr<Chip::SoftwareChip> opened(unsigned faps = 1) const { return chipOf(faps, dir.path()); }
  std::string refusal() const {
    return messageOf<Dovel::InvalidInitializeException>([this] { opened(); });
  }
  void write(Chip::SoftwareChip& chip, unsigned content, unsigned row = 0, unsigned fap = 0) const {
    EXPECT_EQ(answerTo(chip, writeOf(after(kAds, row), content), fap).status, SchanStatus::ok);
  }
  // A chip with one row written, and then a change of its file.
  template <class Change>
  void changed(Change const& change) const {
    write(*opened(), 1);
    std::string bytes = contentOf(path);
    change(bytes);
    writeFile(path, bytes);
  }
  // What the file takes on the disk.
  off_t blockBytes() const {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_blocks * 512;
  }
  static void increment(std::string& bytes, std::size_t at) { bytes[at] = static_cast<char>(bytes[at] + 1); }
};

TEST_F(ChipFile, KeepsTheRowsOfEachFapForTheNextLife) {
  {
    auto const chip = opened(2);
    write(*chip, 1, 0, 0);
    write(*chip, 2, 4095, 1);
    EXPECT_EQ(answerTo(*chip, writeOf(kRegister, 3), 1).status, SchanStatus::ok);
  }
  auto const chip = opened(3);
  EXPECT_EQ(rowIn(*chip, kAds, 0), rowOf(kAds, 1));
  EXPECT_EQ(rowIn(*chip, after(kAds, 4095), 1), rowOf(kAds, 2));
  EXPECT_EQ(rowIn(*chip, kRegister, 1), rowOf(kRegister, 3));
  EXPECT_TRUE(chip->programmed(0));
  EXPECT_TRUE(chip->programmed(1));
  EXPECT_FALSE(chip->programmed(2));
  EXPECT_EQ(chip->resets(0), 0U);
}

TEST_F(ChipFile, BeginsWithTheHeaderThatIsDocumented) {
  write(*opened(), 1);
  std::string const bytes = contentOf(path);
  auto const number = [&bytes](std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    std::memcpy(&value, &bytes.at(at), size);
    return value;
  };
  EXPECT_EQ(bytes.substr(kMagic, 8), "HWTLCHIP");
  EXPECT_EQ(number(kVersion, 4), 2U);
  EXPECT_EQ(number(kHeaderSize, 4), kRows);
  EXPECT_EQ(number(kFileSize, 8), bytes.size());
  EXPECT_EQ(number(kFingerprint, 8),
            Chip::ChipMemoryMap::fingerprint() * 0x100000001B3 ^ Chip::ExactMatchMap::fingerprint());
  EXPECT_EQ(number(kLife, 4), 1U);
  std::size_t const row = kRows + Chip::ChipMemoryMap::find(kAds.block, kAds.row)->storedAt;
  EXPECT_EQ(std::memcmp(&bytes.at(row), rowOf(kAds, 1).data(), kAds.rowBytes), 0);
}

TEST_F(ChipFile, StaysBlankWhereNothingWasWritten) {
  EXPECT_EQ(answerTo(*opened(), readOf(kAds)).status, SchanStatus::ok);
  EXPECT_FALSE(opened()->programmed(0));
}

TEST_F(ChipFile, KeepsAReset) {
  {
    auto const chip = opened();
    write(*chip, 1);
    chip->reset(0);
  }
  auto const chip = opened();
  EXPECT_FALSE(chip->programmed(0));
  EXPECT_EQ(rowIn(*chip, kAds), RowBytes(16));
}

TEST_F(ChipFile, OfAResetThatWasCutOffTheNextLifeMakesAWholeOne) {
  changed([](std::string& bytes) { bytes[kLife] = 2; });
  auto const chip = opened();
  EXPECT_FALSE(chip->programmed(0));
  EXPECT_EQ(rowIn(*chip, kAds), RowBytes(16));
}

// Writes ascending contents to ascending rows, over and over, and tells how far it is.
[[noreturn]] void writeForever(std::string const& directory, Signpost const& written) {
  auto const chip = chipOf(1, directory);
  for (unsigned number = 0;; ++number) {
    MUST(answerTo(*chip, writeOf(after(kAds, number % 4096), number)).status == SchanStatus::ok);
    if (number == 5000) written.tell();
  }
}

TEST_F(ChipFile, OutlivesAProcessThatIsKilled) {
  for (unsigned round = 0; round < 5; ++round) {
    Signpost const written;
    pid_t const child = forked([&] { writeForever(dir.path(), written); });
    EXPECT_TRUE(written.wait());
    ::kill(child, SIGKILL);
    EXPECT_EQ(WTERMSIG(waitedFor(child)), SIGKILL);
    auto const chip = opened();
    EXPECT_TRUE(chip->programmed(0));
    // All rows were written at least once, so none of them is blank.
    for (std::uint32_t row = 0; row < 4096; ++row) ASSERT_NE(rowIn(*chip, after(kAds, row)), RowBytes(16));
  }
}

TEST_F(ChipFile, AProcessKilledWhileItMakesChipsLeavesNoneThatIsHalfMade) {
  for (unsigned round = 0; round < 20; ++round) {
    pid_t const child = forked([this] {
      for (;;) {
        chipOf(2, dir.path());
        ::unlink(path.c_str());
        ::unlink(dir.file("fap-1.chip").c_str());
      }
    });
    ::usleep(2000 + round * 300);
    ::kill(child, SIGKILL);
    waitedFor(child);
    auto const chip = opened(2);
    EXPECT_FALSE(chip->programmed(0));
    write(*chip, 1, 0, 1);
    chip->reset(1);
  }
}

TEST_F(ChipFile, WhatIsLeftOfAChipThatWasNotMadeDoesNotMatter) {
  writeFile(path + ".new", std::string(5000000, 'x'));
  EXPECT_EQ(rowIn(*opened(), kAds), RowBytes(16));
  EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST_F(ChipFile, RowsMayBeTornAndTheChipStillOpens) {
  changed([](std::string& bytes) {
    for (std::size_t at = kRows; at < bytes.size(); at += 37) bytes[at] = 'x';
  });
  EXPECT_TRUE(opened()->programmed(0));
}

TEST_F(ChipFile, AHeaderThatIsNotOneIsRefusedWithTheReason) {
  changed([](std::string& bytes) { bytes.replace(0, 8, 8, '\0'); });
  EXPECT_EQ(refusal(), path + " is no chip of this program: it begins with 0x0");
  writeFile(path, "short");
  EXPECT_EQ(refusal(), path + " is no chip of this program: its header is cut off");
  writeFile(path, "");
  EXPECT_THAT(refusal(), HasSubstr("its header is cut off"));
}

TEST_F(ChipFile, AFileThatWasRefusedStaysAsItIs) {
  changed([](std::string& bytes) { bytes[kMagic] = '?'; });
  std::string const before = contentOf(path);
  refusal();
  EXPECT_EQ(contentOf(path), before);
}

TEST_F(ChipFile, AnotherVersionOrAnotherMapIsRefused) {
  changed([](std::string& bytes) { increment(bytes, kVersion); });
  EXPECT_EQ(refusal(), path + " is no chip of this program: it has version 3 of the format, not 2");
  std::filesystem::remove(path);
  changed([](std::string& bytes) { increment(bytes, kFingerprint); });
  EXPECT_THAT(
      refusal(),
      HasSubstr(path + " is no chip of this program: its memories and databases are those of map 0x"));
}

TEST_F(ChipFile, AFileOfAnotherSizeIsRefused) {
  for (auto const& change : std::initializer_list<void (*)(std::string&)>{
           [](std::string& bytes) { bytes.pop_back(); }, [](std::string& bytes) { bytes += 'x'; },
           [](std::string& bytes) { increment(bytes, kFileSize); },
           [](std::string& bytes) { increment(bytes, kHeaderSize); }}) {
    changed(change);
    EXPECT_THAT(refusal(), HasSubstr("where a chip has"));
    std::filesystem::remove(path);
  }
}

TEST_F(ChipFile, AStateThatThereIsNotIsRefused) {
  changed([](std::string& bytes) { bytes[kLife] = 3; });
  EXPECT_EQ(refusal(), path + " is no chip of this program: its state is 3");
}

TEST_F(ChipFile, WhatIsNoFileIsRefused) {
  std::filesystem::create_directory(path);
  EXPECT_EQ(refusal(), "cannot open " + path + ": Is a directory");
}

TEST_F(ChipFile, ASecondUserOfTheDirectoryIsRefused) {
  std::string const text =
      "the chips in " + dir.path() + " are in use: " + dir.file(".chips.lock") + " is locked";
  auto const chip = opened();
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([this] { opened(); }), text);
  pid_t const child =
      forked([&] { MUST(messageOf<Dovel::NoPermissionException>([this] { opened(); }) == text); });
  EXPECT_EQ(waitedFor(child), 0);
}

TEST_F(ChipFile, TheDirectoryIsFreeOnceItsUserIsGone) {
  opened();
  opened();
  pid_t const child = forked([this] {
    opened();
    ::kill(::getpid(), SIGKILL);
  });
  waitedFor(child);
  opened();
}

TEST_F(ChipFile, ADirectoryIsMadeWithThoseAboveIt) {
  std::string const deep = dir.file("some/where");
  write(*chipOf(1, deep), 1);
  EXPECT_TRUE(chipOf(1, deep)->programmed(0));
}

TEST_F(ChipFile, ARelativeDirectoryIsOneOfTheWorkingDirectory) {
  pid_t const child = forked([this] {
    MUST(::chdir(dir.path().c_str()) == 0);
    chipOf(1, "chips");
  });
  EXPECT_EQ(waitedFor(child), 0);
  EXPECT_TRUE(std::filesystem::exists(dir.file("chips/fap-0.chip")));
}

// But for the slots of the databases.
TEST_F(ChipFile, IsTakenFromTheDiskAtOnce) {
  opened();
  EXPECT_GE(blockBytes(), static_cast<off_t>(kRows + Chip::ChipMemoryMap::bytes()));
}

TEST_F(ChipFile, ACopyWithHolesGetsTheRoomThatItLacks) {
  opened();
  auto const size = static_cast<off_t>(std::filesystem::file_size(path));
  ASSERT_EQ(::truncate(path.c_str(), kRows), 0);
  ASSERT_EQ(::truncate(path.c_str(), size), 0);
  opened();
  EXPECT_GE(blockBytes(), static_cast<off_t>(kRows + Chip::ChipMemoryMap::bytes()));
}

TEST_F(ChipFile, AFileThatHasNoRoomIsAnErrorAndLeavesNothing) {
  pid_t const child = forked([this] {
    rlimit const limit{100000, 100000};
    MUST(::setrlimit(RLIMIT_FSIZE, &limit) == 0);
    std::string const text = messageOf<Dovel::MemoryResourceException>([this] { opened(); });
    MUST(text == "cannot make " + path + ": File too large");
  });
  EXPECT_EQ(waitedFor(child), 0);
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST_F(ChipFile, NoFileIsMadeWithoutADirectory) {
  write(*chipOf(1), 1);
  EXPECT_TRUE(dir.files().empty());
}

}  // namespace
