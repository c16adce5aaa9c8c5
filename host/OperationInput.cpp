#include "host/OperationInput.h"

#include <fmt/format.h>

#include <set>
#include <vector>

#include "host/Output.h"

namespace Host {
namespace {

// Sees the names of the objects that are being read.
class Names {
 public:
  bool operator()(int /*depth*/, Json::parse_event_t event, Json& parsed) {
    if (event == Json::parse_event_t::object_start) open_.emplace_back();
    if (event == Json::parse_event_t::object_end) open_.pop_back();
    if (event == Json::parse_event_t::key && !open_.back().insert(parsed.get<std::string>()).second)
      throw InputError(fmt::format("{} stands twice", textOf(parsed)));
    return true;
  }

 private:
  std::vector<std::set<std::string>> open_;
};

}  // namespace

Json objectOf(std::string const& line) {
  try {
    Names names;
    Json given = Json::parse(line, [&](auto&&... seen) { return names(seen...); });
    if (!given.is_object()) throw InputError(fmt::format("not a JSON object: {}", textOf(given)));
    return given;
  } catch (nlohmann::json::parse_error const& wrong) {
    throw InputError(fmt::format("not JSON: wrong at column {}", wrong.byte));
  }
}

std::uint64_t numberOf(Json const& given, std::string_view name, NumberRange legal) {
  Json const& value = given.at(std::string(name));
  if (value.is_number_unsigned()) {
    auto const number = value.get<std::uint64_t>();
    if (number >= legal.min && number <= legal.max) return number;
  }
  throw InputError(fmt::format("{}: {} is not {} to {}", name, textOf(value), legal.min, legal.max));
}

}  // namespace Host
