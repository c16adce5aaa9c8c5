#include "platform/memory/EmberId.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>

#include "runtime/Dovel/Random.h"

namespace SharedMem {

EmberId EmberId::fresh() {
  static std::atomic<unsigned short> counter{static_cast<unsigned short>(Dovel::Random::rand64())};
  for (;;) {
    EmberId const id(counter.fetch_add(1, std::memory_order_relaxed), ::getpid());
    if (id != EmberId()) return id;
  }
}

EmberId EmberId::incremented() const {
  EmberId const next(value_ + 0x10000U);
  return next == EmberId() ? EmberId(0x10000U) : next;
}

}  // namespace SharedMem

fmt::format_context::iterator fmt::formatter<SharedMem::EmberId>::format(SharedMem::EmberId id,
                                                                         fmt::format_context& context) const {
  return fmt::format_to(context.out(), "{:#010x}", id.value());
}
