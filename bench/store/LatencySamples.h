// Times of single operations, for their 99th percentile. One thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "runtime/Dovel/Rdtsc.h"

namespace StoreBench {

class LatencySamples {
 public:
  explicit LatencySamples(std::size_t expected) { ticks_.reserve(expected); }

  // The fences keep the operation between the two readings.
  static std::uint64_t now() {
    _mm_lfence();
    std::uint64_t const ticks = Dovel::Rdtsc::now();
    _mm_lfence();
    return ticks;
  }

  template <class Call>
  void take(Call&& call) {
    std::uint64_t const begin = now();
    call();
    add(now() - begin);
  }
  void add(std::uint64_t ticks) { ticks_.push_back(ticks); }

  // Nanoseconds, without the cost of reading the clock; reorders the samples.
  double percentile(double part) {
    if (ticks_.empty()) return 0;
    auto const at =
        ticks_.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(ticks_.size() - 1));
    std::nth_element(ticks_.begin(), at, ticks_.end());
    return nanoseconds(*at - std::min(*at, clockCost()));
  }
  static double nanoseconds(std::uint64_t ticks) {
    return static_cast<double>(ticks) * 1e9 / Dovel::Rdtsc::calibrationRate();
  }

 private:
  static std::uint64_t clockCost() {
    static std::uint64_t const cost = [] {
      std::uint64_t least = ~std::uint64_t{0};
      for (int turn = 0; turn < 1000; ++turn) {
        std::uint64_t const begin = now();
        least = std::min(least, now() - begin);
      }
      return least;
    }();
    return cost;
  }

  std::vector<std::uint64_t> ticks_;
};

}  // namespace StoreBench
