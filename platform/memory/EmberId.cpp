#include "platform/memory/EmberId.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>

#include "runtime/Dovel/Random.h"

namespace SharedMem {
namespace {

// Of the next generation that this process makes up.
std::atomic<unsigned short>& counter() {
  static std::atomic<unsigned short> next{static_cast<unsigned short>(Dovel::Random::rand64())};
  return next;
}

// Has fresh() go on behind a generation that looks like one of this process. Upper halves are a circle.
void skip(EmberId given) {
  if ((given.value() & 0xffffU) != (static_cast<std::uint32_t>(::getpid()) & 0xffffU)) return;
  auto const upper = static_cast<unsigned short>(given.value() >> 16);
  unsigned short next = counter().load(std::memory_order_relaxed);
  while (static_cast<std::int16_t>(upper - next) >= 0 &&
         !counter().compare_exchange_weak(next, static_cast<unsigned short>(upper + 1),
                                          std::memory_order_relaxed)) {
  }
}

}  // namespace

EmberId EmberId::fresh() {
  for (;;) {
    EmberId const id(counter().fetch_add(1, std::memory_order_relaxed), ::getpid());
    if (id != EmberId()) return id;
  }
}

EmberId EmberId::incremented() const {
  EmberId const increased(value_ + 0x10000U);
  EmberId const next = increased == EmberId() ? EmberId(0x10000U) : increased;
  skip(next);
  return next;
}

}  // namespace SharedMem

fmt::format_context::iterator fmt::formatter<SharedMem::EmberId>::format(SharedMem::EmberId id,
                                                                         fmt::format_context& context) const {
  return fmt::format_to(context.out(), "{:#010x}", id.value());
}
