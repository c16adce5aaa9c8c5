// Reading the members of an operation. Functions without state; all throw InputError for what is wrong.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/InputError.h"

namespace Host {

// The JSON object of a line. One that names a member twice is refused.
Json objectOf(std::string const& line);

struct NumberRange {
  std::uint64_t min;
  std::uint64_t max;
};
// The member must be there.
std::uint64_t numberOf(Json const& given, std::string_view name, NumberRange legal);

}  // namespace Host
