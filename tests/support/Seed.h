// The seed of random tests: HWTABLES_TEST_SEED where it is set, else a new one each run; it is printed when a
// test that asked for it fails.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <random>

namespace TestSupport {

inline std::uint64_t seed() {
  static std::uint64_t const value = [] {
    char const* const given = std::getenv("HWTABLES_TEST_SEED");
    return given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device()();
  }();
  return value;
}

}  // namespace TestSupport

// Stands at the start of a random test.
#define PRINT_SEED_ON_FAILURE() \
  SCOPED_TRACE(testing::Message() << "HWTABLES_TEST_SEED=" << ::TestSupport::seed())
