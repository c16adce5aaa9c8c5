// Numbers of the egress exact-match engine: which access commands, programs and default results a revision of
// the chip has, and under which number. A platform of real hardware takes them from its chip description;
// ours are fixed. An item that a revision doesn't have fails in the style of Asic::mode. Pure functions; any
// thread.
#pragma once

#include <cstdint>

#include "platform/switch/Hardware/FapRevision.h"

// Which look-ups are made: the row of the access command.
namespace Jericho3EsemCmds {

enum class Item : std::uint32_t { vlan = 1, tunnel = 2, vlanAndTunnel = 3 };
std::uint32_t hwValue(Hardware::Loam::FapRevision const& revision, Item item);

}  // namespace Jericho3EsemCmds

// How the key of a look-up is formed.
namespace Jericho3EsemProgram {

enum class Item : std::uint32_t { vlan = 1, tunnel = 2, policy = 3 };
bool exists(Hardware::Loam::FapRevision const& revision, Item item);
std::uint32_t hwValue(Hardware::Loam::FapRevision const& revision, Item item);

}  // namespace Jericho3EsemProgram

// What a look-up gives that finds nothing: the row of the default result.
namespace Jericho3EsemDefaultResults {

enum class Item : std::uint32_t { port = 0, vlan = 1, tunnel = 2 };
std::uint32_t hwValue(Hardware::Loam::FapRevision const& revision, Item item);

}  // namespace Jericho3EsemDefaultResults
