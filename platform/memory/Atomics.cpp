#include "platform/memory/Atomics.h"

#include <atomic>
#include <bit>

#include "platform/memory/SharedWord.h"

namespace Mem {

// Both are known when the program is built: it runs on no processor that differs in them.
bool Atomics::checkCpuSupport() {
  return std::atomic_ref<Cell>::is_always_lock_free && std::endian::native == std::endian::little;
}

}  // namespace Mem
