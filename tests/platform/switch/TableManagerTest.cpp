#include <gtest/gtest.h>

#include "platform/switch/LoamAsicUtils/TableManager.h"

namespace {

using Dovel::Ptr;
using Hardware::Loam::FapRevision;
using LoamAsicUtils::HwTableKey;
using LoamAsicUtils::TableManager;

class Table : public Dovel::Tracked<Table, LoamAsicUtils::HwCommonTableBase> {
 public:
  Table(HwTableKey const& key, Ptr<TableManager> const& manager)
      : Dovel::Tracked<Table, LoamAsicUtils::HwCommonTableBase>(key.tableName(), key, manager) {}
  Ptr<Sluice::SchanCmds> download(Dovel::String const& /*fapType*/,
                                  Sluice::Fapmask const& /*fapmask*/) const override {
    return nullptr;
  }
};

class Registers : public Dovel::Tracked<Registers, OrloVault::Entity> {
 public:
  Registers() : Dovel::Tracked<Registers, OrloVault::Entity>("registers") {}
  void mountIs(OrloVault::MountInfo const& /*info*/) override {}
};

TEST(TableManager, OwnsTablesByNameAndRevision) {
  Ptr<TableManager> const manager = Dovel::ptrIsImpl<TableManager>(nullptr, nullptr, nullptr, nullptr);
  HwTableKey const jericho("TcamHwDirect", FapRevision::fapRevJericho3A0());
  HwTableKey const qumran("TcamHwDirect", FapRevision(Hardware::Loam::FapRevMajor::majorQumran3aA0));
  Ptr<LoamAsicUtils::HwCommonTableBase> const table = Dovel::ptrIsImpl<Table>(qumran, manager);
  manager->tableIs(qumran, table);
  EXPECT_EQ(manager->table(qumran), table);
  EXPECT_EQ(manager->table(jericho), nullptr);
  EXPECT_EQ(table->useCount(), 2U);
  manager->tableDel(qumran);
  EXPECT_EQ(manager->table(qumran), nullptr);
  EXPECT_EQ(table->useCount(), 1U);
}

TEST(TableManager, HandsOutWhatTablesShare) {
  auto const status = Dovel::ptrIsImpl<Hardware::Loam::Status>("status");
  auto const cmdletStatus = Dovel::ptrIsImpl<Hardware::Loam::LoamCmdletRequiredStatus>("cmdlets");
  auto const entities = Dovel::ptrIsImpl<Statebase::EntityManager>("switch1", false);
  auto const pool = DmaMemPoolManager::localMemPoolFactory("download", 64, 1, 0);
  auto const mdbStatus = Dovel::ptrIsImpl<Hardware::Loam::MdbStatus>("mdb");
  Ptr<OrloVault::Entity> const registers = Dovel::ptrIsImpl<Registers>();
  auto const manager =
      Dovel::ptrIsImpl<TableManager>(status, cmdletStatus, entities, pool, mdbStatus, registers);
  EXPECT_EQ(manager->loamStatus(), status);
  EXPECT_EQ(manager->loamCmdletRequiredStatus()->name(), "cmdlets");
  EXPECT_EQ(manager->entityManager()->systemName(), "switch1");
  EXPECT_FALSE(manager->entityManager()->readOnly());
  EXPECT_EQ(manager->dmaMemPoolManager(), pool);
  EXPECT_EQ(manager->mdbStatus(), mdbStatus);
  EXPECT_EQ(manager->regShadowEntryStorage(), registers);
}

}  // namespace
