// What a map is to its store.
#pragma once

#include <fmt/core.h>

#include <cstdint>

#include "runtime/Dovel/String.h"

namespace Vault {

enum class VaultType : std::uint8_t {
  writer = 0,     // its only writer
  shadow = 1,     // told of changes, with a copy of the values
  reader = 2,     // looks into it
  keyShadow = 3,  // told of changes, remembers the keys alone
};

// The number for a value that names none.
Dovel::String toString(VaultType type);

}  // namespace Vault

template <>
struct fmt::formatter<Vault::VaultType> : Dovel::PlainFormatter {
  auto format(Vault::VaultType type, fmt::format_context& context) const {
    return write(Vault::toString(type), context);
  }
};
