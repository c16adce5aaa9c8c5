#include "Vault/StoreFiles.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "Vault/StoreFigures.h"
#include "platform/memory/OwnerFile.h"
#include "platform/memory/ProcessIdentity.h"
#include "tests/support/Files.h"
#include "tests/support/StoreBytes.h"

namespace {

using testing::ElementsAre;
using TestSupport::Bytes;
using TestSupport::put32;
using TestSupport::StoreBytes;
using TestSupport::TempDir;
using TestSupport::writeFile;
using Vault::StoreFigures;
using Vault::StoreFiles;

constexpr auto kWhole = StoreFiles::Extent::whole;
constexpr auto kHeaders = StoreFiles::Extent::headers;

StoreFiles read(TempDir const& dir, StoreFiles::Extent extent = kWhole) {
  return {Mem::RootPath(Dovel::Platform::getDebugHandler("StoreFilesTest", true), dir.path(), true), extent};
}

// Records of 4 bytes, whose hash is their number.
StoreBytes store(std::uint32_t slots, std::uint32_t buckets, std::vector<std::uint32_t> const& hashes) {
  std::vector<StoreBytes::Record> records;
  for (std::uint32_t const hash : hashes) {
    Bytes value(4);
    put32(value, 0, hash);
    records.push_back({value, hash});
  }
  return {{"Test::Entry", 4, slots, buckets, 0x00050006, 0}, records};
}

TEST(StoreFiles, ReadsEveryFieldOfTheHeaders) {
  TempDir const dir;
  StoreBytes bytes = store(8, 4, {0, 1});
  put32(bytes.slots, 24, 1000);
  put32(bytes.slots, 32, 0xf1a6);
  put32(bytes.slots, 556, 0x00030000);
  put32(bytes.slots, 572, 64);
  put32(bytes.slots, 576, 0x5eed);
  put32(bytes.slots, 580, 44);
  put32(bytes.slots, 584, 7);
  put32(bytes.slots, 592, 33);
  put32(bytes.slots, 600, 0x11223344);
  put32(bytes.slots, 604, 0x55667788);
  put32(bytes.buckets, 16, 9);
  bytes.writeTo(dir.path());
  for (auto const extent : {kWhole, kHeaders}) {
    StoreFiles const files = read(dir, extent);
    Vault::SlotsImage const& slots = files.slots();
    EXPECT_EQ(slots.magic(), 0x6c737468U);
    EXPECT_EQ(slots.headerSize(), 608);
    EXPECT_EQ(slots.formatVersion(), 1);
    EXPECT_EQ(slots.valueSize(), 4U);
    EXPECT_EQ(slots.slotSize(), 24U);
    EXPECT_EQ(slots.generation(), SharedMem::EmberId(5, 6));
    EXPECT_EQ(slots.capacity(), 8U);
    EXPECT_EQ(slots.maximumSize(), 1000U);
    EXPECT_EQ(slots.marshalledSize(), 4U);
    EXPECT_EQ(slots.flags(), 0xf1a6U);
    EXPECT_EQ(slots.typeName(), "Test::Entry");
    EXPECT_EQ(slots.runtimeFlags(), 3);
    EXPECT_EQ(slots.occupiedSlots(), 2U);
    EXPECT_EQ(slots.freeList(), 2U);
    EXPECT_EQ(slots.peakNumSlots(), 64U);
    EXPECT_EQ(slots.hashSeed(), 0x5eedU);
    EXPECT_EQ(slots.watermark(), 44U);
    EXPECT_EQ(slots.numSlots(), (Vault::Count{7, 8}));
    EXPECT_EQ(slots.largestOccupied(), 33U);
    EXPECT_EQ(slots.scratchpad(), 0x5566778811223344U);
    EXPECT_EQ(files.buckets().numBuckets(), (Vault::Count{9, 4}));
    EXPECT_EQ(files.buckets().generation(), SharedMem::EmberId(5, 6));
    EXPECT_EQ(files.generation(), SharedMem::EmberId(5, 6));
  }
}

TEST(StoreFiles, ReadsSlotsWhereverTheirHashStandsInAWord) {
  StoreBytes bytes({"Test::Entry", 8, 2, 1}, {{Bytes(8), 0x12345678}});
  Vault::SlotsImage const slots{Vault::FileImage(bytes.slots)};
  EXPECT_EQ(slots.hash(0), VaultCore::reverseBits(0x12345678));
  EXPECT_EQ(slots.link(0), (Vault::SlotLink{5, 0xbfffffff}));
  EXPECT_EQ(slots.hash(1), 0U);
  StoreBytes odd({"Test::Entry", 12, 2, 1}, {{Bytes(12), 0x12345678}});
  EXPECT_EQ(Vault::SlotsImage(Vault::FileImage(odd.slots)).hash(0), VaultCore::reverseBits(0x12345678));
}

TEST(StoreFiles, ReadsNoMoreSlotsThanTheFileHas) {
  StoreBytes bytes = store(8, 1, {});
  put32(bytes.slots, 588, 0xffffffff);
  bytes.slots.pop_back();
  EXPECT_EQ(Vault::SlotsImage(Vault::FileImage(bytes.slots)).slots(), 7U);
}

TEST(StoreFiles, TellsMarksAndAbsentFiles) {
  TempDir const dir;
  StoreFiles const empty = read(dir);
  EXPECT_EQ(empty.slots().file().problem(), "absent");
  EXPECT_EQ(empty.buckets().file().problem(), "absent");
  EXPECT_EQ(empty.generation(), SharedMem::EmberId());
  EXPECT_FALSE(empty.hasControlFile());
  EXPECT_FALSE(empty.isMarkedCorrupt());
  EXPECT_FALSE(empty.isLocked());
  store(8, 4, {}).writeTo(dir.path());
  writeFile(dir.file("corruption-detected"), "");
  StoreFiles const full = read(dir);
  EXPECT_TRUE(full.hasControlFile());
  EXPECT_TRUE(full.isMarkedCorrupt());
}

TEST(StoreFiles, TellsWhatTheOwnerFileTells) {
  TempDir const dir;
  Mem::RootPath const rootPath(Dovel::Platform::getDebugHandler("StoreFilesTest", true), dir.path(), true);
  SharedMem::OwnerFile owner(rootPath.debugHandler(), rootPath, false);
  owner.typeNameIs("Test::Entry");
  owner.sharedMemTypeIs(1);
  owner.wipedIs(true);
  SharedMem::WireletInfo info;
  info.socketNameIs("a socket");
  owner.wireletInfoIs(info);
  StoreFiles const files = read(dir);
  EXPECT_EQ(files.ownerProblem(), "");
  EXPECT_TRUE(files.owner().known);
  EXPECT_TRUE(files.owner().wiped);
  EXPECT_EQ(files.owner().sharedMemType, 1U);
  EXPECT_EQ(files.owner().pid, ::getpid());
  EXPECT_EQ(files.owner().bootId, Mem::bootId());
  EXPECT_EQ(files.owner().typeName, "Test::Entry");
  EXPECT_EQ(files.owner().socketName, "a socket");
}

TEST(StoreFiles, TakesAnOwnerFileThatIsNotThereOrEmptyForANewOne) {
  TempDir const dir;
  EXPECT_FALSE(read(dir).owner().known);
  EXPECT_EQ(read(dir).ownerProblem(), "");
  writeFile(dir.file("owner"), "");
  EXPECT_FALSE(read(dir).owner().known);
  EXPECT_EQ(read(dir).ownerProblem(), "");
  writeFile(dir.file("owner"), "x");
  EXPECT_FALSE(read(dir).owner().known);
  EXPECT_EQ(read(dir).ownerProblem().view(),
            "bad owner file " + dir.file("owner") + ": first copy short, second copy short");
}

TEST(StoreFiles, SeesTheLockOfAWriterAndLeavesItAlone) {
  TempDir const dir;
  writeFile(dir.file(".writer.lock"), "");
  int const file = ::open(dir.file(".writer.lock").c_str(), O_RDWR);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  EXPECT_FALSE(read(dir, kHeaders).isLocked());
  ASSERT_EQ(::fcntl(file, F_OFD_SETLK, &lock), 0) << "asking has taken the lock";
  EXPECT_TRUE(read(dir, kHeaders).isLocked());
  ::close(file);
  EXPECT_FALSE(read(dir, kHeaders).isLocked());
}

TEST(StoreFiles, LeavesADirectoryAsItWas) {
  TempDir const dir;
  store(8, 4, {1, 2, 3}).writeTo(dir.path());
  writeFile(dir.file(".writer.lock"), "");
  auto const look = [&dir] {
    std::map<std::string, std::pair<long, std::string>> seen;
    for (std::string const& path : dir.files()) {
      struct stat status {};
      EXPECT_EQ(::stat(path.c_str(), &status), 0);
      seen[path] = {status.st_mtim.tv_nsec, TestSupport::contentOf(path)};
    }
    return seen;
  };
  auto const before = look();
  StoreFiles const files = read(dir);
  EXPECT_EQ(look(), before);
}

TEST(StoreFigures, CountsChainsByTheirLengths) {
  StoreBytes const bytes = store(16, 4, {0, 4, 8, 2, 1, 5});
  StoreFigures const figures = StoreFigures::of(Vault::SlotsImage(Vault::FileImage(bytes.slots)),
                                                Vault::BucketsImage(Vault::FileImage(bytes.buckets)));
  EXPECT_THAT(figures.chains, ElementsAre(1, 1, 1, 1, 0, 0, 0, 0, 0));
  EXPECT_EQ(figures.longestChain, 3U);
  EXPECT_EQ(figures.chainedSlots, 6U);
  EXPECT_EQ(figures.freeSlots, 10U);
  EXPECT_TRUE(figures.complete);
}

TEST(StoreFigures, CountsLongChainsTogether) {
  std::vector<std::uint32_t> hashes;
  for (std::uint32_t i = 0; i < 20; ++i) hashes.push_back(2 * i);
  StoreBytes const bytes = store(20, 2, hashes);
  StoreFigures const figures = StoreFigures::of(Vault::SlotsImage(Vault::FileImage(bytes.slots)),
                                                Vault::BucketsImage(Vault::FileImage(bytes.buckets)));
  EXPECT_THAT(figures.chains, ElementsAre(1, 0, 0, 0, 0, 0, 0, 0, 1));
  EXPECT_EQ(figures.longestChain, 20U);
}

TEST(StoreFigures, EndWhereALinkLeadsNowhere) {
  for (std::uint32_t const target : {0U, 16U, 0x3fffffffU}) {
    StoreBytes bytes = store(16, 4, {0, 4, 8});
    put32(bytes.slots, bytes.linkAt(0), target);
    put32(bytes.slots, bytes.linkAt(15), 3);
    StoreFigures const figures = StoreFigures::of(Vault::SlotsImage(Vault::FileImage(bytes.slots)),
                                                  Vault::BucketsImage(Vault::FileImage(bytes.buckets)));
    EXPECT_FALSE(figures.complete);
    EXPECT_LE(figures.chainedSlots, 16U);
    EXPECT_LE(figures.freeSlots, 16U);
  }
}

// Between the two passes of a growth the lower chains still run on into the upper ones.
TEST(StoreFigures, CountASlotInItsOwnBucketWhileBucketsAreResized) {
  StoreBytes bytes = store(8, 2, {0, 1});
  put32(bytes.slots, bytes.linkAt(0), 1);
  StoreFigures const figures = StoreFigures::of(Vault::SlotsImage(Vault::FileImage(bytes.slots)),
                                                Vault::BucketsImage(Vault::FileImage(bytes.buckets)));
  EXPECT_EQ(figures.chains[1], 2U);
  EXPECT_EQ(figures.chainedSlots, 2U);
  EXPECT_TRUE(figures.complete);
}

}  // namespace
