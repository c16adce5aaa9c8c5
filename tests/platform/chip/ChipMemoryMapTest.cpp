#include "platform/chip/ChipMemoryMap.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using Chip::ChipMemory;
using Chip::ChipMemoryMap;

TEST(ChipMemoryMap, FindsTheMemoryOfEveryRowAndNoneBeyond) {
  for (ChipMemory const& memory : ChipMemoryMap::memories()) {
    EXPECT_EQ(ChipMemoryMap::find(memory.block, memory.address), &memory);
    EXPECT_EQ(ChipMemoryMap::find(memory.block, memory.address + memory.rows - 1), &memory);
    EXPECT_EQ(ChipMemoryMap::find(memory.block, memory.address - 1), nullptr);
    EXPECT_EQ(ChipMemoryMap::find(memory.block, memory.address + memory.rows), nullptr);
    EXPECT_EQ(ChipMemoryMap::find(memory.block + 1000, memory.address), nullptr);
  }
  EXPECT_EQ(ChipMemoryMap::find(0, 0), nullptr);
  EXPECT_EQ(ChipMemoryMap::find(~0U, ~0U), nullptr);
}

TEST(ChipMemoryMap, KeepsMemoriesBackToBack) {
  std::uint64_t bytes = 0;
  for (ChipMemory const& memory : ChipMemoryMap::memories()) {
    EXPECT_EQ(memory.storedAt, bytes);
    bytes += std::uint64_t{memory.rows} * memory.rowBytes;
  }
  EXPECT_EQ(bytes, ChipMemoryMap::bytes());
}

TEST(ChipMemoryMap, HasOneAdsMemoryASide) {
  ChipMemory const* const sideA = ChipMemoryMap::find(282, 0x3130000);
  ASSERT_NE(sideA, nullptr);
  EXPECT_EQ(sideA->rows, 4096U);
  EXPECT_EQ(ChipMemoryMap::find(282, 0x3130800), sideA);
  ChipMemory const* const sideB = ChipMemoryMap::find(282, 0x3230000);
  ASSERT_NE(sideB, nullptr);
  EXPECT_EQ(sideB->rows, 2048U);
  EXPECT_EQ(ChipMemoryMap::find(282, 0x3230400), sideB);
}

TEST(ChipMemoryMap, HasOneRegister) {
  for (ChipMemory const& memory : ChipMemoryMap::memories())
    EXPECT_EQ(memory.kind == ChipMemory::Kind::chipRegister, memory.block == 35) << memory.name;
}

TEST(ChipMemory, HasARunOfRowsOnlyWhereAllOfThemLieInIt) {
  ChipMemory const memory{7, 100, 10, 4, "some"};
  EXPECT_TRUE(memory.has(7, 100, 10));
  EXPECT_TRUE(memory.has(7, 109, 1));
  EXPECT_FALSE(memory.has(7, 109, 2));
  EXPECT_FALSE(memory.has(7, 99, 1));
  EXPECT_FALSE(memory.has(7, 100, 11));
  EXPECT_FALSE(memory.has(8, 100, 1));
  EXPECT_FALSE(memory.has(7, 105, ~0U));
}

}  // namespace
