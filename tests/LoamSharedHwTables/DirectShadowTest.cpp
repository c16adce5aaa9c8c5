#include "OrloVault/EntityManager.h"
#include "tests/LoamSharedHwTables/TableRig.h"
#include "tests/support/Message.h"

namespace {

using namespace bcm88490_a0;
using TestSupport::entryOf;
using TestSupport::KeyListener;
using TestSupport::maskOf;
using TestSupport::messageOf;
using TestSupport::ShadowKey;
using TestSupport::TableRig;

using Table = SmallAdsHwDirect;
using Entry = Table::Entry;
using EntryKey = Table::EntryKey;
ShadowKey const kShared(Sluice::FapId::null(), 0);

Entry entry(std::uint32_t row, std::uint8_t content) { return entryOf<Entry>(EntryKey(row), content); }

TEST(DirectShadow, AnOldStoreIsFoundEmptyByANewShadow) {
  TableRig rig;
  auto& table = rig.makeWithFaps<Table>();
  auto const shadow = table.shadow(kShared);
  table.setEntry(kShared, entry(1, 1));
  // The store is let go of with its entry, as at an orderly end.
  shadow->unmountVault();
  table.delShadow(kShared);
  table.addShadow(kShared);
  EXPECT_EQ(table.shadow(kShared)->entryStorage()->entryCollMap().interface().members(), 0U);
}

TEST(DirectShadow, AnUnmountedStoreKeepsItsEntriesForReaders) {
  TableRig rig;
  auto& table = rig.makeWithFaps<Table>();
  table.setEntry(kShared, entry(9, 4));
  table.shadow(kShared)->unmountVault();
  table.delShadow(kShared);
  Mem::RootPath const path(Dovel::Platform::getDebugHandler("DirectShadowTest", false),
                           "shadow/Qumran3aA0/SmallAdsHwDirect/128-0", true);
  LoamSharedHwTables::EntryReader<SmallAdsHwDirectUnit> reader(path);
  ASSERT_TRUE(reader.attach());
  EXPECT_NE(reader.find(valueToStrep(EntryKey(9))), nullptr);
}

TEST(DirectShadow, RemovingAllTellsEachKeyWhereAnybodyListensAndElseNone) {
  TableRig rig({.writing = false});
  auto& table = rig.makeWithFaps<Table>();
  auto const shadow = table.shadow(kShared);
  for (std::uint32_t row = 0; row < 20; ++row) table.setEntry(kShared, entry(row, 1));
  auto const deletes = shadow->entryStorage()->counters().deletes;
  shadow->collCleanup();
  EXPECT_EQ(shadow->entryStorage()->counters().deletes, deletes);
  for (std::uint32_t row = 0; row < 20; ++row) table.setEntry(kShared, entry(row, 1));
  KeyListener listener(*shadow);
  shadow->collCleanup();
  EXPECT_EQ(listener.keys.size(), 20U);
  shadow->collCleanup();
  EXPECT_EQ(listener.keys.size(), 20U);
}

class Stranger final : public Dovel::Tracked<Stranger, OrloVault::Entity> {
 public:
  explicit Stranger(Dovel::String const& name) : Dovel::Tracked<Stranger, OrloVault::Entity>(name) {}
  void mountIs(OrloVault::MountInfo const& /*info*/) override {}
};

TEST(DirectShadow, WhereSomethingElseIsMountedEveryUseFailsGracefully) {
  TableRig rig;
  OrloSharedMem::EntityFactories::factoryIs(
      "Stranger", [](Dovel::String const& name) { return Dovel::ptrIsImpl<Stranger>(name); });
  auto& entities = OrloSharedMem::EntityManager::getEntityManager(rig.root.path(), false);
  char const kPath[] = "shadow/Qumran3aA0/SmallAdsHwDirect/128-0";
  OrloVault::MountInfo info(OrloVault::OrloVaultType::writer);
  info.collectionInfoIs({"entryColl", 512, false, kPath});
  entities.getMountGroup().mount(kPath, "Stranger", info);
  auto& table = rig.makeWithFaps<Table>();
  EXPECT_EQ(table.shadow(kShared)->entryStorage(), nullptr);
  std::string const message =
      messageOf<Asic::GracefulAssertException>([&] { table.setEntry(kShared, entry(1, 1)); });
  EXPECT_NE(message.find("entryStorage"), std::string::npos) << message;
  EXPECT_THROW((void)table.getEntry(kShared, EntryKey(1)), Asic::GracefulAssertException);
  EXPECT_THROW(table.deleteEntry(kShared, EntryKey(1)), Asic::GracefulAssertException);
  EXPECT_THROW((void)table.schanCmds(kShared, EntryKey(1), nullptr), Asic::GracefulAssertException);
  table.delShadow(kShared);
  entities.doUnmount(kPath);
}

TEST(DirectCommands, AMaskWithoutTheShadowsFapGivesNoListWhateverIsStored) {
  TableRig rig;
  auto& table = rig.makeWithFaps<IpkgvHwDirect>();
  auto const shadow = table.shadow({0, 0});
  for (std::uint32_t const row : {178U, 3U}) {
    IpkgvHwDirect::EntryKey const key(row);
    EXPECT_EQ(shadow->schanCmds(maskOf({1}), TestSupport::kRevision, key, false, nullptr), nullptr);
    EXPECT_EQ(shadow->schanCmds(maskOf({1}), TestSupport::kRevision, key, true, nullptr), nullptr);
  }
}

std::vector<std::uint32_t> wordsOf(Dovel::Ptr<Sluice::SchanCmds> const& cmds) {
  std::vector<std::uint32_t> words;
  while (auto const cmd = cmds->cmdDeq()) {
    std::size_t const before = words.size();
    words.resize(before + cmd->dwc_write());
    cmd->fillCmdIntoBuf(std::span(words).subspan(before));
  }
  return words;
}

TEST(DirectCommands, AnAbsentKeyAndADeletedOneAreWrittenAlike) {
  TableRig rig;
  auto& table = rig.makeWithFaps<TcamHwDirect>();
  auto const shadow = table.shadow(kShared);
  TcamHwDirect::EntryKey const key(1, 17);
  auto const absent = wordsOf(shadow->schanCmds(maskOf({0}), TestSupport::kRevision, key, false, nullptr));
  table.setEntry(kShared, entryOf<TcamHwDirect::Entry>(key, 200));
  auto const stored = wordsOf(shadow->schanCmds(maskOf({0}), TestSupport::kRevision, key, false, nullptr));
  auto const deleted = wordsOf(shadow->schanCmds(maskOf({0}), TestSupport::kRevision, key, true, nullptr));
  EXPECT_EQ(absent, deleted);
  EXPECT_NE(stored, deleted);
}

TEST(DirectCommands, AMessageNamesTheBlockTheRowsAddressAndTheBytes) {
  TableRig rig;
  auto& table = rig.makeWithFaps<TcamHwDirect>();
  auto const written = entryOf<TcamHwDirect::Entry>(TcamHwDirect::EntryKey(1, 17), 5);
  table.setEntry(kShared, written);
  auto const words = wordsOf(table.schanCmds(kShared, written.entryKey(), nullptr));
  ASSERT_EQ(words.size(), 32U);
  EXPECT_EQ(words[0], 9U << 24 | 64U);
  EXPECT_EQ(words[1], 282U);
  EXPECT_EQ(words[2], 0U);
  EXPECT_EQ(words[7], 1U);
  EXPECT_EQ(words[8], 0x3100000U + 4096 + 17);
  EXPECT_EQ(words[9], 0U);
  EXPECT_EQ(std::memcmp(&words[10], written.dataBytes().data(), 24), 0);
  for (std::size_t word = 16; word < 32; ++word) EXPECT_EQ(words[word], 0U);
}

TEST(DirectCommands, TheNullKeyCanBeStoredAndIsNeverWrittenToTheChip) {
  TableRig rig;
  auto& table = rig.makeWithFaps<Table>();
  EntryKey const null{EntryKey::null()};
  table.setEntry(kShared, entryOf<Entry>(null, 6));
  EXPECT_EQ(table.getEntry(kShared, null), entryOf<Entry>(null, 6));
  auto const cmds = table.schanCmds(kShared, null, nullptr);
  ASSERT_NE(cmds, nullptr);
  EXPECT_TRUE(cmds->empty());
}

TEST(DirectCommands, KeysOfOneValueAreRowsOfTheFirstArray) {
  TableRig rig;
  auto& table = rig.makeWithFaps<Table>();
  table.setEntry(kShared, entry(5, 1));
  auto const words = wordsOf(table.schanCmds(kShared, EntryKey(5), nullptr));
  EXPECT_EQ(words[8], 0x3130800U + 5);
}

TEST(DirectCommands, AShadowOfAllInstancesTakesTheIdOfAllInstances) {
  TableRig rig;
  auto& table = rig.make<Table>();
  table.addShadow({Sluice::FapId::null(), LoamAsicUtils::kConvergentInstance});
  EXPECT_TRUE(table.shadow({Sluice::FapId::null(), 255})->instanceConvergentShadow());
  table.addShadow(kShared);
  EXPECT_FALSE(table.shadow(kShared)->instanceConvergentShadow());
  auto const cmds = table.shadow({Sluice::FapId::null(), 255})
                        ->schanCmds(maskOf({0}), TestSupport::kRevision, EntryKey(1), false, nullptr);
  EXPECT_EQ(cmds->size(), 1U);
}

}  // namespace
