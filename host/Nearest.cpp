#include "host/Nearest.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

#include "host/Output.h"

namespace Host {
namespace {

constexpr std::size_t kSuggestions = 3;
// A name this many letters further off than the nearest is no likely meaning.
constexpr std::size_t kSlack = 2;

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

// Letters to insert, delete or replace to make one of the other.
std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      std::size_t const replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

std::size_t distance(std::string_view given, std::string_view name) {
  std::string const from = lowerCase(given);
  std::string const to = lowerCase(name);
  if (!from.empty() && to.find(from) != std::string::npos) return 2;
  return editDistance(from, to);
}

}  // namespace

std::vector<std::string_view> nearestNames(std::string_view given,
                                           std::vector<std::string_view> const& names) {
  std::vector<std::pair<std::size_t, std::string_view>> ranked;
  ranked.reserve(names.size());
  for (std::string_view const name : names) ranked.emplace_back(distance(given, name), name);
  std::ranges::stable_sort(ranked, {}, [](auto const& pair) { return pair.first; });
  std::vector<std::string_view> nearest;
  for (auto const& [steps, name] : ranked) {
    if (nearest.size() < kSuggestions && steps <= ranked.front().first + kSlack) nearest.push_back(name);
  }
  return nearest;
}

std::string unknownText(std::string_view what, std::string_view given,
                        std::vector<std::string_view> const& names) {
  return fmt::format("there is no {} {}; the nearest: {}", what, oneLine(given),
                     fmt::join(nearestNames(given, names), ", "));
}

}  // namespace Host
