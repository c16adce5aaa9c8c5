// Checks of what only a fault in the program can break.
#pragma once

#include <source_location>

namespace Ancillary::Utility {

[[noreturn]] void affirmFailed(std::source_location const& where);

// Ends the process, naming the place, where the condition fails. It is tested in every build.
constexpr void affirm(bool condition, std::source_location where = std::source_location::current()) {
  if (!condition) [[unlikely]]
    affirmFailed(where);
}

}  // namespace Ancillary::Utility
