#include "host/ImportMpls.h"

#include <fmt/format.h>

#include <charconv>

namespace Host {
namespace {

constexpr NumberRange kLabels{.min = 0, .max = (1U << 20) - 1};

std::uint64_t labelOf(IprouteElement const& route) {
  std::string const text = route.textOrNone("dst");
  std::uint64_t label = 0;
  auto const end = std::from_chars(text.data(), text.data() + text.size(), label);
  if (end.ec == std::errc() && end.ptr == text.data() + text.size() && label <= kLabels.max) return label;
  if (!text.empty()) route.refuse("dst", fmt::format("{} to {}", kLabels.min, kLabels.max));
  return route.number("dst", kLabels);
}

void importRoute(IprouteElement const& given, ImportMap& map, ImportRows& rows) {
  std::uint64_t const label = labelOf(given);
  IprouteElement const route = given.named(std::to_string(label));
  if (route.has("nexthops")) {
    rows.notMapped(route.where(), "it has several next hops, and a row has one interface");
  } else if (route.has("to")) {
    rows.notMapped(route.where(), "it has an outgoing label, and the table has labels that end here");
  } else if (!route.has("dev")) {
    rows.notMapped(route.where(), "it has no dev");
  } else {
    std::uint64_t const inLif = map.inLif(route.interfaceName("dev"));
    for (std::uint64_t const bos : {0U, 1U})
      rows.add(route.where(), ImportTable::mpls, std::nullopt, {label, bos}, inLif);
  }
}

}  // namespace

void importMpls(IprouteFile const& file, ImportMap& map, ImportRows& rows) {
  for (IprouteElement const& route : file.elements()) importRoute(route, map, rows);
}

}  // namespace Host
