// How many records the measured tables have.
#pragma once

#include <array>
#include <cstdint>

namespace StoreBench {

inline constexpr std::array<std::uint32_t, 3> kSizes{1'000, 64'000, 1'000'000};

}  // namespace StoreBench
