#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

#include "platform/switch/DmaMemPoolManager/LocalMemPool.h"
#include "runtime/Dovel/Exception.h"

namespace {

using Dovel::Ptr;
using Pool = DmaMemPoolManager::DmaMemPoolManager;
using Buffer = DmaMemPoolManager::DmaMemPoolBuffer;
using DmaMemPoolManager::dmaMemPoolBufferFactory;
using DmaMemPoolManager::localMemPoolFactory;

constexpr std::uint64_t kDmaStart = 0x100000000;

TEST(DmaMemPool, AlwaysGivesAnObjectThatTellsWhetherItHoldsMemory) {
  Ptr<Pool> const pool = localMemPoolFactory("download", 4096, 1, kDmaStart);
  Ptr<Buffer> const buffer = dmaMemPoolBufferFactory(pool);
  EXPECT_TRUE(buffer->valid());
  EXPECT_EQ(buffer->name(), "download");
  EXPECT_EQ(buffer->bufSize(), 4096U);
  Ptr<Buffer> const none = dmaMemPoolBufferFactory(pool);
  ASSERT_NE(none, nullptr);
  EXPECT_FALSE(none->valid());
  EXPECT_EQ(none->va(), nullptr);
  EXPECT_EQ(none->bufSize(), 0U);
  EXPECT_FALSE(dmaMemPoolBufferFactory(nullptr)->valid());
}

TEST(DmaMemPool, ABufferGoesBackWithItsLastReferenceAndKeepsThePoolAlive) {
  Ptr<Pool> pool = localMemPoolFactory("download", 64, 1, kDmaStart);
  Ptr<Buffer> buffer = dmaMemPoolBufferFactory(pool);
  buffer = nullptr;
  buffer = dmaMemPoolBufferFactory(pool);
  EXPECT_TRUE(buffer->valid());
  pool = nullptr;
  std::memset(buffer->va(), 1, buffer->bufSize());
}

TEST(DmaMemPool, BuffersLieApartInBothAddressSpaces) {
  Ptr<Pool> const pool = localMemPoolFactory("download", 64, 3, kDmaStart);
  std::vector<Ptr<Buffer>> held;
  for (unsigned number = 0; number < 3; ++number) {
    held.push_back(dmaMemPoolBufferFactory(pool));
    std::memset(held.back()->va(), static_cast<int>(number), 64);
  }
  for (unsigned number = 0; number < 3; ++number) {
    EXPECT_EQ(held[number]->dmaAddrInfo().dmaAddress, kDmaStart + std::uint64_t{number} * 64);
    EXPECT_EQ(held[number]->va()[0], number);
    EXPECT_EQ(held[number]->va()[63], number);
  }
}

Ptr<DmaMemPoolManager::LocalMemPool> poolOf(std::size_t bufSize, std::size_t count) {
  return Dovel::ptrIsImpl<DmaMemPoolManager::LocalMemPool>("download", bufSize, count, kDmaStart);
}

bool isCommitted(unsigned char const* page) {
  unsigned char resident = 0;
  EXPECT_EQ(::mincore(const_cast<unsigned char*>(page), 1, &resident), 0);
  return (resident & 1) != 0;
}

TEST(DmaMemPool, HasRoomForALargeDownloadByDefaultAndTakesMemoryOnFirstUse) {
  Ptr<Pool> const pool = localMemPoolFactory("download");
  std::vector<Ptr<Buffer>> held;
  for (unsigned number = 0; number < 256; ++number) held.push_back(dmaMemPoolBufferFactory(pool));
  EXPECT_FALSE(dmaMemPoolBufferFactory(pool)->valid());
  for (auto const& buffer : held) {
    ASSERT_TRUE(buffer->valid());
    EXPECT_EQ(buffer->bufSize(), 65536U);
    EXPECT_FALSE(isCommitted(buffer->va()));
    EXPECT_NE(buffer->dmaAddrInfo().dmaAddress, buffer->dmaAddrInfo().vaAddress);
  }
  held.front()->va()[0] = 1;
  EXPECT_TRUE(isCommitted(held.front()->va()));
  EXPECT_FALSE(isCommitted(held.back()->va()));
}

TEST(DmaMemPool, StartsAtAPage) {
  auto const page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  EXPECT_EQ(poolOf(100, 3)->bufferTake().vaAddress % page, 0U);
}

TEST(DmaMemPool, TheCursorOfABufferThatIsTakenAgainIsAtItsStart) {
  Ptr<Pool> const pool = poolOf(64, 1);
  dmaMemPoolBufferFactory(pool)->incVaCursor(64);
  Ptr<Buffer> const again = dmaMemPoolBufferFactory(pool);
  ASSERT_TRUE(again->valid());
  EXPECT_EQ(again->vaCursor(), again->va());
}

TEST(DmaMemPool, FailsTheRequestThatItIsToldToAndNoOther) {
  auto const pool = poolOf(64, 4);
  auto const requests = [&] {
    std::array<bool, 4> got{};
    for (bool& one : got) one = dmaMemPoolBufferFactory(pool)->valid();
    return got;
  };
  pool->failNthIs(3);
  EXPECT_EQ(requests(), (std::array{true, true, false, true}));
  pool->failNthIs(1);
  EXPECT_EQ(requests(), (std::array{false, true, true, true}));
  pool->failNthIs(2);
  pool->failNthIs(0);
  EXPECT_EQ(requests(), (std::array{true, true, true, true}));
}

TEST(DmaMemPool, CountsWhatWasTakenAndWhatCouldNotBe) {
  auto const pool = poolOf(64, 2);
  Ptr<Buffer> const one = dmaMemPoolBufferFactory(pool);
  Ptr<Buffer> const two = dmaMemPoolBufferFactory(pool);
  dmaMemPoolBufferFactory(pool);
  EXPECT_EQ(pool->taken(), 2U);
  EXPECT_EQ(pool->failed(), 1U);
  EXPECT_EQ(pool->freeBuffers(), 0U);
}

TEST(DmaMemPool, LeadsFromADmaAddressToTheBytesOfOneBuffer) {
  auto const pool = poolOf(64, 2);
  DmaMemPoolManager::DmaAddrInfo const first = pool->bufferTake();
  DmaMemPoolManager::DmaAddrInfo const second = pool->bufferTake();
  auto const va = [](DmaMemPoolManager::DmaAddrInfo const& info, std::uint64_t at) {
    return reinterpret_cast<unsigned char*>(info.vaAddress + at);
  };
  EXPECT_EQ(pool->dmaToVa(first.dmaAddress, 64), va(first, 0));
  EXPECT_EQ(pool->dmaToVa(first.dmaAddress + 60, 4), va(first, 60));
  EXPECT_EQ(pool->dmaToVa(second.dmaAddress + 1, 63), va(second, 1));
  EXPECT_EQ(pool->dmaToVa(first.dmaAddress + 60, 5), nullptr);
  EXPECT_EQ(pool->dmaToVa(first.dmaAddress - 1, 1), nullptr);
  EXPECT_EQ(pool->dmaToVa(second.dmaAddress + 64, 1), nullptr);
  EXPECT_EQ(pool->dmaToVa(second.dmaAddress, ~std::size_t{0}), nullptr);
  EXPECT_EQ(pool->dmaToVa(first.vaAddress, 1), nullptr);
  EXPECT_EQ(poolOf(0, 2)->dmaToVa(kDmaStart, 0), nullptr);
}

TEST(DmaMemPool, TheCursorMovesWithTheBytesWritten) {
  Ptr<Buffer> const buffer = dmaMemPoolBufferFactory(localMemPoolFactory("download", 64, 1, kDmaStart));
  EXPECT_EQ(buffer->vaCursor(), buffer->va());
  buffer->incVaCursor(24);
  buffer->incVaCursor(40);
  EXPECT_EQ(buffer->vaCursor(), buffer->va() + 64);
}

TEST(DmaMemPoolDeathTest, ACursorPastTheEndEndsTheProcess) {
  Ptr<Buffer> const buffer = dmaMemPoolBufferFactory(localMemPoolFactory("download", 64, 1, kDmaStart));
  buffer->incVaCursor(60);
  EXPECT_DEATH(buffer->incVaCursor(5), "5 bytes past position 60 of buffer download, which has 64");
  EXPECT_DEATH(buffer->incVaCursor(~0ULL), "past position 60");
}

TEST(DmaMemPool, RefusesMoreMemoryThanThereIs) {
  EXPECT_THROW(localMemPoolFactory("download", std::numeric_limits<std::size_t>::max(), 2, 0),
               Dovel::MemoryResourceException);
  EXPECT_THROW(localMemPoolFactory("download", std::size_t{1} << 60, 1, 0), Dovel::MemoryResourceException);
  EXPECT_THROW(localMemPoolFactory("download", 1, std::size_t{1} << 62, 0), Dovel::MemoryResourceException);
}

TEST(DmaMemPool, OfBuffersWithoutBytesHasNone) {
  auto const pool = localMemPoolFactory("download", 0, 3, 0);
  EXPECT_FALSE(dmaMemPoolBufferFactory(pool)->valid());
}

TEST(DmaMemPool, TheAddressRecordPrintsItsFields) {
  EXPECT_EQ(valueToStrep(DmaMemPoolManager::DmaAddrInfo{0x1000, 0x2000, 64, true}),
            "dma 0x1000 va 0x2000 size 64 valid");
  EXPECT_EQ(fmt::format("{}", DmaMemPoolManager::DmaAddrInfo{}), "dma 0x0 va 0x0 size 0 invalid");
}

TEST(DmaMemPool, IsSharedByThreads) {
  Dovel::ThreadControl::tspIs();
  Ptr<Pool> const pool = localMemPoolFactory("download", 64, 3, kDmaStart);
  auto const use = [&](unsigned char mark) {
    for (int round = 0; round < 5000; ++round) {
      Ptr<Buffer> const buffer = dmaMemPoolBufferFactory(pool);
      ASSERT_TRUE(buffer->valid());
      std::memset(buffer->va(), mark, buffer->bufSize());
      for (std::size_t at = 0; at < buffer->bufSize(); ++at) ASSERT_EQ(buffer->va()[at], mark);
    }
  };
  std::thread one(use, 1);
  std::thread two(use, 2);
  one.join();
  two.join();
}

}  // namespace
