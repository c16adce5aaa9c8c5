#include "host/ImportVlans.h"

#include <fmt/format.h>

#include <utility>

namespace Host {
namespace {

constexpr NumberRange kVlans{.min = 0, .max = 4095};

bool isPvid(IprouteElement const& vlan) {
  if (!vlan.has("flags")) return false;
  for (std::string const& flag : vlan.texts("flags"))
    if (flag == "PVID") return true;
  return false;
}

VlanRange rangeOf(IprouteElement const& vlan) {
  std::uint64_t const first = vlan.number("vlan", kVlans);
  std::uint64_t const last =
      vlan.has("vlanEnd") ? vlan.number("vlanEnd", {.min = first, .max = kVlans.max}) : first;
  return {first, last, isPvid(vlan)};
}

class PortImport {
 public:
  PortImport(PortVlans const& port, ImportMap& map, ImportRows& rows) : port_(port), map_(map), rows_(rows) {}

  void run() {
    for (VlanRange const& range : port_.ranges)
      for (std::uint64_t vlan = range.first; vlan <= range.last; ++vlan) add(vlan, range.pvid);
  }

 private:
  void add(std::uint64_t vlan, bool pvid) {
    std::string const where = fmt::format("{}: vlan {}", port_.where, vlan);
    if (vlan == kVlans.min || vlan == kVlans.max) {
      rows_.notMapped(where, "0 and 4095 are no VLANs");
      return;
    }
    auto const [fap, domain] = map_.port(port_.name);
    std::uint64_t const inLif = map_.inLif(fmt::format("{}/{}", port_.name, vlan));
    rows_.add(where, ImportTable::tagged, fap, {domain, vlan}, inLif);
    if (pvid) rows_.add(where, ImportTable::untagged, fap, {0, domain}, inLif);
  }

  PortVlans const& port_;
  ImportMap& map_;
  ImportRows& rows_;
};

}  // namespace

std::vector<PortVlans> vlansOf(IprouteFile const& file) {
  std::vector<PortVlans> ports;
  for (IprouteElement const& given : file.elements()) {
    std::string const name = given.interfaceName("ifname");
    IprouteElement const port = given.named(name);
    std::vector<VlanRange> ranges;
    for (IprouteElement const& vlan : port.elements("vlans")) ranges.push_back(rangeOf(vlan));
    ports.push_back({port.where(), name, std::move(ranges)});
  }
  return ports;
}

std::map<std::string, std::uint64_t> pvidsOf(std::vector<PortVlans> const& ports) {
  std::map<std::string, std::uint64_t> pvids;
  for (PortVlans const& port : ports)
    for (VlanRange const& range : port.ranges)
      if (range.pvid) pvids.try_emplace(port.name, range.first);
  return pvids;
}

void importVlans(std::vector<PortVlans> const& ports, std::map<std::string, std::string> const& noPorts,
                 ImportMap& map, ImportRows& rows) {
  for (PortVlans const& port : ports) {
    auto const other = noPorts.find(port.name);
    if (other != noPorts.end()) {
      rows.notMapped(port.where, fmt::format("it is {}, no port of the chip", other->second));
    } else if (map.isNoPort(port.name)) {
      rows.notMapped(port.where, "the map says that it is no port of the chip");
    } else {
      PortImport(port, map, rows).run();
    }
  }
}

}  // namespace Host
