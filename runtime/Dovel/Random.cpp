#include "runtime/Dovel/Random.h"

#include <sys/random.h>
#include <time.h>
#include <unistd.h>

namespace Dovel {
namespace {

bool drawn(std::uint64_t& number, unsigned flags) {
  return ::getrandom(&number, sizeof number, flags) == static_cast<ssize_t>(sizeof number);
}

// For kernels that give none: distinct by process and time, though not secret.
std::uint64_t fromClock() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  std::uint64_t mixed = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U +
                        static_cast<std::uint64_t>(now.tv_nsec) +
                        (static_cast<std::uint64_t>(::getpid()) << 40);
  mixed = (mixed ^ mixed >> 30) * 0xbf58476d1ce4e5b9U;
  mixed = (mixed ^ mixed >> 27) * 0x94d049bb133111ebU;
  return mixed ^ mixed >> 31;
}

}  // namespace

std::uint64_t Random::rand64() noexcept {
  std::uint64_t number = 0;
  if (drawn(number, GRND_INSECURE) || drawn(number, GRND_NONBLOCK)) return number;
  return fromClock();
}

}  // namespace Dovel
