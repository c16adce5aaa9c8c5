// Random numbers that can't be foreseen, such as seeds and first values of counters. Any thread; after a fork
// both processes draw numbers of their own.
#pragma once

#include <cstdint>

namespace Dovel {

class Random {
 public:
  // A system call each time. Never waits and never throws.
  static std::uint64_t rand64() noexcept;
};

}  // namespace Dovel
