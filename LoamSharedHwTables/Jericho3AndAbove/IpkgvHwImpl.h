// What the key generation of the ingress policy engine starts with. The thread of the table.
#pragma once

#include "LoamSharedHwTables/HwTableAccessor.h"

namespace LoamSharedHwTables::Jericho3AndAbove {

template <class Table>
struct IpkgvHwImpl {
  static constexpr char kName[] = "IpkgvHwImpl";

  static void userInitHwTable(Table& table, LoamAsicUtils::HwShadowKey const& hwShadowKey) {
    LoamAsicUtils::HwTableAccessor<IpkgvHwImpl> const accessor(hwShadowKey);
    typename Table::Entry entry(typename Table::EntryKey(178));
    entry.programSelectionProfileIs(1);
    table.setEntry(hwShadowKey, entry);
  }
};

}  // namespace LoamSharedHwTables::Jericho3AndAbove
