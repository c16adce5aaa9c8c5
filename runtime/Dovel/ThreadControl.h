// Says whether the process may run threads, so that use counts pay for a bus lock only where one is needed.
#pragma once

#include <atomic>
#include <type_traits>

namespace Dovel {

class ThreadControl {
 public:
  // True once the process may run threads. It is read at every change of a use count; a relaxed load is a
  // plain move.
  static std::atomic<bool> tsp_;

  // To be called before the first thread that touches nodes is started. There is no way back.
  static void tspIs() { tsp_.store(true, std::memory_order_relaxed); }
  static bool tsp() { return tsp_.load(std::memory_order_relaxed); }

  // Adds to a count that threads share, locked only when there may be threads. Returns the count before.
  template <class Count>
  static Count add(std::atomic<Count>& count, std::type_identity_t<Count> delta,
                   std::memory_order order = std::memory_order_relaxed) {
    if (tsp()) return count.fetch_add(delta, order);
    Count const before = count.load(std::memory_order_relaxed);
    count.store(static_cast<Count>(before + delta), std::memory_order_relaxed);
    return before;
  }
};

}  // namespace Dovel
