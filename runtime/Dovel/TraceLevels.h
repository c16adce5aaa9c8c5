// The language in which people choose trace levels: "MplsIsem*/0-3,Vault*/0,8".
// Plain values; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Dovel::Trace {

// The channels whose names match glob have exactly the levels of mask on; bit n is level n.
struct Rule {
  std::string glob;
  std::uint16_t mask = 0;

  friend bool operator==(Rule const&, Rule const&) = default;
};

inline constexpr std::uint16_t kDefaultMask = 1;
inline constexpr unsigned short kHighestLevel = 15;

// Whether the rule speaks of this channel; `*`, `?` and `[...]` as in a shell, and `*` matches slashes too.
bool matches(Rule const& rule, std::string const& channelName);

struct ParsedRules {
  std::vector<Rule> rules;  // in the order of the list; empty where the list is malformed
  std::string error;        // which element is wrong and why; empty where all is well
};

// Elements are separated by commas. `glob/levels` opens a rule, an element without a slash gives further
// levels to the rule before it, and levels are a number of 0 to 15 or a range `low-high`. A blank list has no
// rules.
ParsedRules parseRules(std::string_view list);

}  // namespace Dovel::Trace
