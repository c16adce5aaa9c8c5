#include "runtime/Dovel/Rdtsc.h"

#include <time.h>

#include <cmath>
#include <limits>

namespace Dovel {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;

struct Calibration {
  double rate;
  double error;
};

// Both clocks at one moment; the reading of the raw clock fell within `spread` ticks.
struct Sample {
  std::uint64_t ticks;
  std::uint64_t spread;
  std::uint64_t nanoseconds;
};

Sample sampleOnce() {
  timespec raw{};
  std::uint64_t const before = Rdtsc::now();
  ::clock_gettime(CLOCK_MONOTONIC_RAW, &raw);
  std::uint64_t const after = Rdtsc::now();
  return {before + (after - before) / 2, after - before,
          static_cast<std::uint64_t>(raw.tv_sec) * 1'000'000'000U + static_cast<std::uint64_t>(raw.tv_nsec)};
}

// The tightest of some samples is one that no interrupt fell into.
Sample sample() {
  Sample best = sampleOnce();
  for (int attempt = 0; attempt < 16; ++attempt) {
    Sample const next = sampleOnce();
    if (next.spread < best.spread) best = next;
  }
  return best;
}

Calibration calibrate() {
  Sample const first = sample();
  timespec const pause{0, 5'000'000};
  ::nanosleep(&pause, nullptr);
  Sample last = sample();
  while (last.nanoseconds - first.nanoseconds < 1'000'000) last = sample();  // a signal cut the sleep short
  auto const ticks = static_cast<double>(last.ticks - first.ticks);
  auto const seconds = static_cast<double>(last.nanoseconds - first.nanoseconds) / kNanosecondsPerSecond;
  return {ticks / seconds, static_cast<double>(first.spread + last.spread) / 2 / ticks};
}

Calibration const& calibration() {
  static Calibration const measured = calibrate();
  return measured;
}

std::uint64_t saturated(double value) {
  constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
  return value >= static_cast<double>(kMax) ? kMax : static_cast<std::uint64_t>(value);
}

}  // namespace

double Rdtsc::calibrationRate() { return calibration().rate; }

double Rdtsc::calibrationError() { return calibration().error; }

std::uint64_t Rdtsc::toNanoseconds(std::uint64_t ticks) {
  return saturated(std::round(static_cast<double>(ticks) * (kNanosecondsPerSecond / calibrationRate())));
}

std::uint64_t Rdtsc::fromDuration(std::chrono::nanoseconds duration) {
  if (duration.count() <= 0) return 0;
  return saturated(
      std::round(static_cast<double>(duration.count()) * (calibrationRate() / kNanosecondsPerSecond)));
}

}  // namespace Dovel
