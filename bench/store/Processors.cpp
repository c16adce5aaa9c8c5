#include "bench/store/Processors.h"

#include <sched.h>

#include <cstddef>

namespace StoreBench {
namespace {

bool isIn(int processor, cpu_set_t const& set) {
  return CPU_ISSET(static_cast<std::size_t>(processor), &set);
}

std::optional<Processors> choose() {
  cpu_set_t given;
  if (::sched_getaffinity(0, sizeof given, &given) != 0) return {};
  std::optional<Processors> chosen;
  // From the last one down: the first serves most interrupts.
  for (int processor = CPU_SETSIZE; processor-- > 0 && !chosen;)
    if (isIn(processor, given)) chosen = Processors{processor, -1};
  for (int processor = CPU_SETSIZE; chosen && processor-- > 0 && chosen->other < 0;)
    if (processor != chosen->measured && pinTo(processor)) chosen->other = processor;
  ::sched_setaffinity(0, sizeof given, &given);
  return chosen && chosen->other >= 0 ? chosen : std::nullopt;
}

}  // namespace

std::optional<Processors> Processors::two() {
  static std::optional<Processors> const chosen = choose();
  return chosen;
}

bool pinTo(int processor) {
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(static_cast<std::size_t>(processor), &only);
  return ::sched_setaffinity(0, sizeof only, &only) == 0 && ::sched_getcpu() == processor;
}

}  // namespace StoreBench
