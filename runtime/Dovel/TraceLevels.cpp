#include "runtime/Dovel/TraceLevels.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <charconv>
#include <optional>

namespace Dovel::Trace {
namespace {

constexpr std::string_view kBlanks = " \t\n";

std::string_view trimmed(std::string_view text) {
  auto const first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Reads one element of a list after the other into rules; the first mistake stops it.
class Reader {
 public:
  ParsedRules read(std::string_view list) {
    if (trimmed(list).empty()) return {};
    for (std::size_t start = 0; start <= list.size() && error_.empty();) {
      std::size_t const comma = std::min(list.find(',', start), list.size());
      ++number_;
      element(trimmed(list.substr(start, comma - start)));
      start = comma + 1;
    }
    if (!error_.empty()) return {{}, error_};
    return {rules_, {}};
  }

 private:
  void element(std::string_view text) {
    element_ = text;
    // A channel's name may hold slashes and levels never do, so it is the last slash that divides.
    auto const slash = text.rfind('/');
    bool const opens = slash != std::string_view::npos;
    if (text.empty()) return fail("it is empty");
    if (opens && slash == 0) return fail("no channel stands before the slash");
    if (!opens && rules_.empty()) return fail("no channel/levels stands before it");
    auto const bits = levels(opens ? text.substr(slash + 1) : text);
    if (!bits) return;
    if (opens) rules_.push_back({std::string(text.substr(0, slash)), 0});
    rules_.back().mask = static_cast<std::uint16_t>(rules_.back().mask | *bits);
  }

  std::optional<std::uint16_t> levels(std::string_view text) {
    auto const dash = text.find('-');
    auto const low = level(text.substr(0, dash));
    auto const high = dash == std::string_view::npos ? low : level(text.substr(dash + 1));
    if (!low || !high) return std::nullopt;
    if (*low > *high) {
      fail(fmt::format("the range \"{}\" runs downwards", text));
      return std::nullopt;
    }
    return static_cast<std::uint16_t>((2U << *high) - (1U << *low));
  }

  std::optional<unsigned> level(std::string_view text) {
    unsigned value = 0;
    auto const [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    bool const number = problem != std::errc::invalid_argument && end == text.data() + text.size();
    if (number && problem == std::errc() && value <= kHighestLevel) return value;
    fail(fmt::format("\"{}\" is not a level of 0 to {}", text, kHighestLevel));
    return std::nullopt;
  }

  void fail(std::string_view reason) {
    if (error_.empty()) error_ = fmt::format("element {} \"{}\": {}", number_, element_, reason);
  }

  std::vector<Rule> rules_;
  std::string error_;
  std::string_view element_;
  unsigned number_ = 0;
};

}  // namespace

bool matches(Rule const& rule, std::string const& channelName) {
  return ::fnmatch(rule.glob.c_str(), channelName.c_str(), 0) == 0;
}

ParsedRules parseRules(std::string_view list) { return Reader().read(list); }

}  // namespace Dovel::Trace
