#include "tests/LoamSharedHwTables/TableRig.h"

namespace {

using namespace bcm88490_a0;
using LoamAsicUtils::BcmGroupAddrInfo;

TEST(Descriptor, TwoMemoriesHaveOneGeometryAndPlacesOfTheirOwn) {
  auto const descriptor = ItppSniffSysHdrInfoHwDirect::tableDescriptorFactory();
  ASSERT_EQ(descriptor->memories().size(), 2U);
  auto const& first = *descriptor->memory(0);
  auto const& second = *descriptor->memory(1);
  EXPECT_EQ(first.entryCount(), second.entryCount());
  EXPECT_EQ(first.entrySize(), second.entrySize());
  EXPECT_EQ(first.arrayCount(), second.arrayCount());
  EXPECT_EQ(first.name(), "itppSniffSysHeaderInfo");
  EXPECT_EQ(second.name(), "itppdSniffSysHeaderInfo");
  EXPECT_EQ(first.instances().front()->block(), 146U);
  EXPECT_EQ(second.instances().front()->block(), 144U);
  EXPECT_EQ(descriptor->memory(2), nullptr);
}

TEST(Descriptor, OfATcamIsWhatTheChipHas) {
  auto const descriptor = TcamHwDirect::tableDescriptorFactory();
  EXPECT_EQ(descriptor->name(), "TcamHw");
  auto const& memory = descriptor->firstMemory();
  EXPECT_EQ(memory.name(), "mdbkKapsaRpbCommand");
  EXPECT_EQ(memory.firstArray(), 0U);
  EXPECT_EQ(memory.arrayCount(), 2U);
  EXPECT_EQ(memory.entryCount(), 4096U);
  EXPECT_EQ(memory.entrySize(), 24U);
  EXPECT_EQ(descriptor->minShadowSize(), 8192U);
  ASSERT_EQ(memory.instances().size(), 1U);
  auto const& instance = *memory.instances().front();
  EXPECT_EQ(instance.instanceId(), 0U);
  EXPECT_EQ(instance.location(), 0U);
  EXPECT_EQ(instance.block(), 282U);
  EXPECT_EQ(instance.address(), 0x3100000U);
  EXPECT_EQ(memory.instance(1), nullptr);
}

TEST(Descriptor, TheSecondHalfOfAMemoryIsItsSecondArray) {
  auto const descriptor = SmallAdsHwDirect::tableDescriptorFactory();
  auto const& second = descriptor->firstMemory();
  EXPECT_EQ(second.firstArray(), 1U);
  EXPECT_EQ(second.arrayCount(), 1U);
  EXPECT_FALSE(second.hasRow(0, 5));
  EXPECT_TRUE(second.hasRow(1, 2047));
  EXPECT_FALSE(second.hasRow(1, 2048));
  EXPECT_FALSE(second.hasRow(2, 0));
  EXPECT_EQ(SmallAdsA1HwDirect::tableDescriptorFactory()->firstMemory().firstArray(), 0U);
}

class RegisterDescriptor final : public Dovel::Tracked<RegisterDescriptor, BcmGroupAddrInfo> {
 public:
  explicit RegisterDescriptor(LoamAsicUtils::TableDescription const& table)
      : Dovel::Tracked<RegisterDescriptor, BcmGroupAddrInfo>(Dovel::String(table.groupName)) {
    memoriesAre<LoamAsicUtils::BcmRegInfo>(table);
  }
};

TEST(Descriptor, ARegisterHasOneEntryOfItsWidth) {
  auto const descriptor =
      Dovel::ptrIsImpl<RegisterDescriptor>(IppeRecycFwdProfileMappingHwReg::Traits::description());
  auto const& memory = descriptor->firstMemory();
  EXPECT_NE(dynamic_cast<LoamAsicUtils::BcmRegInfo const*>(&memory), nullptr);
  EXPECT_EQ(memory.entryCount(), 1U);
  EXPECT_EQ(memory.entrySize(), 28U);
  EXPECT_EQ(memory.instances().front()->address(), 0x146U);
}

class ExactMatchDescriptor final : public Dovel::Tracked<ExactMatchDescriptor, BcmGroupAddrInfo> {
 public:
  explicit ExactMatchDescriptor(LoamAsicUtils::TableDescription const& table)
      : Dovel::Tracked<ExactMatchDescriptor, BcmGroupAddrInfo>(Dovel::String(table.groupName)) {
    memoriesAre<LoamAsicUtils::BcmEmTableInfo>(table);
  }
};

TEST(Descriptor, AnExactMatchTableNamesItsPhysicalTable) {
  auto const descriptor = Dovel::ptrIsImpl<ExactMatchDescriptor>(MplsIsemHwEm::Traits::description());
  auto const* const memory = dynamic_cast<LoamAsicUtils::BcmEmTableInfo const*>(&descriptor->firstMemory());
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(memory->name(), "MDBK_ISEM");
  EXPECT_EQ(memory->physicalTableId(), 64U);
}

TEST(Descriptor, MemoriesAreWalkedInAscendingOrderOfTheirIds) {
  class Group final : public Dovel::Tracked<Group, BcmGroupAddrInfo> {
   public:
    Group() : Dovel::Tracked<Group, BcmGroupAddrInfo>("group") {}
  };
  auto const group = Dovel::ptrIsImpl<Group>();
  EXPECT_EQ(group->minShadowSize(), 0U);
  for (LoamAsicUtils::MemoryId const id : {2U, 0U, 1U, 0U})
    group->memInfoIs(Dovel::ptrIsImpl<LoamAsicUtils::BcmMemInfo>(id));
  std::vector<LoamAsicUtils::MemoryId> ids;
  for (auto const& memory : group->memories()) ids.push_back(memory->memoryId());
  EXPECT_EQ(ids, (std::vector<LoamAsicUtils::MemoryId>{0, 1, 2}));
}

}  // namespace
