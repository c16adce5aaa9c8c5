#include "platform/memory/SharedMemWrapper.h"

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <numeric>
#include <span>

#include "platform/memory/Tracked.h"
#include "tests/platform/memory/Processes.h"
#include "tests/platform/memory/StoreFiles.h"
#include "tests/support/Files.h"

namespace {

using Mem::Access;
using Mem::CoreDump;
using testing::Each;
using testing::HasSubstr;
using TestSupport::contentOf;
using TestSupport::handler;
using TestSupport::isThere;
using TestSupport::rootPath;
using TestSupport::statusOf;
using TestSupport::TempDir;
using TestSupport::writeFile;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kHuge = std::size_t{2} << 20;

struct SharedMemWrapper : testing::Test {
  TestSupport::StoreDir dir;
  std::string const path = dir.file("slots");

  Mem::SharedMemWrapper file(CoreDump coreDump = CoreDump::asProcess) const {
    return {handler(), rootPath(dir.path()), "slots", coreDump};
  }
  std::size_t length() const { return static_cast<std::size_t>(statusOf(path).st_size); }
  std::size_t taken() const { return static_cast<std::size_t>(statusOf(path).st_blocks) * 512; }
};

std::span<std::byte> bytes(std::byte* base, std::size_t size) { return {base, size}; }

void fill(std::byte* base, std::size_t size, unsigned char first = 1) {
  for (std::size_t i = 0; i < size; ++i) base[i] = static_cast<std::byte>(first + i % 251);
}
bool isFilled(std::byte const* base, std::size_t size, unsigned char first = 1) {
  for (std::size_t i = 0; i < size; ++i) {
    if (base[i] != static_cast<std::byte>(first + i % 251)) return false;
  }
  return true;
}
bool isZero(std::byte const* base, std::size_t size) {
  return std::all_of(base, base + size, [](std::byte byte) { return byte == std::byte{0}; });
}

// The value of a line of the mapping that an address lies in; empty where it is not mapped.
std::string smapsLine(void const* address, std::string const& key) {
  std::ifstream smaps("/proc/self/smaps");
  auto const wanted = reinterpret_cast<std::uintptr_t>(address);
  bool within = false;
  for (std::string line; std::getline(smaps, line);) {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    if (std::sscanf(line.c_str(), "%lx-%lx ", &begin, &end) == 2) within = begin <= wanted && wanted < end;
    if (within && line.starts_with(key)) return line.substr(key.size()) + " ";
  }
  return "";
}
std::string flagsOf(void const* address) { return smapsLine(address, "VmFlags:"); }

TEST_F(SharedMemWrapper, NewFileHasItsPagesAtOnceAndIsZero) {
  auto slots = file();
  EXPECT_EQ(slots.memSize(), 0U);
  std::byte* const base = slots.attach(3 * kPage - 5, Access::readWrite, 0);
  ASSERT_NE(base, nullptr) << slots.error();
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(base) % kPage, 0U);
  EXPECT_EQ(slots.mappedSize(), 3 * kPage - 5);
  EXPECT_EQ(slots.memSize(), 3 * kPage);
  EXPECT_EQ(taken(), 3 * kPage);
  EXPECT_TRUE(isZero(base, 3 * kPage));
  EXPECT_EQ(slots.getFilename(), "slots");
}

TEST_F(SharedMemWrapper, NewFileIsReadableByAllWhateverTheUmask) {
  mode_t const before = ::umask(077);
  auto slots = file();
  EXPECT_NE(slots.attach(1, Access::readWrite, 0), nullptr);
  ::umask(before);
  EXPECT_EQ(statusOf(path).st_mode, static_cast<mode_t>(S_IFREG | 0644));
}

TEST_F(SharedMemWrapper, EmptyFileIsNew) {
  writeFile(path, "");
  auto slots = file();
  EXPECT_EQ(slots.memSize(), 0U);
  ASSERT_NE(slots.attach(100, Access::readWrite, 0), nullptr);
  EXPECT_EQ(length(), kPage);
}

