#include <gmock/gmock.h>

#include "tests/LoamSharedHwTables/AllTables.h"

namespace {

using LoamAsicUtils::TableDescription;
using LoamAsicUtils::TableFamily;
using testing::ElementsAre;

std::vector<std::string_view> presetNames(TableDescription const& table) {
  std::vector<std::string_view> names;
  for (auto const& preset : table.presets) names.push_back(preset.field);
  return names;
}

TEST(Description, OfTheMainHeaderMapAloneHasATag) {
  TestSupport::AllTables::forEach([]<class Table>() {
    auto const& table = Table::Traits::description();
    EXPECT_EQ(table.tag, table.name == "MainHdrProfMapHwDirect" ? "excludeUdpHdrMapTableWriter" : "noTag")
        << table.name;
  });
}

// The family's name is cut from the table's; tables without a descriptor have no group.
std::string_view groupOf(TableDescription const& table) {
  if (table.family == TableFamily::mdbDirect) return "";
  std::string_view group = table.name;
  for (std::string_view const family : {"Direct", "Reg", "Em"}) {
    if (group.ends_with(family)) group.remove_suffix(family.size());
  }
  return group;
}

TEST(Description, NamesTheGroupAfterTheTable) {
  TestSupport::AllTables::forEach([]<class Table>() {
    EXPECT_EQ(Table::Traits::description().groupName, groupOf(Table::Traits::description()));
  });
  EXPECT_EQ(bcm88490_a0::TcamHwDirect::Traits::description().groupName, "TcamHw");
  EXPECT_EQ(bcm88490_a0::EsemFodoPortCvidEm::Traits::description().groupName, "EsemFodoPortCvid");
}

TEST(Description, OfEachTableIsInTheCatalogueInTheOrderOfTheCatalogue) {
  std::vector<TableDescription const*> expected;
  TestSupport::AllTables::forEach([&]<class Table>() { expected.push_back(&Table::Traits::description()); });
  EXPECT_EQ(LoamAsicUtils::TableCatalogue::tables(), expected);
}

TEST(Description, ListsPresetsInTheOrderInWhichTheyAreStamped) {
  EXPECT_THAT(presetNames(bcm88490_a0::VsiToVniEsemHwEm::Traits::description()),
              ElementsAre("resultType", "vmv", "appId", "entryType"));
  EXPECT_THAT(presetNames(bcm88490_a0::MplsIsemHwEm::Traits::description()),
              ElementsAre("vmv", "appId", "entryType"));
}

}  // namespace
