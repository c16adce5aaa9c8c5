// Times as commands print them.
#pragma once

#include <cstdint>
#include <string>

namespace Host {

// Of nanoseconds since 1970: "2026-11-20T13:03:59.885679941Z".
std::string utcTime(std::uint64_t nanoseconds);

}  // namespace Host
