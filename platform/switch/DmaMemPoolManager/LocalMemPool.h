// A pool in memory of this process, for chips that are modelled in it. Any thread.
#pragma once

#include <mutex>
#include <vector>

#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"

namespace DmaMemPoolManager {

class LocalMemPool : public Dovel::Tracked<LocalMemPool, DmaMemPoolManager> {
 public:
  // `count` buffers of `bufSize` bytes. They follow each other from the start of a page, and their DMA
  // addresses from dmaStart; what no buffer was written to takes no memory. Throws
  // Dovel::MemoryResourceException where there is no such room. A pool of buffers without bytes has none to
  // give.
  LocalMemPool(Dovel::String const& name, std::size_t bufSize, std::size_t count, std::uint64_t dmaStart);
  ~LocalMemPool() override;

  Dovel::String const& name() const override { return name_; }
  DmaAddrInfo bufferTake() override;
  void bufferGive(DmaAddrInfo const& info) override;
  unsigned char* dmaToVa(std::uint64_t dmaAddress, std::size_t bytes) const override;

  // The nth request from now on finds no buffer; 1 is the next one, 0 none. The latest call counts.
  void failNthIs(std::uint64_t nth);

  // Requests that got a buffer, and those that didn't.
  std::uint64_t taken() const;
  std::uint64_t failed() const;
  // Buffers that are there for the next requests.
  std::size_t freeBuffers() const;

 private:
  Dovel::String name_;
  std::size_t bufSize_;
  std::size_t bytes_ = 0;
  std::uint64_t dmaStart_;
  std::uint64_t memory_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::size_t> free_;  // numbers of the buffers that nobody holds; never reallocated
  std::uint64_t untilFailure_ = 0;
  std::uint64_t taken_ = 0;
  std::uint64_t failed_ = 0;
};

}  // namespace DmaMemPoolManager
