// VLANs of bridge ports, of what "bridge -j vlan show" prints.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/ImportMap.h"
#include "host/ImportRows.h"
#include "host/IprouteElement.h"

namespace Host {

struct VlanRange {
  std::uint64_t first;
  std::uint64_t last;
  bool pvid;
};

struct PortVlans {
  std::string where;
  std::string name;
  std::vector<VlanRange> ranges;
};

// Throws InputError for what is wrong with the input.
std::vector<PortVlans> vlansOf(IprouteFile const& file);
// The first one of each port that has any.
std::map<std::string, std::uint64_t> pvidsOf(std::vector<PortVlans> const& ports);

// `noPorts` tells of interfaces what they are instead of a port of the chip.
void importVlans(std::vector<PortVlans> const& ports, std::map<std::string, std::string> const& noPorts,
                 ImportMap& map, ImportRows& rows);

}  // namespace Host
