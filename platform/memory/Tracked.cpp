#include "platform/memory/Tracked.h"

namespace Mem {

MemoryTracker& MemoryTracker::ofProcess() {
  static MemoryTracker tracker;
  return tracker;
}

}  // namespace Mem
