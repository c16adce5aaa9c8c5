// Compares one field of two descriptors. For their implementations.
#pragma once

#include <fmt/core.h>

#include "runtime/Dovel/String.h"

namespace Mem::Impl {

// True where the field is the same in both; else the reason tells it with both values.
template <class Field>
bool sameField(char const* name, Field const& current, Field const& incoming, Dovel::String& reason) {
  if (current == incoming) return true;
  reason = fmt::format("{} differs: current {}, incoming {}", name, current, incoming);
  return false;
}

}  // namespace Mem::Impl