TEST_F(SharedMemWrapper, ExistingFileKeepsItsLengthAndIsMappedToItsLastPage) {
  for (std::size_t const size : {std::size_t{1}, kPage - 1, kPage, kPage + 904}) {
    writeFile(path, std::string(size, 'x'));
    auto slots = file();
    EXPECT_EQ(slots.memSize(), size);
    std::byte* const base = slots.attach(10 * kPage, Access::readWrite, 0);
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(slots.mappedSize(), (size + kPage - 1) / kPage * kPage);
    EXPECT_THAT(bytes(base, size), Each(std::byte{'x'}));
    EXPECT_TRUE(isZero(base + size, slots.mappedSize() - size));
    EXPECT_EQ(length(), size);
  }
}

TEST_F(SharedMemWrapper, ExistingFileThatIsLongerIsMappedAsFarAsAsked) {
  writeFile(path, std::string(5 * kPage, 'x'));
  auto slots = file();
  ASSERT_NE(slots.attach(kPage + 1, Access::readWrite, 0), nullptr);
  EXPECT_EQ(slots.mappedSize(), kPage + 1);
  EXPECT_EQ(length(), 5 * kPage);
}

TEST_F(SharedMemWrapper, GrowthWithinALongerFileShowsWhatStandsThere) {
  writeFile(path, std::string(5 * kPage, 'x'));
  auto slots = file();
  ASSERT_NE(slots.attach(kPage, Access::readWrite, 0), nullptr);
  std::byte* const base = slots.resize(5 * kPage);
  ASSERT_NE(base, nullptr);
  EXPECT_THAT(bytes(base, 5 * kPage), Each(std::byte{'x'}));
}

TEST_F(SharedMemWrapper, HolesOfAnExistingFileAreFilledAtAttach) {
  writeFile(path, "x");
  ASSERT_EQ(::truncate(path.c_str(), 16 * kPage), 0);
  auto slots = file();
  ASSERT_NE(slots.attach(8 * kPage, Access::readWrite, 0), nullptr);
  EXPECT_EQ(taken(), 8 * kPage);
  EXPECT_EQ(length(), 16 * kPage);
}

TEST_F(SharedMemWrapper, ReaderMakesNoFile) {
  auto slots = file();
  EXPECT_EQ(slots.attach(kPage, Access::readOnly, 0), nullptr);
  EXPECT_THAT(slots.error().data(), HasSubstr("cannot open " + path + ": No such file"));
  EXPECT_FALSE(isThere(path));
}

TEST_F(SharedMemWrapper, ReaderRefusesAnEmptyFile) {
  writeFile(path, "");
  auto slots = file();
  EXPECT_EQ(slots.attach(kPage, Access::readOnly, 0), nullptr);
  EXPECT_THAT(slots.error().data(), HasSubstr("is empty"));
  EXPECT_EQ(length(), 0U);
}

TEST_F(SharedMemWrapper, ReaderChangesNothing) {
  writeFile(path, std::string(kPage + 10, 'x'));
  ASSERT_EQ(::truncate(path.c_str(), 8 * kPage), 0);
  auto const before = statusOf(path);
  auto slots = file();
  ASSERT_NE(slots.attach(kPage, Access::readOnly, 0), nullptr);
  EXPECT_NE(slots.resize(8 * kPage), nullptr);
  EXPECT_NE(slots.resize(kPage), nullptr);
  slots.detach();
  auto const after = statusOf(path);
  EXPECT_EQ(after.st_size, before.st_size);
  EXPECT_EQ(after.st_blocks, before.st_blocks);
  EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
  EXPECT_EQ(after.st_ctim.tv_nsec, before.st_ctim.tv_nsec);
}

