#include "platform/memory/AddressRange.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#ifndef MADV_COLLAPSE
#define MADV_COLLAPSE 25
#endif

namespace Mem {
namespace {

constexpr std::size_t kHugePage = AddressRange::kHugePage;
constexpr int kPrivate = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

bool isAligned(std::byte const* address) {
  return reinterpret_cast<std::uintptr_t>(address) % kHugePage == 0;
}

void release(std::byte* begin, std::byte* end) {
  if (begin < end) ::munmap(begin, static_cast<std::size_t>(end - begin));
}

struct Offsets {
  std::size_t from;
  std::size_t to;
};

// Of those that have a part in the range and don't reach past it.
Offsets wholeHugePages(std::size_t begin, std::size_t end) {
  return {begin / kHugePage * kHugePage, end / kHugePage * kHugePage};
}

// Addresses that are ours and lead nowhere; null where there are none.
std::byte* reserve(std::size_t size) {
  bool const align = size >= kHugePage;
  std::size_t const wanted = align ? size + kHugePage : size;
  void* const found = ::mmap(nullptr, wanted, PROT_NONE, kPrivate, -1, 0);
  if (found == MAP_FAILED) return nullptr;
  auto* const begin = static_cast<std::byte*>(found);
  if (!align) return begin;
  auto const past = reinterpret_cast<std::uintptr_t>(begin) % kHugePage;
  std::byte* const base = past == 0 ? begin : begin + (kHugePage - past);
  release(begin, base);
  release(base + size, begin + wanted);
  return base;
}

}  // namespace

bool AddressRange::map(int descriptor, int protection, std::size_t size, std::size_t hint) {
  unmap();
  return mapRoom(descriptor, protection, size, std::max(size, hint)) ||
         (hint > size && mapRoom(descriptor, protection, size, size));
}

bool AddressRange::mapRoom(int descriptor, int protection, std::size_t size, std::size_t room) {
  // Only large ones have to stand where a huge page may.
  std::byte* const at = room < kHugePage ? nullptr : reserve(room);
  if (at == nullptr && room >= kHugePage) return false;
  int const flags = (descriptor < 0 ? kPrivate : MAP_SHARED) | (at == nullptr ? 0 : MAP_FIXED);
  void* const mapped = ::mmap(at, room, protection, flags, descriptor, 0);
  if (mapped == MAP_FAILED) {
    release(at, at + room);
    return false;
  }
  base_ = static_cast<std::byte*>(mapped);
  size_ = size;
  room_ = room;
  return true;
}

bool AddressRange::grow(std::size_t size) {
  if (size > room_ && !growRoom(size)) return false;
  size_ = std::max(size, size_);
  return true;
}

bool AddressRange::growRoom(std::size_t room) {
  bool const mayStay = room < kHugePage || isAligned(base_);
  if (mayStay && ::mremap(base_, room_, room, 0) != MAP_FAILED) {
    room_ = room;
    return true;
  }
  std::byte* const target = reserve(room);
  if (target == nullptr) return false;
  if (::mremap(base_, room_, room, MREMAP_MAYMOVE | MREMAP_FIXED, target) == MAP_FAILED) {
    release(target, target + room);
    return false;
  }
  base_ = target;
  room_ = room;
  return true;
}

void AddressRange::shrink(std::size_t size) {
  if (size >= size_) return;
  // Private pages are given back, and are zeroes when they are had again.
  ::madvise(base_ + size, size_ - size, MADV_DONTNEED);
  size_ = size;
}

void AddressRange::unmap() {
  if (base_ != nullptr) release(base_, base_ + room_);
  forget();
}

void AddressRange::forget() {
  base_ = nullptr;
  size_ = room_ = 0;
}

void AddressRange::swap(AddressRange& other) noexcept {
  std::swap(base_, other.base_);
  std::swap(size_, other.size_);
  std::swap(room_, other.room_);
}

void AddressRange::collapse(int descriptor, std::size_t begin, std::size_t end) {
  auto const [from, to] = wholeHugePages(begin, end);
  if (from >= to) return;
  std::byte* const at = reserve(to - from);
  if (at == nullptr) return;
  void* const mapped = ::mmap(at, to - from, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, descriptor,
                              static_cast<off_t>(from));
  if (mapped != MAP_FAILED) ::madvise(at, to - from, MADV_COLLAPSE);
  release(at, at + (to - from));
}

void AddressRange::mapPages(std::size_t begin, std::size_t end) const {
  auto const [from, to] = wholeHugePages(begin, end);
  if (isAligned(base_) && from < to) {
    ::madvise(base_ + from, to - from, MADV_COLLAPSE);
  } else if (begin < end) {
    ::madvise(base_ + begin, end - begin, MADV_POPULATE_WRITE);
  }
}

}  // namespace Mem
