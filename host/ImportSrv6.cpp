#include "host/ImportSrv6.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace Host {
namespace {

constexpr unsigned kAddressBits = 128;

struct Prefix {
  std::array<std::uint8_t, kAddressBits / 8> address{};
  unsigned length = kAddressBits;

  // The first bit is the address's highest.
  bool bit(unsigned nth) const { return (address[nth / 8] >> (7 - nth % 8) & 1) != 0; }
  unsigned bits(unsigned first, unsigned count) const {
    unsigned value = 0;
    for (unsigned at = first; at < first + count; ++at) value = value << 1 | static_cast<unsigned>(bit(at));
    return value;
  }
  bool isZeroFrom(unsigned first) const {
    for (unsigned at = first; at < kAddressBits; ++at)
      if (bit(at)) return false;
    return true;
  }
};

bool readLength(std::string_view text, unsigned& length) {
  auto const end = std::from_chars(text.data(), text.data() + text.size(), length);
  return end.ec == std::errc() && end.ptr == text.data() + text.size() && length <= kAddressBits;
}

Prefix prefixOf(IprouteElement const& route) {
  std::string const text = route.text("dst");
  Prefix prefix;
  if (text == "default") return {.length = 0};
  auto const slash = text.find('/');
  bool const isPrefix = ::inet_pton(AF_INET6, text.substr(0, slash).c_str(), prefix.address.data()) == 1 &&
                        (slash == std::string::npos || readLength(text.substr(slash + 1), prefix.length));
  if (!isPrefix) route.refuse("dst", "an IPv6 address, or one with / and 0 to 128");
  return prefix;
}

std::string locatorText(Prefix const& prefix, unsigned bits) {
  auto address = prefix.address;
  for (unsigned at = bits; at < kAddressBits; ++at)
    address[at / 8] = static_cast<std::uint8_t>(address[at / 8] & ~(0x80U >> at % 8));
  char text[INET6_ADDRSTRLEN];
  return fmt::format("{}/{}", ::inet_ntop(AF_INET6, address.data(), text, sizeof text), bits);
}

bool isSegment(IprouteElement const& route) { return route.textOrNone("encap") == "seg6local"; }

bool isSplitSegment(IprouteElement const& route) {
  return route.has("nexthops") && std::ranges::any_of(route.elements("nexthops"), isSegment);
}

void importSegment(IprouteElement const& given, unsigned locatorBits, ImportMap& map, ImportRows& rows) {
  Prefix const prefix = prefixOf(given);
  IprouteElement const route = given.named(given.text("dst"));
  unsigned const bits = locatorBits + kSrv6FunctionBits;
  if (route.has("nexthops")) {
    rows.notMapped(route.where(), "it has several next hops, and a row has one interface");
  } else if (prefix.length < bits) {
    rows.notMapped(route.where(), fmt::format("its {} bits are fewer than the {} of locator and function",
                                              prefix.length, bits));
  } else if (!prefix.isZeroFrom(bits)) {
    rows.notMapped(route.where(),
                   fmt::format("the table doesn't look at what follows locator and function, {} bits", bits));
  } else if (!route.has("dev")) {
    rows.notMapped(route.where(), "it has no dev");
  } else {
    std::uint64_t const inLif = map.inLif(route.interfaceName("dev"));
    rows.add(route.where(), ImportTable::srv6, std::nullopt,
             {map.ipv6DipIdx(locatorText(prefix, locatorBits)), prefix.bits(locatorBits, kSrv6FunctionBits)},
             inLif);
  }
}

}  // namespace

void importSrv6(IprouteFile const& file, unsigned locatorBits, ImportMap& map, ImportRows& rows) {
  std::size_t others = 0;
  for (IprouteElement const& route : file.elements()) {
    if (isSegment(route) || isSplitSegment(route))
      importSegment(route, locatorBits, map, rows);
    else
      ++others;
  }
  if (others != 0)
    rows.notMapped(file.name(), fmt::format("routes without encap seg6local: {}", others), others);
}

}  // namespace Host
