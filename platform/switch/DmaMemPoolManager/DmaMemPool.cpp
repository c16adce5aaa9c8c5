#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"

#include <fmt/format.h>

#include "runtime/Dovel/Format.h"

namespace DmaMemPoolManager {

Dovel::String valueToStrep(DmaAddrInfo const& info) {
  return fmt::format("dma {:#x} va {:#x} size {} {}", info.dmaAddress, info.vaAddress, info.bufSize,
                     info.valid ? "valid" : "invalid");
}

std::ostream& operator<<(std::ostream& out, DmaAddrInfo const& info) { return out << valueToStrep(info); }

DmaMemPoolBuffer::DmaMemPoolBuffer(Dovel::Ptr<DmaMemPoolManager> const& pool, DmaAddrInfo const& addrInfo)
    : name_(pool ? pool->name() : Dovel::String()), addrInfo_(addrInfo), pool_(pool) {}

DmaMemPoolBuffer::~DmaMemPoolBuffer() {
  markBeingDestroyed();
  onDelete();
}

void DmaMemPoolBuffer::onDelete() {
  if (valid()) pool_->bufferGive(addrInfo_);
}

void DmaMemPoolBuffer::incVaCursor(unsigned long long bytes) {
  DOVEL_ASSERT(bytes <= bufSize() - cursor_, "DmaMemPoolManager::DmaMemPoolBuffer",
               "{} bytes past position {} of buffer {}, which has {}", bytes, cursor_, name_, bufSize());
  cursor_ += bytes;
}

Dovel::Ptr<DmaMemPoolBuffer> dmaMemPoolBufferFactory(Dovel::Ptr<DmaMemPoolManager> const& pool) {
  DmaAddrInfo const info = pool ? pool->bufferTake() : DmaAddrInfo();
  try {
    return Dovel::ptrIsImpl<DmaMemPoolBuffer>(pool, info);
  } catch (...) {
    if (info.valid) pool->bufferGive(info);
    throw;
  }
}

}  // namespace DmaMemPoolManager
