#include "host/ImportMap.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "host/DistinctNames.h"
#include "host/Output.h"
#include "platform/chip/SoftwareChip.h"

namespace Host {
namespace {

using MapJson = nlohmann::json;

constexpr NumberRange kFaps{.min = 0, .max = Chip::SoftwareChip::kMaxFaps - 1};
// The widths of the tables' fields. Of most of them 0 means that there is none.
constexpr NumberRange kVlanDomains{.min = 1, .max = (1U << 9) - 1};
constexpr NumberRange kInLifs{.min = 1, .max = (1U << 19) - 1};
constexpr NumberRange kLocators{.min = 0, .max = (1U << 14) - 1};
constexpr NumberRange kFodos{.min = 1, .max = (1U << 18) - 1};
constexpr NumberRange kVrfs{.min = 0, .max = (1U << 16) - 1};

constexpr char kPorts[] = "ports";
constexpr char kInterfaces[] = "interfaces";
constexpr char kLocatorNames[] = "locators";
constexpr char kBridgeVlans[] = "bridgeVlans";
constexpr char kVrfNames[] = "vrfs";
constexpr char kVxlanLinks[] = "vxlanLinks";

[[noreturn]] void refuse(std::string const& where, MapJson const& value, std::string_view legal) {
  throw InputError(fmt::format("{}: {} is not {}", where, textOf(value), legal));
}

std::uint64_t numberIn(std::string const& where, MapJson const& value, NumberRange legal) {
  if (value.is_number_unsigned()) {
    auto const number = value.get<std::uint64_t>();
    if (number >= legal.min && number <= legal.max) return number;
  }
  refuse(where, value, fmt::format("{} to {}", legal.min, legal.max));
}

void addAll(NumberSpace& space, std::string const& where, MapJson const& given, NumberRange legal) {
  for (auto const& [name, value] : given.items())
    space.add(name, numberIn(fmt::format("{} {}", where, oneLine(name)), value, legal));
}

std::string textIn(std::string const& where, MapJson const& value) {
  if (!value.is_string()) refuse(where, value, "a text");
  return value.get<std::string>();
}

void onlyHas(std::string const& where, MapJson const& given, std::vector<std::string_view> const& names) {
  if (!given.is_object()) refuse(where, given, fmt::format("an object of {}", fmt::join(names, ", ")));
  for (auto const& [name, value] : given.items())
    if (std::ranges::find(names, name) == names.end()) throwUnknown(where, "member", name, names);
}

}  // namespace

ImportMap::ImportMap(std::string const& path, unsigned newPortFap)
    : name_(oneLine(path)),
      newPortFap_(newPortFap),
      file_(path),
      interfaces_(name_ + ": interfaces: inLif", kInLifs),
      locators_(name_ + ": locators: ipv6DipIdx", kLocators),
      bridgeVlans_(name_ + ": bridgeVlans: fodo", kFodos) {
  auto const text = file_.text();
  if (!text) return;
  try {
    before_ = parsedDistinct<MapJson>(*text);
  } catch (InputError const& twice) {
    throw InputError(fmt::format("{}: {}", name_, twice.msg()));
  } catch (MapJson::parse_error const& wrong) {
    throw InputError(fmt::format("{}: not JSON: wrong at {}", name_, placeOf(*text, wrong.byte)));
  }
  read(before_);
}

void ImportMap::read(MapJson const& given) {
  onlyHas(name_, given, {kBridgeVlans, kInterfaces, kLocatorNames, kPorts, kVrfNames, kVxlanLinks});
  for (auto const& [section, names] : given.items()) {
    std::string const where = fmt::format("{}: {}", name_, section);
    if (!names.is_object()) refuse(where, names, "an object");
    if (section == kInterfaces) addAll(interfaces_, where, names, kInLifs);
    if (section == kLocatorNames) addAll(locators_, where, names, kLocators);
    if (section == kBridgeVlans) addAll(bridgeVlans_, where, names, kFodos);
    for (auto const& [name, value] : names.items()) {
      std::string const one = fmt::format("{}: {}", where, oneLine(name));
      if (section == kPorts) readPort(one, name, value);
      if (section == kVrfNames) vrfs_[name] = numberIn(one, value, kVrfs);
      if (section == kVxlanLinks) vxlanLinks_[name] = textIn(one, value);
    }
  }
}

void ImportMap::readPort(std::string const& where, std::string const& name, MapJson const& given) {
  if (given.is_null()) {
    noPortIs(name);
    return;
  }
  onlyHas(where, given, {"fap", "vlanDomain"});
  auto const member = [&](char const* of, NumberRange legal) {
    return numberIn(fmt::format("{}: {}", where, of), given.value(of, MapJson()), legal);
  };
  auto const fap = static_cast<unsigned>(member("fap", kFaps));
  std::uint64_t const domain = member("vlanDomain", kVlanDomains);
  domains(fap).add(name, domain);
  ports_[name] = Port{fap, domain};
}

NumberSpace& ImportMap::domains(unsigned fap) {
  return domains_.try_emplace(fap, fmt::format("{}: ports: vlanDomain on FAP {}", name_, fap), kVlanDomains)
      .first->second;
}

ImportMap::Port ImportMap::port(std::string const& name) {
  auto& port = ports_[name];
  if (!port) port = Port{newPortFap_, domains(newPortFap_).number(name)};
  return *port;
}

bool ImportMap::isNoPort(std::string const& name) const {
  auto const found = ports_.find(name);
  return found != ports_.end() && !found->second;
}

std::string ImportMap::vxlanLink(std::string const& name) const {
  auto const found = vxlanLinks_.find(name);
  return found == vxlanLinks_.end() ? "" : found->second;
}

MapJson ImportMap::json() const {
  MapJson ports = MapJson::object();
  for (auto const& [name, port] : ports_)
    ports[name] = port ? MapJson{{"fap", port->fap}, {"vlanDomain", port->vlanDomain}} : MapJson();
  return {{kPorts, ports},
          {kInterfaces, interfaces_.numbers()},
          {kLocatorNames, locators_.numbers()},
          {kBridgeVlans, bridgeVlans_.numbers()},
          {kVrfNames, vrfs_},
          {kVxlanLinks, vxlanLinks_}};
}

bool ImportMap::save() {
  MapJson const now = json();
  if (now == before_) return false;
  file_.textIs(now.dump(2) + "\n");
  return true;
}

}  // namespace Host