TEST_F(SharedMemWrapper, ReaderSeesWhatTheWriterWritesAndFollowsItsGrowth) {
  auto writer = file();
  auto reader = file();
  std::byte* written = writer.attach(kPage, Access::readWrite, 0);
  std::byte* read = reader.attach(kPage, Access::readOnly, 0);
  ASSERT_TRUE(written != nullptr && read != nullptr);
  written[7] = std::byte{42};
  EXPECT_EQ(read[7], std::byte{42});
  EXPECT_EQ(reader.resize(3 * kPage), nullptr);
  EXPECT_THAT(reader.error().data(), HasSubstr(fmt::format("the file has {}", kPage)));
  EXPECT_EQ(reader.mappedSize(), kPage);
  EXPECT_EQ(read[7], std::byte{42});
  written = writer.resize(3 * kPage);
  read = reader.resize(3 * kPage);
  ASSERT_TRUE(written != nullptr && read != nullptr);
  fill(written, 3 * kPage);
  EXPECT_TRUE(isFilled(read, 3 * kPage));
}

TEST_F(SharedMemWrapper, GrowthKeepsWhatStandsAndAddsZeroesWithTheirPages) {
  auto slots = file();
  std::byte* base = slots.attach(100, Access::readWrite, 0);
  ASSERT_NE(base, nullptr);
  fill(base, kPage);
  base = slots.resize(50 * kPage + 1);
  ASSERT_NE(base, nullptr);
  EXPECT_EQ(slots.mappedSize(), 50 * kPage + 1);
  EXPECT_EQ(length(), 51 * kPage);
  EXPECT_EQ(taken(), 51 * kPage);
  EXPECT_TRUE(isFilled(base, kPage));
  EXPECT_TRUE(isZero(base + kPage, 50 * kPage));
}

TEST_F(SharedMemWrapper, FirstGrowthTakesPagesAheadAsFarAsTheHintOrSixtyFourKilobytesReach) {
  for (auto const& [hint, wanted] : {std::pair{5 * kPage, 5 * kPage}, {100 * kPage, 16 * kPage}}) {
    auto slots = file();
    std::byte* const base = slots.attach(kPage, Access::readWrite, hint);
    ASSERT_EQ(length(), kPage);
    fill(base, kPage);
    ASSERT_EQ(slots.resize(kPage + 1), base) << slots.error();
    EXPECT_EQ(slots.mappedSize(), kPage + 1);
    EXPECT_EQ(length(), wanted);
    EXPECT_EQ(taken(), wanted);
    ASSERT_EQ(slots.resize(wanted), base);
    EXPECT_EQ(length(), wanted);
    EXPECT_TRUE(isFilled(base, kPage) && isZero(base + kPage, wanted - kPage));
    slots.removeFile();
  }
}

TEST_F(SharedMemWrapper, ShrinkGivesBackPagesTakenAheadAndTheyAreTakenAgain) {
  auto slots = file();
  std::byte* const base = slots.attach(kPage, Access::readWrite, 16 * kPage);
  ASSERT_EQ(slots.resize(3 * kPage), base);
  fill(base, 3 * kPage);
  ASSERT_EQ(slots.resize(2 * kPage), base);
  EXPECT_EQ(taken(), 2 * kPage);
  EXPECT_EQ(length(), 16 * kPage);
  ASSERT_EQ(slots.resize(5 * kPage), base);
  EXPECT_EQ(taken(), 5 * kPage);
  EXPECT_TRUE(isFilled(base, 2 * kPage) && isZero(base + 2 * kPage, 3 * kPage));
}

