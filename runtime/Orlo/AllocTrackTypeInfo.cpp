#include "runtime/Orlo/AllocTrackTypeInfo.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>

namespace Orlo {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<AllocTrackTypeInfo const*> trackers;
};

// Never destroyed: static objects free their nodes late.
Registry& registry() {
  static Registry& only = *new Registry;
  return only;
}

}  // namespace

// By name, as a library that is loaded again brings its types along again. Only the name of a type in an
// unnamed namespace may be that of another type, too.
bool AllocTrackTypeInfo::isOf(std::type_info const& type) const {
  return name_ == type.name() && (type_ == &type || name_.find("_GLOBAL__N_") == std::string::npos);
}

// Two libraries may each hold a tracker pointer of the same class; they share the tracker.
AllocTrackTypeInfo* AllocTrackTypeInfo::registerTracker(AllocTrackTypeInfo** tracker,
                                                        std::type_info const& type, std::size_t size,
                                                        std::size_t alignment) {
  Registry& all = registry();
  std::lock_guard const lock(all.mutex);
  auto const found = std::find_if(all.trackers.begin(), all.trackers.end(),
                                  [&](AllocTrackTypeInfo const* known) { return known->isOf(type); });
  AllocTrackTypeInfo* const known = found != all.trackers.end()
                                        ? const_cast<AllocTrackTypeInfo*>(*found)
                                        : new AllocTrackTypeInfo(type, size, alignment);
  if (found == all.trackers.end()) all.trackers.push_back(known);
  std::atomic_ref(*tracker).store(known, std::memory_order_release);
  return known;
}

std::vector<AllocTrackTypeInfo const*> AllocTrackTypeInfo::trackers() {
  Registry& all = registry();
  std::lock_guard const lock(all.mutex);
  return all.trackers;
}

Dovel::String AllocTrackTypeInfo::typeName() const {
  int status = 0;
  char* const readable = abi::__cxa_demangle(name_.c_str(), nullptr, nullptr, &status);
  if (readable == nullptr) return name_;
  Dovel::String name(readable);
  std::free(readable);
  return name;
}

}  // namespace Orlo
