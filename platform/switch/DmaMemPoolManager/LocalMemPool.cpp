#include <sys/mman.h>

#include <mutex>
#include <vector>

#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace DmaMemPoolManager {
namespace {

class LocalMemPool : public Dovel::Tracked<LocalMemPool, DmaMemPoolManager> {
 public:
  LocalMemPool(Dovel::String const& name, std::size_t bufSize, std::size_t count, std::uint64_t dmaStart);
  ~LocalMemPool() override;

  Dovel::String const& name() const override { return name_; }
  DmaAddrInfo bufferTake() override;
  void bufferGive(DmaAddrInfo const& info) override;

 private:
  Dovel::String name_;
  std::size_t bufSize_;
  std::size_t bytes_ = 0;
  std::uint64_t dmaStart_;
  std::uint64_t memory_ = 0;
  std::mutex mutex_;
  std::vector<std::size_t> free_;  // numbers of the buffers that nobody holds; never reallocated
};

[[noreturn]] void refuse(std::size_t bufSize, std::size_t count) {
  DOVEL_THROW(Dovel::MemoryResourceException, "LocalMemPool", "no memory for {} buffers of {} bytes", count,
              bufSize);
}

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
  void* const memory = ::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
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
  if (free_.empty()) return {};
  std::uint64_t const offset = free_.back() * bufSize_;
  free_.pop_back();
  return {dmaStart_ + offset, memory_ + offset, bufSize_, true};
}

void LocalMemPool::bufferGive(DmaAddrInfo const& info) {
  std::lock_guard const lock(mutex_);
  free_.push_back((info.vaAddress - memory_) / bufSize_);
}

}  // namespace

Dovel::Ptr<DmaMemPoolManager> localMemPoolFactory(Dovel::String const& name, std::size_t bufSize,
                                                  std::size_t count, std::uint64_t dmaStart) {
  return Dovel::ptrIsImpl<LocalMemPool>(name, bufSize, count, dmaStart);
}

}  // namespace DmaMemPoolManager
