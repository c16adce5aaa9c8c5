// Counts the objects of one class, for the people who look for what fills the memory. Trackers are made on a
// class's first allocation and live as long as the process. Any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

#include "runtime/Dovel/String.h"
#include "runtime/Dovel/ThreadControl.h"

namespace Orlo {

class AllocTrackTypeInfo {
 public:
  using Count = std::uint64_t;

  // Counts one object of a type. A class's tracker pointer starts out null and is set here.
  static void _trackAllocation(AllocTrackTypeInfo** tracker, std::type_info const& type, std::size_t size,
                               std::size_t alignment) {
    trackArrayAllocation(tracker, type, size, alignment, 1);
  }
  static void trackArrayAllocation(AllocTrackTypeInfo** tracker, std::type_info const& type, std::size_t size,
                                   std::size_t alignment, Count count) {
    AllocTrackTypeInfo* known = std::atomic_ref(*tracker).load(std::memory_order_acquire);
    if (known == nullptr) [[unlikely]]
      known = registerTracker(tracker, type, size, alignment);
    Dovel::ThreadControl::add(known->made_, count);
  }

  // Counts objects down. A null tracker, one whose type was never counted, has nothing to count.
  static void trackDeallocation(AllocTrackTypeInfo* tracker) { trackArrayDeallocation(tracker, 1); }
  static void trackArrayDeallocation(AllocTrackTypeInfo* tracker, Count count) {
    if (tracker != nullptr) Dovel::ThreadControl::add(tracker->freed_, count);
  }

  // Every tracker of the process, in the order of their first use.
  static std::vector<AllocTrackTypeInfo const*> trackers();

  AllocTrackTypeInfo(AllocTrackTypeInfo const&) = delete;
  AllocTrackTypeInfo& operator=(AllocTrackTypeInfo const&) = delete;

  Dovel::String typeName() const;
  std::size_t objectSize() const { return size_; }
  std::size_t objectAlignment() const { return alignment_; }
  // Objects that exist now, and all that were ever made. Exact while no other thread makes or frees any.
  Count liveCount() const {
    return made_.load(std::memory_order_relaxed) - freed_.load(std::memory_order_relaxed);
  }
  Count totalCount() const { return made_.load(std::memory_order_relaxed); }

 private:
  AllocTrackTypeInfo(std::type_info const& type, std::size_t size, std::size_t alignment)
      : name_(type.name()), type_(&type), size_(size), alignment_(alignment) {}
  bool isOf(std::type_info const& type) const;
  static AllocTrackTypeInfo* registerTracker(AllocTrackTypeInfo** tracker, std::type_info const& type,
                                             std::size_t size, std::size_t alignment);

  std::string const name_;
  void const* const type_;  // no longer there once the type's library was unloaded
  std::size_t size_;
  std::size_t alignment_;
  std::atomic<Count> made_{0};
  std::atomic<Count> freed_{0};
};

}  // namespace Orlo
