#include "host/UtcTime.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace Host {

std::string utcTime(std::uint64_t nanoseconds) {
  constexpr std::uint64_t kSecond = 1'000'000'000;
  auto const seconds = static_cast<std::time_t>(nanoseconds / kSecond);
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:09}Z", fmt::gmtime(seconds), nanoseconds % kSecond);
}

}  // namespace Host
