#include "platform/memory/Atomics.h"

#include <atomic>
#include <bit>

#include "platform/memory/SharedWord.h"

namespace Mem {

bool Atomics::checkCpuSupport() {
  Cell cell = 0;
  return std::atomic_ref(cell).is_lock_free() && std::endian::native == std::endian::little;
}

}  // namespace Mem
