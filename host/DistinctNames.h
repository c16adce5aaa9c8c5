// Has a JSON parser refuse an object that names a member twice, of which it would keep one. A callback of one
// parse, on its thread.
#pragma once

#include <fmt/core.h>

#include <set>
#include <string>
#include <vector>

#include "host/InputError.h"

namespace Host {

template <class J>
class DistinctNames {
 public:
  bool operator()(int /*depth*/, typename J::parse_event_t event, J& parsed) {
    using Event = typename J::parse_event_t;
    if (event == Event::object_start) open_.emplace_back();
    if (event == Event::object_end) open_.pop_back();
    if (event == Event::key && !open_.back().insert(parsed.template get<std::string>()).second)
      throw InputError(fmt::format("{} stands twice", textOf(parsed)));
    return true;
  }

 private:
  std::vector<std::set<std::string>> open_;
};

// The text as JSON; throws InputError for a name that stands twice, and what the parser throws.
template <class J>
J parsedDistinct(std::string const& text) {
  DistinctNames<J> names;
  return J::parse(text, [&](auto&&... seen) { return names(seen...); });
}

}  // namespace Host
