// What a handler is where nobody wants to be told.
#pragma once

namespace Dovel {

// Takes anything and does nothing; any thread. Stands for an unwanted handler, so that callers need not ask.
inline constexpr auto noop = [](auto const&...) {};

}  // namespace Dovel
