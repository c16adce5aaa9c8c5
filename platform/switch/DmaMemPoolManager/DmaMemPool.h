// Pools of buffers that the chip can reach by DMA, and the buffers taken from them.
// A pool is for any thread. A buffer belongs to one thread at a time; its last reference may go in any thread
// and gives the memory back.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>

#include "runtime/Dovel/PtrIs.h"
#include "runtime/Dovel/String.h"

namespace DmaMemPoolManager {

// Where a buffer lies; all zero and not valid where none was had.
struct DmaAddrInfo {
  std::uint64_t dmaAddress = 0;  // as the chip sees it
  std::uint64_t vaAddress = 0;   // in the process's address space
  std::uint64_t bufSize = 0;     // bytes
  bool valid = false;

  friend bool operator==(DmaAddrInfo const&, DmaAddrInfo const&) = default;
};

Dovel::String valueToStrep(DmaAddrInfo const& info);
std::ostream& operator<<(std::ostream& out, DmaAddrInfo const& info);

// What a pool does. A pool of real hardware hands out memory that the chip's driver has pinned.
class DmaMemPoolManager : public Dovel::Node {
 public:
  virtual Dovel::String const& name() const = 0;
  // A buffer for the caller alone; not valid when none is left.
  virtual DmaAddrInfo bufferTake() = 0;
  // Gives a valid buffer of bufferTake() back.
  virtual void bufferGive(DmaAddrInfo const& info) = 0;
  // Where those bytes stand in this process, for models of chips that live in it; null unless all of them lie
  // in one buffer of the pool. A pool that no model may look into keeps it at that.
  virtual unsigned char* dmaToVa(std::uint64_t /*dmaAddress*/, std::size_t /*bytes*/) const {
    return nullptr;
  }
};

class DmaMemPoolBuffer : public Dovel::Tracked<DmaMemPoolBuffer> {
 public:
  DmaMemPoolBuffer(Dovel::Ptr<DmaMemPoolManager> const& pool, DmaAddrInfo const& addrInfo);
  ~DmaMemPoolBuffer() override;

  Dovel::String const& name() const { return name_; }
  DmaAddrInfo const& dmaAddrInfo() const { return addrInfo_; }
  bool valid() const { return addrInfo_.valid; }

  unsigned char* va() const { return reinterpret_cast<unsigned char*>(addrInfo_.vaAddress); }
  std::size_t bufSize() const { return addrInfo_.bufSize; }
  // The write position. Moving it past the end is a fault of the program and ends the process.
  unsigned char* vaCursor() const { return va() + cursor_; }
  void incVaCursor(unsigned long long bytes);

 private:
  void onDelete();

  Dovel::String name_;
  DmaAddrInfo addrInfo_;
  Dovel::Ptr<DmaMemPoolManager> pool_;
  std::uint64_t cursor_ = 0;
};

// Takes a buffer from the pool. Always returns an object; valid() tells whether it holds memory. A null pool
// has none.
Dovel::Ptr<DmaMemPoolBuffer> dmaMemPoolBufferFactory(Dovel::Ptr<DmaMemPoolManager> const& pool);

inline constexpr std::size_t kDefaultBufSize = 65536;
inline constexpr std::size_t kDefaultCount = 256;
// Above what a process can have for addresses of its own: one that is taken for the other leads nowhere.
inline constexpr std::uint64_t kDefaultDmaStart = std::uint64_t{1} << 60;

// A LocalMemPool (platform/switch/DmaMemPoolManager/LocalMemPool.h) and what its constructor throws.
Dovel::Ptr<DmaMemPoolManager> localMemPoolFactory(Dovel::String const& name,
                                                  std::size_t bufSize = kDefaultBufSize,
                                                  std::size_t count = kDefaultCount,
                                                  std::uint64_t dmaStart = kDefaultDmaStart);

}  // namespace DmaMemPoolManager

template <>
struct fmt::formatter<DmaMemPoolManager::DmaAddrInfo> : Dovel::PlainFormatter {
  auto format(DmaMemPoolManager::DmaAddrInfo const& info, fmt::format_context& context) const {
    return write(valueToStrep(info), context);
  }
};
