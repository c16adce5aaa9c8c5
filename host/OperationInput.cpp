#include "host/OperationInput.h"

#include <fmt/format.h>

#include "host/DistinctNames.h"

namespace Host {

Json objectOf(std::string const& line) {
  try {
    Json given = parsedDistinct<Json>(line);
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
