// VXLAN tunnels, of what "ip -j -d link show type vxlan" prints.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/ImportMap.h"
#include "host/ImportRows.h"
#include "host/IprouteElement.h"

namespace Host {

struct VxlanLink {
  std::string where;
  std::string name;
  std::string bridge;  // empty where it is in none
  std::uint64_t vni = 0;
  std::string why;    // why it can't be mapped; empty where it can
  std::string local;  // IPv4 of this end
  std::uint32_t localNumber = 0;
  std::string group;  // a multicast group that it has joined; empty where it hasn't
};

struct VxlanLinks {
  std::vector<VxlanLink> links;
  // Of all bridges and VXLAN links what they are.
  std::map<std::string, std::string> noPorts;
  std::string file;
  std::size_t others = 0;
};

// Throws InputError for what is wrong with the input.
VxlanLinks vxlanLinksOf(IprouteFile const& file);

// Numbers by which the chip has been set up.
struct VxlanSettings {
  unsigned udpTunnelType;
  unsigned esemNameSpace;
};

// `pvids` are those of all bridge ports, where they are known: they tell which bridge VLAN a link carries.
void importVxlans(VxlanLinks const& links, std::optional<std::map<std::string, std::uint64_t>> const& pvids,
                  VxlanSettings const& settings, ImportMap& map, ImportRows& rows);

}  // namespace Host