TEST_F(SharedMemWrapper, PagesOfALongerFileAreTakenBeforeTheyAreUsed) {
  writeFile(path, std::string(kPage, 'x'));
  ASSERT_EQ(::truncate(path.c_str(), 40 * kPage), 0);
  auto slots = file();
  ASSERT_NE(slots.attach(kPage, Access::readWrite, 40 * kPage), nullptr);
  ASSERT_NE(slots.resize(3 * kPage), nullptr);
  EXPECT_EQ(taken(), 3 * kPage);
  ASSERT_NE(slots.resize(7 * kPage), nullptr);
  EXPECT_EQ(taken(), 7 * kPage);
  EXPECT_EQ(length(), 40 * kPage);
}

TEST_F(SharedMemWrapper, ShrinkGivesPagesBackAndKeepsTheLength) {
  auto slots = file();
  std::byte* base = slots.attach(8 * kPage, Access::readWrite, 0);
  ASSERT_NE(base, nullptr);
  fill(base, 8 * kPage);
  EXPECT_EQ(slots.resize(2 * kPage + 1), base);
  EXPECT_EQ(slots.mappedSize(), 2 * kPage + 1);
  EXPECT_EQ(length(), 8 * kPage);
  EXPECT_EQ(taken(), 3 * kPage);
  EXPECT_TRUE(isFilled(base, 3 * kPage));
}

TEST_F(SharedMemWrapper, LateReaderFindsZeroesAfterAShrink) {
  auto writer = file();
  auto reader = file();
  std::byte* const written = writer.attach(8 * kPage, Access::readWrite, 0);
  fill(written, 8 * kPage);
  std::byte const* const read = reader.attach(8 * kPage, Access::readOnly, 0);
  ASSERT_NE(read, nullptr);
  ASSERT_TRUE(isFilled(read, 8 * kPage));
  ASSERT_NE(writer.resize(kPage), nullptr);
  EXPECT_TRUE(isFilled(read, kPage));
  EXPECT_TRUE(isZero(read + kPage, 7 * kPage));
}

TEST_F(SharedMemWrapper, RegrowthAfterAShrinkIsZeroAndHasItsPages) {
  auto slots = file();
  fill(slots.attach(8 * kPage, Access::readWrite, 0), 8 * kPage);
  ASSERT_NE(slots.resize(kPage), nullptr);
  std::byte* const base = slots.resize(6 * kPage);
  ASSERT_NE(base, nullptr);
  EXPECT_EQ(taken(), 6 * kPage);
  EXPECT_EQ(length(), 8 * kPage);
  EXPECT_TRUE(isZero(base + kPage, 5 * kPage));
}

TEST_F(SharedMemWrapper, ShrinkGivesBackWhatAnEarlierWriterLeftBehindTheMapping) {
  writeFile(path, std::string(8 * kPage, 'x'));
  auto slots = file();
  ASSERT_NE(slots.attach(3 * kPage, Access::readWrite, 0), nullptr);
  ASSERT_NE(slots.resize(kPage), nullptr);
  EXPECT_EQ(taken(), kPage);
  EXPECT_EQ(length(), 8 * kPage);
}

TEST_F(SharedMemWrapper, LargeMappingsStandAtAMultipleOfTwoMegabytes) {
  auto slots = file();
  std::byte* base = slots.attach(kPage, Access::readWrite, 0);
  for (std::size_t size = 2 * kPage; size <= 4 * kHuge; size *= 2) {
    fill(base, slots.mappedSize());
    std::size_t const before = slots.mappedSize();
    base = slots.resize(size);
    ASSERT_NE(base, nullptr) << slots.error();
    ASSERT_TRUE(isFilled(base, before) && isZero(base + before, size - before)) << size;
    if (size >= kHuge) {
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(base) % kHuge, 0U) << size;
    }
    ASSERT_GE(taken(), size);
  }
  auto reader = file();
  std::byte const* const read = reader.attach(4 * kHuge, Access::readOnly, 0);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(read) % kHuge, 0U);
  EXPECT_TRUE(isFilled(read, 2 * kHuge));
}

