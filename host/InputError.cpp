#include "host/InputError.h"

#include "host/Nearest.h"
#include "host/Output.h"

namespace Host {

InputError::~InputError() = default;

void throwUnknown(std::string_view where, std::string_view what, std::string_view given,
                  std::vector<std::string_view> const& names) {
  std::string const prefix = where.empty() ? "" : std::string(where) + ": ";
  throw InputError(prefix + unknownText(what, given, names));
}

std::string textOf(Json const& value) {
  return oneLine(value.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string givenName(Json const& value) {
  return value.is_string() ? value.get<std::string>() : textOf(value);
}

}  // namespace Host
