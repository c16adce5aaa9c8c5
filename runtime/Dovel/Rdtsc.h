// The processor's time-stamp counter: the cheapest clock there is, for deadlines on hot paths and for log
// time stamps. Any thread; needs an x86-64 whose counter runs at a constant rate on all cores.
#pragma once

#include <x86intrin.h>

#include <chrono>
#include <cstdint>

namespace Dovel {

class Rdtsc {
 public:
  // The counter now. Not serialising: nearby instructions may move across it by some nanoseconds.
  static std::uint64_t now() { return __rdtsc(); }

  // Ticks per second, measured against CLOCK_MONOTONIC_RAW on the first call, which takes about 5 ms.
  static double calibrationRate();

  // The largest relative error that the measurement can have, typically some 1e-5; more where it was
  // interrupted.
  static double calibrationError();

  // Good to calibrationError(), so a long span is better taken from a clock. Saturates at 584 years.
  static std::uint64_t toNanoseconds(std::uint64_t ticks);

  // The ticks that a duration takes, rounded to the nearest; 0 for a negative one.
  static std::uint64_t fromDuration(std::chrono::nanoseconds duration);
};

}  // namespace Dovel
