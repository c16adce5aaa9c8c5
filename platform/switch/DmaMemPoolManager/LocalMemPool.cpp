#include "platform/switch/DmaMemPoolManager/LocalMemPool.h"

#include <sys/mman.h>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace DmaMemPoolManager {
namespace {

[[noreturn]] void refuse(std::size_t bufSize, std::size_t count) {
  DOVEL_THROW(Dovel::MemoryResourceException, "LocalMemPool", "no memory for {} buffers of {} bytes", count,
              bufSize);
}

}  // namespace

LocalMemPool::LocalMemPool(Dovel::String const& name, std::size_t bufSize, std::size_t count,
                           std::uint64_t dmaStart)
    : name_(name), bufSize_(bufSize), dmaStart_(dmaStart) {
  if (__builtin_mul_overflow(bufSize, count, &bytes_)) refuse(bufSize, count);
  if (bytes_ == 0) return;
  try {
    free_.reserve(count);
  } catch (std::exception const&) {
    refuse(bufSize, count);
  }
  void* const memory =
      ::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) refuse(bufSize, count);
  for (std::size_t number = count; number > 0; --number) free_.push_back(number - 1);
  memory_ = reinterpret_cast<std::uint64_t>(memory);
}

LocalMemPool::~LocalMemPool() {
  markBeingDestroyed();
  if (memory_ != 0) ::munmap(reinterpret_cast<void*>(memory_), bytes_);
}

DmaAddrInfo LocalMemPool::bufferTake() {
  std::lock_guard const lock(mutex_);
  bool const toFail = untilFailure_ != 0 && --untilFailure_ == 0;
  if (toFail || free_.empty()) {
    ++failed_;
    return {};
  }
  ++taken_;
  std::uint64_t const offset = free_.back() * bufSize_;
  free_.pop_back();
  return {dmaStart_ + offset, memory_ + offset, bufSize_, true};
}

void LocalMemPool::bufferGive(DmaAddrInfo const& info) {
  std::lock_guard const lock(mutex_);
  free_.push_back((info.vaAddress - memory_) / bufSize_);
}

unsigned char* LocalMemPool::dmaToVa(std::uint64_t dmaAddress, std::size_t bytes) const {
  std::uint64_t const offset = dmaAddress - dmaStart_;  // of an address below the start: past every end
  if (offset >= bytes_ || bytes > bufSize_ - offset % bufSize_) return nullptr;
  return reinterpret_cast<unsigned char*>(memory_ + offset);
}

void LocalMemPool::failNthIs(std::uint64_t nth) {
  std::lock_guard const lock(mutex_);
  untilFailure_ = nth;
}

std::uint64_t LocalMemPool::taken() const {
  std::lock_guard const lock(mutex_);
  return taken_;
}

std::uint64_t LocalMemPool::failed() const {
  std::lock_guard const lock(mutex_);
  return failed_;
}

std::size_t LocalMemPool::freeBuffers() const {
  std::lock_guard const lock(mutex_);
  return free_.size();
}

Dovel::Ptr<DmaMemPoolManager> localMemPoolFactory(Dovel::String const& name, std::size_t bufSize,
                                                  std::size_t count, std::uint64_t dmaStart) {
  return Dovel::ptrIsImpl<LocalMemPool>(name, bufSize, count, dmaStart);
}

}  // namespace DmaMemPoolManager
