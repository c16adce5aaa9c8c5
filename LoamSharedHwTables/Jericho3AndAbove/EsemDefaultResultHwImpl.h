// What an egress exact-match look-up gives that finds nothing. The thread of the table.
#pragma once

#include "LoamSharedHwTables/HwTableAccessor.h"
#include "platform/switch/Hardware/EsemValues.h"

namespace LoamSharedHwTables::Jericho3AndAbove {

template <class Table>
struct EsemDefaultResultHwImpl {
  static constexpr char kName[] = "EsemDefaultResultHwImpl";

  static void userInitHwTable(Table& table, LoamAsicUtils::HwShadowKey const& hwShadowKey) {
    LoamAsicUtils::HwTableAccessor<EsemDefaultResultHwImpl> const accessor(hwShadowKey);
    using Item = Jericho3EsemDefaultResults::Item;
    static constexpr Row kRows[] = {
        {.item = Item::port, .portDefaultIndication = 1},
        {.item = Item::vlan, .resultType = 9},
        {.item = Item::tunnel, .resultType = 45},
    };
    for (Row const& row : kRows) table.setEntry(hwShadowKey, entryOf(row));
  }

 private:
  struct Row {
    Jericho3EsemDefaultResults::Item item;
    unsigned resultType = 0;
    unsigned portDefaultIndication = 0;
  };

  static typename Table::Entry entryOf(Row const& row) {
    // The numbers are those of the first revision of the generation, whatever the table's own.
    constexpr auto revision = Hardware::Loam::FapRevision::fapRevJericho3A0();
    typename Table::Entry entry(
        typename Table::EntryKey{Jericho3EsemDefaultResults::hwValue(revision, row.item)});
    entry.resultTypeIs(row.resultType);
    entry.portDefaultIndicationIs(row.portDefaultIndication);
    return entry;
  }
};

}  // namespace LoamSharedHwTables::Jericho3AndAbove
