// A span of time.
#pragma once

#include <chrono>

namespace Dovel {

using Duration = std::chrono::nanoseconds;

}  // namespace Dovel
