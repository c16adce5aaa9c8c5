#include "host/ImportVxlans.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <utility>

namespace Host {
namespace {

constexpr NumberRange kVnis{.min = 0, .max = (1U << 24) - 1};

// Sets the link's own address, or why it has none for the table.
void readLocal(IprouteElement const& data, VxlanLink& link) {
  std::string const name = data.has("local6") ? "local6" : "local";
  if (!data.has(name)) {
    link.why = "it has no local address, so that no packet is known to end here";
    return;
  }
  link.local = data.text(name);
  in_addr v4{};
  in6_addr v6{};
  if (::inet_pton(AF_INET, link.local.c_str(), &v4) == 1) {
    link.localNumber = ntohl(v4.s_addr);
    if (link.localNumber == 0) link.why = "it has no local address, so that no packet is known to end here";
  } else if (::inet_pton(AF_INET6, link.local.c_str(), &v6) == 1) {
    link.why = fmt::format("its local address {} is of IPv6, and the table ends tunnels of IPv4", link.local);
  } else {
    data.refuse(name, "an address of IPv4 or IPv6");
  }
}

void readData(IprouteElement const& data, VxlanLink& link) {
  if (data.isSet("external")) {
    link.why = "it is external: routes and filters choose its VNIs and addresses, packet by packet";
    return;
  }
  link.vni = data.number("id", kVnis);
  readLocal(data, link);
  link.group = data.textOrNone(data.has("group6") ? "group6" : "group");
  if (data.isSet("gpe")) link.why = "it is of VXLAN-GPE, another type of tunnel";
}

// What has joined a VRF has a master as well.
bool isInBridge(IprouteElement const& link, IprouteElement const& info) {
  return link.has("master") &&
         (!info.has("info_slave_kind") || info.textOrNone("info_slave_kind") == "bridge");
}

VxlanLink linkOf(IprouteElement const& given, std::string const& name, IprouteElement const& info) {
  VxlanLink link;
  link.where = given.where();
  link.name = name;
  if (isInBridge(given, info)) link.bridge = given.interfaceName("master");
  readData(info.object("info_data"), link);
  return link;
}

class VxlanImport {
 public:
  VxlanImport(std::optional<std::map<std::string, std::uint64_t>> const& pvids, VxlanSettings const& settings,
              ImportMap& map, ImportRows& rows)
      : pvids_(pvids), settings_(settings), map_(map), rows_(rows) {}

  void add(VxlanLink const& link) {
    if (!link.why.empty()) {
      rows_.notMapped(link.where, link.why);
      return;
    }
    // All links with the address share its interface, so that it outlives each of them.
    rows_.add(link.where, ImportTable::tunnel, std::nullopt,
              {settings_.udpTunnelType, link.localNumber, map_.vrf(link.local)},
              map_.inLif("vxlan:" + link.local));
    rows_.add(link.where, ImportTable::vni, std::nullopt,
              {settings_.esemNameSpace, map_.fodo(bridgeVlan(link))}, link.vni);
    if (!link.group.empty())
      rows_.notMapped(link.where,
                      fmt::format("its multicast group {} (its local address is mapped)", link.group));
  }

 private:
  // A link whose bridge VLAN isn't known has a forwarding domain of its own.
  std::string bridgeVlan(VxlanLink const& link) {
    std::string own = fmt::format("vni:{}", link.vni);
    if (!pvids_) {
      std::string latest = map_.vxlanLink(link.name);
      return !link.bridge.empty() && latest.starts_with(link.bridge + "/") ? latest : own;
    }
    auto const pvid = pvids_->find(link.name);
    if (link.bridge.empty() || pvid == pvids_->end()) {
      map_.vxlanLinkDel(link.name);
      return own;
    }
    std::string found = fmt::format("{}/{}", link.bridge, pvid->second);
    map_.vxlanLinkIs(link.name, found);
    return found;
  }

  std::optional<std::map<std::string, std::uint64_t>> const& pvids_;
  VxlanSettings const& settings_;
  ImportMap& map_;
  ImportRows& rows_;
};

}  // namespace

VxlanLinks vxlanLinksOf(IprouteFile const& file) {
  VxlanLinks all;
  all.file = file.name();
  for (IprouteElement const& given : file.elements()) {
    std::string const name = given.interfaceName("ifname");
    IprouteElement const link = given.named(name);
    std::string const kind = link.has("linkinfo") ? link.object("linkinfo").textOrNone("info_kind") : "";
    if (kind == "bridge") all.noPorts[name] = "a bridge";
    if (kind != "vxlan") {
      ++all.others;
      continue;
    }
    all.links.push_back(linkOf(link, name, link.object("linkinfo")));
    all.noPorts[name] = "a VXLAN link";
    if (!all.links.back().bridge.empty()) all.noPorts[all.links.back().bridge] = "a bridge";
  }
  return all;
}

void importVxlans(VxlanLinks const& links, std::optional<std::map<std::string, std::uint64_t>> const& pvids,
                  VxlanSettings const& settings, ImportMap& map, ImportRows& rows) {
  for (auto const& [name, what] : links.noPorts) map.noPortIs(name);
  VxlanImport import(pvids, settings, map, rows);
  for (VxlanLink const& link : links.links) import.add(link);
  if (links.others != 0) {
    rows.notMapped(links.file, fmt::format("links that are not told to be of kind vxlan: {}", links.others),
                   links.others);
  }
}

}  // namespace Host
