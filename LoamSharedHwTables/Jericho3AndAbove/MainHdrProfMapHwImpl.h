// The main headers that the egress pipeline knows from the start. The thread of the table.
#pragma once

#include "LoamSharedHwTables/HwTableAccessor.h"
#include "platform/switch/LoamPPExport/ChipValues.h"

namespace LoamSharedHwTables::Jericho3AndAbove {

template <class Table>
struct MainHdrProfMapHwImpl {
  static constexpr char kName[] = "MainHdrProfMapHwImpl";

  // Chips of the AI variant start with an empty table.
  static void userInitHwTable(Table& table, LoamAsicUtils::HwShadowKey const& hwShadowKey) {
    using enum LoamPPExport::etpp_current_next_protocol;
    LoamAsicUtils::HwTableAccessor<MainHdrProfMapHwImpl> const accessor(hwShadowKey);
    auto const revision = table.hwTableKey().fapRevision();
    if (revision.isAiVariant()) return;
    static constexpr Row kRows[] = {{5, 1, item5, 8}, {6, 0, item6, 4},  {7, 1, item9, 4},
                                    {4, 1, item9, 8}, {3, 1, item5, 12}, {10, 1, item7, 16}};
    for (Row const& row : kRows) {
      typename Table::Entry entry(typename Table::EntryKey(row.entry));
      entry.setStartCurrentNextProtocolIs(row.setStart);
      entry.startCurrentNextProtocolIs(static_cast<std::uint16_t>(
          LoamPPExport::etpp_current_next_protocol_value(revision.chipType(), row.protocol)));
      entry.addAditionalHeadersPacketSizeIs(1);
      entry.additionalHeadersPacketSizeInBytesIs(row.bytes);
      table.setEntry(hwShadowKey, entry);
    }
  }

 private:
  struct Row {
    std::uint32_t entry;
    unsigned setStart;
    LoamPPExport::etpp_current_next_protocol protocol;
    std::uint8_t bytes;
  };
};

}  // namespace LoamSharedHwTables::Jericho3AndAbove