TEST_F(SharedMemWrapper, HintKeepsTheBaseWhileTheFileGrowsAndShrinks) {
  auto slots = file();
  std::byte* const base = slots.attach(kPage, Access::readWrite, 2 * kHuge);
  ASSERT_NE(base, nullptr);
  EXPECT_EQ(length(), kPage);
  for (std::size_t const size : {2 * kPage, kHuge + kPage, 2 * kHuge, kPage, 3 * kPage, 2 * kHuge}) {
    ASSERT_EQ(slots.resize(size), base) << size;
    fill(base, size);
  }
  EXPECT_NE(slots.resize(3 * kHuge), nullptr);
}

TEST_F(SharedMemWrapper, ReaderHasWhatItsHintCoveredWithoutTheName) {
  auto writer = file();
  fill(writer.attach(8 * kPage, Access::readWrite, 0), 8 * kPage);
  auto reader = file();
  std::byte const* const base = reader.attach(kPage, Access::readOnly, 8 * kPage);
  ASSERT_NE(base, nullptr);
  EXPECT_EQ(reader.mappedSize(), kPage);
  ASSERT_EQ(::rename(path.c_str(), (path + ".away").c_str()), 0);
  ASSERT_EQ(reader.resize(8 * kPage), base);
  EXPECT_EQ(reader.mappedSize(), 8 * kPage);
  EXPECT_TRUE(isFilled(base, 8 * kPage));
  EXPECT_EQ(reader.resize(8 * kPage + 1), nullptr);
}

TEST_F(SharedMemWrapper, HintOfMoreThanThereIsCostsNothing) {
  auto slots = file();
  std::byte* const base = slots.attach(kPage, Access::readWrite, ~std::size_t{0});
  ASSERT_NE(base, nullptr) << slots.error();
  fill(base, kPage);
}

std::string hugePagesOf(std::byte const* base) {
  std::string const value = smapsLine(base, "ShmemPmdMapped:");
  return value.substr(std::min(value.find_first_not_of(' '), value.size()));
}

TEST_F(SharedMemWrapper, LargeFilesGetHugePagesWhereTheKernelHasThem) {
  TempDir const inMemory("/dev/shm");
  auto const root = rootPath(inMemory.path());
  Mem::SharedMemWrapper probe(handler(), root, "probe", CoreDump::asProcess);
  std::byte* base = probe.attach(kHuge, Access::readWrite, 0);
  ASSERT_NE(base, nullptr);
  fill(base, kHuge);
  if (hugePagesOf(base) == "0 kB ") GTEST_SKIP() << "no huge pages on this machine";

  Mem::SharedMemWrapper writer(handler(), root, "slots", CoreDump::asProcess);
  Mem::SharedMemWrapper reader(handler(), root, "slots", CoreDump::asProcess);
  fill(writer.attach(kPage, Access::readWrite, 0), kPage);
  ASSERT_TRUE(isFilled(reader.attach(kPage, Access::readOnly, 0), kPage));
  for (std::size_t const size : {3 * kHuge / 2, 5 * kHuge / 2, 5 * kHuge}) {
    std::string const wanted = fmt::format("{} kB ", size / kHuge * kHuge / 1024);
    base = writer.resize(size);
    fill(base, size);
    EXPECT_EQ(hugePagesOf(base), wanted);
    std::byte const* const read = reader.resize(size);
    EXPECT_TRUE(isFilled(read, size));
    EXPECT_EQ(hugePagesOf(read), wanted);
  }
  Mem::SharedMemWrapper later(handler(), root, "slots", CoreDump::asProcess);
  std::byte const* const read = later.attach(kPage, Access::readOnly, 5 * kHuge);
  EXPECT_TRUE(isFilled(read, kPage));
  EXPECT_EQ(later.resize(5 * kHuge), read);
  EXPECT_TRUE(isFilled(read, 5 * kHuge));
  EXPECT_EQ(hugePagesOf(read), fmt::format("{} kB ", 5 * kHuge / 1024));
}

