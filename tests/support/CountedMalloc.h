// Counts every allocation of the test program that includes it: operator new calls malloc, too. To be
// included by one source of a program, and not under sanitizers, which have an allocator of their own.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace TestSupport {

inline std::atomic<std::uint64_t> allocations{0};

}  // namespace TestSupport

extern "C" void* __libc_malloc(std::size_t size);
// One source includes it, and it can be no inline function: it takes the place of the library's.
// NOLINTNEXTLINE(misc-definitions-in-headers)
extern "C" void* malloc(std::size_t size) {
  TestSupport::allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
