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
constexpr int kReserve = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

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
  void* const found = ::mmap(nullptr, wanted, PROT_NONE, kReserve, -1, 0);
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
  std::size_t reserved = std::max(size, hint);
  std::byte* at = reserve(reserved);
  if (at == nullptr) at = reserve(reserved = size);
  if (at == nullptr) return false;
  int const flags = descriptor < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED;
  if (::mmap(at, size, protection, flags | MAP_FIXED, descriptor, 0) == MAP_FAILED) {
    release(at, at + reserved);
    return false;
  }
  base_ = at;
  size_ = size;
  reserved_ = reserved;
  return true;
}

void AddressRange::takeReserve(std::size_t from, std::size_t to) {
  if (from < to) release(base_ + from, base_ + to);
}

bool AddressRange::growInPlace(std::size_t size) {
  if (size >= kHugePage && !isAligned(base_)) return false;
  // The addresses are free for others for a moment; where one takes them the mapping moves.
  takeReserve(size_, std::min(size, reserved_));
  if (::mremap(base_, size_, size, 0) == MAP_FAILED) {
    takeReserve(std::min(size, reserved_), reserved_);
    reserved_ = size_;
    return false;
  }
  size_ = size;
  reserved_ = std::max(size, reserved_);
  return true;
}

bool AddressRange::move(std::size_t size) {
  std::byte* const target = reserve(size);
  if (target == nullptr) return false;
  if (::mremap(base_, size_, size, MREMAP_MAYMOVE | MREMAP_FIXED, target) == MAP_FAILED) {
    release(target, target + size);
    return false;
  }
  takeReserve(size_, reserved_);
  base_ = target;
  size_ = reserved_ = size;
  return true;
}

bool AddressRange::grow(std::size_t size) { return size <= size_ || growInPlace(size) || move(size); }

void AddressRange::shrink(std::size_t size) {
  if (size >= size_) return;
  std::byte* const end = base_ + size;
  bool const kept =
      reserved_ > size_ && ::mmap(end, size_ - size, PROT_NONE, kReserve | MAP_FIXED, -1, 0) != MAP_FAILED;
  if (!kept) {
    release(end, base_ + reserved_);
    reserved_ = size;
  }
  size_ = size;
}

void AddressRange::unmap() {
  if (base_ != nullptr) release(base_, base_ + reserved_);
  forget();
}

void AddressRange::forget() {
  base_ = nullptr;
  size_ = reserved_ = 0;
}

void AddressRange::swap(AddressRange& other) noexcept {
  std::swap(base_, other.base_);
  std::swap(size_, other.size_);
  std::swap(reserved_, other.reserved_);
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

void AddressRange::mapHuge(std::size_t begin, std::size_t end) const {
  auto const [from, to] = wholeHugePages(begin, end);
  if (isAligned(base_) && from < to) ::madvise(base_ + from, to - from, MADV_COLLAPSE);
}

}  // namespace Mem
