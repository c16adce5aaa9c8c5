// What a run did, table by table. Functions without state.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "host/ControlPlane.h"
#include "host/InputError.h"

namespace Host {

// A headline, a line for each table for which anything was done, and one for all.
std::vector<std::string> summaryLines(ControlPlane const& plane, std::chrono::nanoseconds time);
// The keys that the chips have last answered with an error, the first few of them.
std::vector<std::string> refusalLines(ControlPlane const& plane);
// With all of both.
Json summaryJson(ControlPlane const& plane, std::chrono::nanoseconds time);

// "17 ns", "1.2 us", "340 ms", "12.5 s".
std::string durationText(std::chrono::nanoseconds time);
// "340 B", "1.2 KiB", "3.4 MiB".
std::string bytesText(std::uint64_t bytes);

}  // namespace Host
