// The additional headers that the egress pipeline knows from the start. The thread of the table.
#pragma once

#include "LoamSharedHwTables/HwTableAccessor.h"
#include "platform/switch/LoamPPExport/ChipValues.h"

namespace LoamSharedHwTables::Jericho3AndAbove {

template <class Table>
struct EgrAddHdrProfMapHwImpl {
  static constexpr char kName[] = "EgrAddHdrProfMapHwImpl";

  static void userInitHwTable(Table& table, LoamAsicUtils::HwShadowKey const& hwShadowKey) {
    using enum LoamPPExport::ctx_additional_header_profile;
    LoamAsicUtils::HwTableAccessor<EgrAddHdrProfMapHwImpl> const accessor(hwShadowKey);
    auto const revision = table.hwTableKey().fapRevision();
    auto const profile = [&](LoamPPExport::ctx_additional_header_profile item) {
      return LoamPPExport::ctx_additional_header_profile_value(revision.chipType(), item);
    };
    auto const set = [&](std::uint32_t key, unsigned headers) {
      typename Table::Entry entry(typename Table::EntryKey{key});
      entry.additionalHeadersProfileIs(headers);
      table.setEntry(hwShadowKey, entry);
    };
    set((profile(first) | profile(further) << 4) & 0xFF, 23);
    set(profile(second), 10);
    if (revision.isAiVariant()) return;
    // A row of the third profile for each context, which stands above the profile's four bits.
    static constexpr std::pair<std::uint32_t, unsigned> kContexts[] = {{32, 5}, {64, 6}, {80, 7},
                                                                       {16, 4}, {96, 3}, {112, 23}};
    for (auto const& [context, headers] : kContexts) set(profile(third) | context, headers);
  }
};

}  // namespace LoamSharedHwTables::Jericho3AndAbove
