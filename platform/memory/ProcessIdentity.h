// Which process this is, so that others can tell it from a later one of the same number. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "runtime/Dovel/String.h"

namespace Mem {

struct ProcessIdentity {
  pid_t pid = 0;
  std::uint64_t startTime = 0;  // clock ticks since the machine came up; 0 where the system doesn't tell

  static ProcessIdentity self();

  friend bool operator==(ProcessIdentity const&, ProcessIdentity const&) = default;
};

// Names the time since the machine came up; "unknown" where the system doesn't tell.
Dovel::String bootId();

}  // namespace Mem
