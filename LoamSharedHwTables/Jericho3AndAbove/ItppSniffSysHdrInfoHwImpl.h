// The system headers of packets that the control plane snoops, a row for each snoop command in use from the
// start. The thread of the table.
#pragma once

#include <map>

#include "LoamSharedHwTables/HwTableAccessor.h"
#include "platform/switch/Hardware/DestinationId.h"
#include "runtime/Asic/GracefulAssert.h"

namespace LoamSharedHwTables::Jericho3AndAbove {

template <class Table>
struct ItppSniffSysHdrInfoHwImpl {
  using Entry = typename Table::Entry;
  using SnifType = Hardware::Loam::SnifType;
  using TmActionType = Hardware::Loam::TmActionType;
  using DestinationId = Hardware::Loam::DestinationId;

  static constexpr char kName[] = "ItppSniffSysHdrInfoHwImpl";
  static constexpr std::uint32_t l3SnoopCmds[] = {2, 3, 8, 11, 1, 7, 12, 19, 16, 17};

  static void userInitHwTable(Table& table, LoamAsicUtils::HwShadowKey const& hwShadowKey) {
    LoamAsicUtils::HwTableAccessor<ItppSniffSysHdrInfoHwImpl> const accessor(hwShadowKey);
    for (std::uint32_t const command : l3SnoopCmds) table.setEntry(hwShadowKey, entryOf(command));
  }

  static Entry entryOf(std::uint32_t command) {
    auto const action = static_cast<std::uint32_t>(actionTypes().at(SnifType{0}));
    Entry entry(typename Table::EntryKey{action << 5 | command});
    if (command == 16 || command == 17) {
      entry.tmDestinationIs(destinationOf(command).encodedDestId(kFapType));
      entry.tmDestinationStampEnableIs(1);
    } else {
      // The command is the multicast id; the fields beside the values say which of their bits count: all.
      entry.tmActionTypeIs(1);
      entry.tmActionTypeEnIs(3);
      entry.mcidOrMcrepidxOrOutlifIs(command);
      entry.mcidOrMcrepidxOrOutlifEnIs(0x3fffff);
    }
    return entry;
  }

  static DestinationId destinationOf(std::uint32_t command) {
    switch (command) {
      case 1:
        return {.number = 51, .kind = 8};
      case 2:
        return {.number = 19, .kind = 8};
      case 3:
        return {.number = 16, .kind = 8};
      case 7:
      case 12:
      case 19:
        return {.number = 28, .kind = 8};
      case 8:
        return {.number = 12, .kind = 8};
      case 11:
        return {.number = 20, .kind = 8};
      case 16:
      case 17:
        return {.number = 67, .kind = 1};
      default:
        ASIC_GRACEFUL_FAIL("false", "Unexpected snoop command: {}", command);
    }
  }

 private:
  static constexpr auto kFapType = Hardware::Loam::FapType::generation4;

  static std::map<SnifType, TmActionType> const& actionTypes() {
    static std::map<SnifType, TmActionType> const types{
        {SnifType{0}, TmActionType{1}}, {SnifType{1}, TmActionType{2}}, {SnifType{2}, TmActionType{3}}};
    return types;
  }
};

}  // namespace LoamSharedHwTables::Jericho3AndAbove
