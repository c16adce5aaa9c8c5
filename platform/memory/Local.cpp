#include "platform/memory/Local.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/memory/FileAccess.h"

namespace Mem {

Local::Local(Dovel::Platform::DebugHandler const& /*handler*/, RootPath const& rootPath,
             Dovel::String fileName, CoreDump coreDump)
    : path_(rootPath.fileName(fileName)), fileName_(std::move(fileName)), coreDump_(coreDump) {}

std::byte* Local::failed(std::size_t size, int error) {
  error_ = fmt::format("cannot have {} bytes for {}: {}", size, path_, std::strerror(error));
  return nullptr;
}

std::byte* Local::attach(std::size_t size, Access /*access*/, std::size_t hint) {
  detach();
  if (size == 0 || size > kLargestSize) return failed(size, EINVAL);
  std::size_t const pages = roundedToPages(size);
  if (storage_ == HEAP) {
    if (!resizeHeap(pages)) return failed(size, ENOMEM);
  } else {
    std::size_t const wish = std::min<std::uint64_t>(hint, kLargestSize);
    if (!range_.map(-1, PROT_READ | PROT_WRITE, pages, roundedToPages(wish))) return failed(size, errno);
    capacity_ = pages;
    advise();
  }
  mappedSize_ = size;
  return isOnHeap() ? heap_.get() : range_.base();
}

std::byte* Local::resize(std::size_t size) {
  if (!isAttached() || size == 0 || size > kLargestSize) return failed(size, EINVAL);
  std::size_t const pages = roundedToPages(size);
  if (pages != capacity_ && !(isOnHeap() ? resizeHeap(pages) : resizeRange(pages)))
    return failed(size, ENOMEM);
  mappedSize_ = size;
  return isOnHeap() ? heap_.get() : range_.base();
}

bool Local::resizeHeap(std::size_t pages) {
  std::unique_ptr<std::byte, Free> larger(static_cast<std::byte*>(std::aligned_alloc(kPageSize, pages)));
  if (larger == nullptr) return false;
  std::size_t const kept = std::min(pages, capacity_);
  if (kept != 0) std::memcpy(larger.get(), heap_.get(), kept);
  std::memset(larger.get() + kept, 0, pages - kept);
  heap_ = std::move(larger);
  capacity_ = pages;
  return true;
}

bool Local::resizeRange(std::size_t pages) {
  if (pages < capacity_) {
    range_.shrink(pages);
  } else {
    if (!range_.grow(pages)) return false;
    advise();
  }
  capacity_ = pages;
  return true;
}

void Local::advise() const {
  // All of the room is advised alike: a mapping in parts can't be moved.
  if (capacity_ >= AddressRange::kHugePage) ::madvise(range_.base(), range_.room(), MADV_HUGEPAGE);
  if (coreDump_ == CoreDump::asProcess) return;
  ::madvise(range_.base(), range_.room(), coreDump_ == CoreDump::excluded ? MADV_DONTDUMP : MADV_DODUMP);
}

void Local::dumpToCoreIs(CoreDump mode) {
  coreDump_ = mode;
  if (range_.base() != nullptr) advise();
}

void Local::detach() {
  heap_.reset();
  range_.unmap();
  capacity_ = mappedSize_ = 0;
}

}  // namespace Mem