TEST_F(SharedMemWrapper, WriterMappingsAreNotInheritedByAForkedChild) {
  auto writer = file();
  auto reader = file();
  std::byte* base = writer.attach(kPage, Access::readWrite, 0);
  base = writer.resize(5 * kPage);
  std::byte const* const read = reader.attach(kPage, Access::readOnly, 0);
  EXPECT_THAT(flagsOf(base), HasSubstr(" dc "));
  pid_t const child = TestSupport::forked([&] {
    MUST(flagsOf(base).empty());
    MUST(!flagsOf(read).empty());
    MUST(writer.resize(9 * kPage) == nullptr && writer.resize(kPage) == nullptr);
    writer.dumpToCoreIs(CoreDump::forced);
  });
  EXPECT_EQ(TestSupport::waitedFor(child), 0);
  EXPECT_EQ(length(), 5 * kPage);
  EXPECT_EQ(taken(), 5 * kPage);
}

TEST_F(SharedMemWrapper, CoreDumpsHoldOrLeaveOutTheMappingAsTold) {
  for (auto const mode : {CoreDump::included, CoreDump::asProcess, CoreDump::forced, CoreDump::excluded}) {
    auto slots = file(mode);
    std::byte* base = slots.attach(kPage, Access::readWrite, 0);
    base = slots.resize(10 * kPage);
    EXPECT_EQ(flagsOf(base).find(" dd ") != std::string::npos, mode == CoreDump::excluded);
  }
  auto slots = file(CoreDump::excluded);
  std::byte* const base = slots.attach(kPage, Access::readWrite, 0);
  slots.dumpToCoreIs(CoreDump::forced);
  EXPECT_EQ(flagsOf(base).find(" dd "), std::string::npos);
}

TEST_F(SharedMemWrapper, DetachIsIdempotentAndKeepsTheFile) {
  auto slots = file();
  slots.detach();
  std::byte* const base = slots.attach(kPage, Access::readWrite, kHuge);
  fill(base, kPage);
  slots.detach();
  EXPECT_EQ(flagsOf(base), "");
  EXPECT_EQ(flagsOf(base + kPage), "");
  slots.detach();
  EXPECT_EQ(slots.mappedSize(), 0U);
  EXPECT_EQ(slots.memSize(), kPage);
  EXPECT_EQ(slots.resize(kPage), nullptr);
  EXPECT_THAT(slots.error().data(), HasSubstr("not mapped"));
  EXPECT_TRUE(isFilled(slots.attach(kPage, Access::readWrite, 0), kPage));
}

TEST_F(SharedMemWrapper, NothingStaysMappedAfterADetach) {
  for (auto const access : {Access::readWrite, Access::readOnly}) {
    auto slots = file();
    std::byte const* const base = slots.attach(kPage, access, 0);
    EXPECT_FALSE(flagsOf(base).empty());
    slots.detach();
    EXPECT_EQ(contentOf("/proc/self/maps").find(path), std::string::npos);
  }
}

TEST_F(SharedMemWrapper, RemovedFileStaysMappedAndCantGrow) {
  auto slots = file();
  slots.removeFile();
  std::byte* const base = slots.attach(2 * kPage, Access::readWrite, 0);
  fill(base, 2 * kPage);
  slots.removeFile();
  EXPECT_EQ(slots.memSize(), 0U);
  EXPECT_TRUE(isFilled(base, 2 * kPage));
  EXPECT_EQ(slots.resize(3 * kPage), nullptr);
  EXPECT_EQ(slots.mappedSize(), 2 * kPage);
  EXPECT_EQ(slots.resize(kPage), base);
}

