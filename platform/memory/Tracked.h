// Counts what is mapped, for the people who look for what fills the memory. A tracker may be shared by
// mappings of several threads.
#pragma once

#include <atomic>

#include "platform/memory/Mapping.h"

namespace Mem {

class MemoryTracker {
 public:
  // The one of tables that are asked to be tracked.
  static MemoryTracker& ofProcess();

  void changed(std::size_t before, std::size_t now) {
    bytes_.fetch_add(now - before, std::memory_order_relaxed);
  }
  // Mapped now, by all that count here.
  std::size_t bytes() const { return bytes_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::size_t> bytes_{0};
};

// A mapping that reports to a tracker, once it was told to which.
template <class W>
class Tracked : public W {
 public:
  using W::W;
  ~Tracked() override { enable(nullptr); }

  // The tracker must outlive the mapping; null ends the count.
  void enable(MemoryTracker* tracker) {
    if (tracker_ != nullptr) tracker_->changed(counted_, 0);
    tracker_ = tracker;
    counted_ = 0;
    count();
  }

  std::byte* attach(std::size_t size, Access access, std::size_t hint) override {
    std::byte* const base = W::attach(size, access, hint);
    count();
    return base;
  }
  std::byte* resize(std::size_t size) override {
    std::byte* const base = W::resize(size);
    count();
    return base;
  }
  void detach() override {
    W::detach();
    count();
  }

 private:
  void count() {
    if (tracker_ == nullptr) return;
    tracker_->changed(counted_, W::mappedSize());
    counted_ = W::mappedSize();
  }

  MemoryTracker* tracker_ = nullptr;
  std::size_t counted_ = 0;
};

}  // namespace Mem
