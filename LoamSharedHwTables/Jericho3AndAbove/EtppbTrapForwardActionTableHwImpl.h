// What is done with packets that the egress pipeline traps, for the traps that are in use from the start. The
// thread of the table.
#pragma once

#include "LoamSharedHwTables/HwTableAccessor.h"
#include "runtime/Asic/GracefulAssert.h"

namespace LoamSharedHwTables::Jericho3AndAbove {

template <class Table>
struct EtppbTrapForwardActionTableHwImpl {
  using Entry = typename Table::Entry;

  static constexpr char kName[] = "EtppbTrapForwardActionTableHwImpl";
  static constexpr std::uint32_t egressTrapIndexList[] = {1, 3};

  static void userInitHwTable(Table& table, LoamAsicUtils::HwShadowKey const& hwShadowKey) {
    LoamAsicUtils::HwTableAccessor<EtppbTrapForwardActionTableHwImpl> const accessor(hwShadowKey);
    for (std::uint32_t const trapIndex : egressTrapIndexList) table.setEntry(hwShadowKey, entryOf(trapIndex));
  }

  static Entry entryOf(std::uint32_t trapIndex) {
    Entry entry(typename Table::EntryKey{trapIndex});
    switch (trapIndex) {
      case 1:
        drop(entry);
        return entry;
      case 3:
        forwardOnce(entry);
        return entry;
      default:
        ASIC_GRACEFUL_FAIL("false", " Unhandled trapIndex {}", trapIndex);
    }
  }

 private:
  static void drop(Entry& entry) {
    entry.dropForwardCopyIs(1);
    entry.dropForwardCopyOverrideIs(1);
    entry.killMirrorCopyIs(1);
    entry.killMirrorCopyOverrideIs(1);
  }
  // The forward copy lives, without its old system headers, and leaves by the recycle port.
  static void forwardOnce(Entry& entry) {
    entry.dropForwardCopyOverrideIs(1);
    entry.outTmPortIs(162);
    entry.outTmPortOverrideIs(1);
    entry.ftmhTcIs(7);
    entry.ftmhTcOverrideIs(1);
    entry.btsTermHdrDisabledIs(1);
    entry.btsTermHdrDisabledOverrideIs(1);
    entry.btsSysHdrDisabledIs(1);
    entry.btsSysHdrDisabledOverrideIs(1);
    entry.chcConditionsIs(1);
  }
};

}  // namespace LoamSharedHwTables::Jericho3AndAbove