TEST_F(SharedMemWrapper, FileThatTookTheMappedOnesPlaceIsLeftAlone) {
  auto slots = file();
  std::byte* const base = slots.attach(4 * kPage, Access::readWrite, 0);
  slots.removeFile();
  writeFile(path, std::string(4 * kPage, 'x'));
  EXPECT_EQ(slots.resize(8 * kPage), nullptr);
  EXPECT_THAT(slots.error().data(), HasSubstr("no longer the file"));
  EXPECT_EQ(slots.resize(kPage), base);
  EXPECT_EQ(contentOf(path), std::string(4 * kPage, 'x'));
}

TEST_F(SharedMemWrapper, WhatIsNoFileIsAnErrorAtOnce) {
  for (auto const& [name, make] : TestSupport::notFiles()) {
    make(path);
    for (auto const access : {Access::readWrite, Access::readOnly}) {
      auto slots = file();
      EXPECT_EQ(slots.memSize(), 0U) << name;
      EXPECT_EQ(slots.attach(kPage, access, 0), nullptr) << name;
      EXPECT_THAT(slots.error().data(), HasSubstr("cannot open " + path + ": ")) << name;
    }
    ASSERT_EQ(::remove(path.c_str()), 0) << name;
  }
}

TEST_F(SharedMemWrapper, DeviceInTheFilesPlaceIsAnError) {
  if (::mknod(path.c_str(), S_IFCHR | 0644, makedev(1, 5)) != 0) GTEST_SKIP() << "no right to make a device";
  auto slots = file();
  EXPECT_EQ(slots.attach(kPage, Access::readWrite, 0), nullptr);
}

TEST_F(SharedMemWrapper, ImpossibleSizesAreErrors) {
  auto slots = file();
  for (std::size_t const size : {std::size_t{0}, ~std::size_t{0}, std::size_t{1} << 62}) {
    EXPECT_EQ(slots.attach(size, Access::readWrite, 0), nullptr);
  }
  EXPECT_FALSE(isThere(path));
  std::byte* const base = slots.attach(kPage, Access::readWrite, 0);
  fill(base, kPage);
  for (std::size_t const size : {std::size_t{0}, ~std::size_t{0}, std::size_t{1} << 62}) {
    EXPECT_EQ(slots.resize(size), nullptr) << size;
    EXPECT_FALSE(slots.error().empty());
  }
  EXPECT_EQ(slots.mappedSize(), kPage);
  EXPECT_TRUE(isFilled(base, kPage));
}

TEST_F(SharedMemWrapper, LeavesNoDescriptorOpen) {
  int const before = ::dup(0);
  ::close(before);
  auto slots = file();
  ASSERT_NE(slots.attach(kPage, Access::readWrite, 0), nullptr);
  ASSERT_NE(slots.resize(4 * kPage), nullptr);
  ASSERT_NE(slots.resize(kPage), nullptr);
  int const after = ::dup(0);
  ::close(after);
  EXPECT_EQ(after, before);
}

TEST_F(SharedMemWrapper, TrackedMappingCountsWhatIsMapped) {
  Mem::MemoryTracker tracker;
  {
    Mem::Tracked<Mem::SharedMemWrapper> slots(handler(), rootPath(dir.path()), "slots", CoreDump::asProcess);
    ASSERT_NE(slots.attach(kPage, Access::readWrite, 0), nullptr);
    EXPECT_EQ(tracker.bytes(), 0U);
    slots.enable(&tracker);
    EXPECT_EQ(tracker.bytes(), kPage);
    ASSERT_NE(slots.resize(5 * kPage), nullptr);
    EXPECT_EQ(tracker.bytes(), 5 * kPage);
    ASSERT_NE(slots.resize(2 * kPage), nullptr);
    EXPECT_EQ(tracker.bytes(), 2 * kPage);
    slots.detach();
    EXPECT_EQ(tracker.bytes(), 0U);
    ASSERT_NE(slots.attach(3 * kPage, Access::readWrite, 0), nullptr);
    EXPECT_EQ(tracker.bytes(), 3 * kPage);
  }
  EXPECT_EQ(tracker.bytes(), 0U);
}

}  // namespace
