// Whether the pages of a mapping go into core dumps.
#pragma once

#include <cstdint>

namespace Mem {

enum class CoreDump : std::uint8_t {
  included = 0,   // they do, and the process is set up to dump shared memory
  asProcess = 1,  // as the process is set up
  forced = 2,     // they do, whatever was said before: the store is being given up
  excluded = 3,   // they never do
};

}  // namespace Mem
