#include "platform/switch/TableDescription.h"

#include <gmock/gmock.h>

namespace {

using LoamAsicUtils::TableCatalogue;
using LoamAsicUtils::TableDescription;
using LoamAsicUtils::TableFamily;
using testing::ElementsAre;

TableDescription tableAt(unsigned order) {
  TableDescription table{};
  table.order = order;
  return table;
}

TEST(TableCatalogue, ListsTablesInTheirOrderWhicheverCameFirst) {
  TableDescription const second = tableAt(2);
  TableDescription const first = tableAt(1);
  TableCatalogue::Registration const later(second);
  TableCatalogue::Registration const earlier(first);
  EXPECT_THAT(TableCatalogue::tables(), ElementsAre(&first, &second));
}

TEST(TableCatalogue, ForgetsATableThatIsUnloaded) {
  TableDescription const stays = tableAt(1);
  TableDescription const goes = tableAt(2);
  TableCatalogue::Registration const kept(stays);
  {
    TableCatalogue::Registration const unloaded(goes);
    EXPECT_THAT(TableCatalogue::tables(), ElementsAre(&stays, &goes));
  }
  EXPECT_THAT(TableCatalogue::tables(), ElementsAre(&stays));
}

TEST(TableFamily, HasANameInTheCatalogue) {
  EXPECT_EQ(stringValue(TableFamily::direct), "direct");
  EXPECT_EQ(stringValue(TableFamily::exactMatch), "exactMatch");
  EXPECT_EQ(stringValue(TableFamily::reg), "register");
  EXPECT_EQ(stringValue(TableFamily::mdbDirect), "mdbDirect");
}

}  // namespace
