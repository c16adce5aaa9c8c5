#include "runtime/Dovel/Rdtsc.h"

#include <gtest/gtest.h>
#include <time.h>

#include <limits>
#include <thread>

namespace {

using Dovel::Rdtsc;

std::int64_t rawNow() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC_RAW, &time);
  return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

TEST(Rdtsc, MeasuresASpanAsTheRawClockDoes) {
  Rdtsc::calibrationRate();
  // The counter is read between two readings of the clock, so that being held up anywhere only widens the
  // bounds.
  std::int64_t const a = rawNow();
  std::uint64_t const start = Rdtsc::now();
  std::int64_t const b = rawNow();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::int64_t const c = rawNow();
  std::uint64_t const end = Rdtsc::now();
  std::int64_t const d = rawNow();
  auto const measured = static_cast<double>(Rdtsc::toNanoseconds(end - start));
  double const error = 0.001 + Rdtsc::calibrationError();
  EXPECT_GE(measured, static_cast<double>(c - b) * (1 - error));
  EXPECT_LE(measured, static_cast<double>(d - a) * (1 + error));
}

TEST(Rdtsc, IsCalibratedOnce) {
  EXPECT_EQ(Rdtsc::calibrationRate(), Rdtsc::calibrationRate());
  EXPECT_GT(Rdtsc::calibrationRate(), 1e8);
  EXPECT_GT(Rdtsc::calibrationError(), 0);
}

TEST(Rdtsc, ConvertsDurationsToTicksAndBack) {
  using std::chrono::nanoseconds;
  EXPECT_NEAR(static_cast<double>(Rdtsc::fromDuration(std::chrono::seconds(1))), Rdtsc::calibrationRate(), 1);
  EXPECT_NEAR(static_cast<double>(Rdtsc::toNanoseconds(Rdtsc::fromDuration(std::chrono::milliseconds(10)))),
              1e7, 2);
  EXPECT_EQ(Rdtsc::fromDuration(nanoseconds(0)), 0U);
  EXPECT_EQ(Rdtsc::fromDuration(nanoseconds(-5)), 0U);
  EXPECT_GT(Rdtsc::toNanoseconds(std::numeric_limits<std::uint64_t>::max()), std::uint64_t{1} << 60);
}

}  // namespace
