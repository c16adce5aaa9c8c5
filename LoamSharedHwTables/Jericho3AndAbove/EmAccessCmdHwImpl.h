// Which look-ups the egress exact-match engine makes for each access command. The thread of the table.
#pragma once

#include <optional>

#include "LoamSharedHwTables/HwTableAccessor.h"
#include "platform/switch/Hardware/EsemValues.h"

namespace LoamSharedHwTables::Jericho3AndAbove {

template <class Table>
struct EmAccessCmdHwImpl {
  static constexpr char kName[] = "EmAccessCmdHwImpl";

  static void userInitHwTable(Table& table, LoamAsicUtils::HwShadowKey const& hwShadowKey) {
    LoamAsicUtils::HwTableAccessor<EmAccessCmdHwImpl> const accessor(hwShadowKey);
    using Program = Jericho3EsemProgram::Item;
    using Result = Jericho3EsemDefaultResults::Item;
    static constexpr LookUp kVlan{Program::vlan, Result::vlan, 0};
    static constexpr LookUp kTunnel{Program::tunnel, Result::tunnel, 0};
    static constexpr LookUp kSecondTunnel{Program::tunnel, Result::tunnel, 1};
    set(table, hwShadowKey, Jericho3EsemCmds::Item::vlan, kVlan, std::nullopt);
    set(table, hwShadowKey, Jericho3EsemCmds::Item::tunnel, kTunnel, std::nullopt);
    set(table, hwShadowKey, Jericho3EsemCmds::Item::vlanAndTunnel, kVlan, kSecondTunnel);
  }

 private:
  struct LookUp {
    Jericho3EsemProgram::Item program;
    Jericho3EsemDefaultResults::Item defaultResult;
    unsigned offset;  // of its designated entry
  };

  // The numbers are those of the first revision of the generation, whatever the table's own.
  static constexpr auto kRevision = Hardware::Loam::FapRevision::fapRevJericho3A0();

  static void set(Table& table, LoamAsicUtils::HwShadowKey const& hwShadowKey, Jericho3EsemCmds::Item command,
                  LookUp const& first, std::optional<LookUp> const& second) {
    typename Table::Entry entry(typename Table::EntryKey{Jericho3EsemCmds::hwValue(kRevision, command)});
    if (Jericho3EsemProgram::exists(kRevision, first.program)) {
      entry.esem1ValidIs(1);
      entry.esem1ProgramIs(Jericho3EsemProgram::hwValue(kRevision, first.program));
      entry.esem1DefaultResultProfileIs(Jericho3EsemDefaultResults::hwValue(kRevision, first.defaultResult));
      entry.esem1DesignatedEntryOffsetIs(first.offset);
    }
    if (second && Jericho3EsemProgram::exists(kRevision, second->program)) {
      entry.esem2ValidIs(1);
      entry.esem2ProgramIs(Jericho3EsemProgram::hwValue(kRevision, second->program));
      entry.esem2DefaultResultProfileIs(
          Jericho3EsemDefaultResults::hwValue(kRevision, second->defaultResult));
      entry.esem2DesignatedEntryOffsetIs(second->offset);
    }
    table.setEntry(hwShadowKey, entry);
  }
};

}  // namespace LoamSharedHwTables::Jericho3AndAbove
