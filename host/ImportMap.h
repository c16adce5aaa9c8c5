// The map of an import: which numbers of the chip the ports, interfaces, locators and bridge VLANs of a
// switch have. It stands in a file of JSON for people to read and edit. It is extended and never renumbered,
// so that an import after a change differs only in what changed. One thread; no other process imports by the
// same map while an object stands.
#pragma once

#include <map>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "host/NumberSpace.h"
#include "host/WholeFile.h"

namespace Host {

class ImportMap {
 public:
  struct Port {
    unsigned fap;
    std::uint64_t vlanDomain;
  };

  // Reads the file, which may not be there. Ports that it doesn't have are taken to be of FAP `newPortFap`.
  // Throws InputError for what is wrong with it.
  ImportMap(std::string const& path, unsigned newPortFap);

  // These add what isn't there yet. They throw InputError where no number is left; the file stays as it is.
  Port port(std::string const& name);
  std::uint64_t inLif(std::string const& interface) { return interfaces_.number(interface); }
  std::uint64_t ipv6DipIdx(std::string const& locator) { return locators_.number(locator); }
  std::uint64_t fodo(std::string const& bridgeVlan) { return bridgeVlans_.number(bridgeVlan); }
  // Of the underlay of a local tunnel address: 0, unless people have written another one.
  std::uint64_t vrf(std::string const& address) { return vrfs_.try_emplace(address, 0).first->second; }

  // An interface that may have VLANs and is no port of the chip, like a bridge. What stands there as a port
  // goes on to have its numbers.
  bool isNoPort(std::string const& name) const;
  void noPortIs(std::string const& name) { ports_.try_emplace(name, std::nullopt); }
  // The bridge VLAN that a VXLAN link was last seen to carry; empty where that isn't known.
  std::string vxlanLink(std::string const& name) const;
  void vxlanLinkIs(std::string const& name, std::string const& bridgeVlan) { vxlanLinks_[name] = bridgeVlan; }
  void vxlanLinkDel(std::string const& name) { vxlanLinks_.erase(name); }

  // Replaces the file where anything was added or is otherwise than before. False where not.
  bool save();

 private:
  void read(nlohmann::json const& given);
  void readPort(std::string const& where, std::string const& name, nlohmann::json const& given);
  NumberSpace& domains(unsigned fap);
  nlohmann::json json() const;

  std::string const name_;
  unsigned const newPortFap_;
  ReplacedFile file_;
  // What stood in the file; null where there was none.
  nlohmann::json before_;
  std::map<std::string, std::optional<Port>> ports_;
  std::map<unsigned, NumberSpace> domains_;
  NumberSpace interfaces_;
  NumberSpace locators_;
  NumberSpace bridgeVlans_;
  std::map<std::string, std::uint64_t> vrfs_;
  std::map<std::string, std::string> vxlanLinks_;
};

}  // namespace Host
