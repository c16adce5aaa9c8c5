// What is wrong with an operation that was given to the program. Nothing has changed by it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Dovel/Exception.h"

namespace Host {

// Keeps the members of an object in their order.
using Json = nlohmann::ordered_json;

class InputError : public Dovel::RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~InputError() override;
};

// Throws an InputError: "SmallAdsHwDirect: there is no field abc; the nearest: abd". `where` may be empty.
[[noreturn]] void throwUnknown(std::string_view where, std::string_view what, std::string_view given,
                               std::vector<std::string_view> const& names);

// A value as it was given, on one line; givenName() gives a text without its quotes.
std::string textOf(Json const& value);
std::string givenName(Json const& value);

}  // namespace Host
