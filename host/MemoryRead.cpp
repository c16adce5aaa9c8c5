#include "host/MemoryRead.h"

#include <algorithm>
#include <cstring>

#include "platform/switch/LoamAsicUtils/MemoryCommands.h"

namespace Host {

MemoryRead::MemoryRead(ControlPlane& plane, Sluice::FapId fap, LoamAsicUtils::BcmRegMemInfo const& memory,
                       LoamAsicUtils::BcmInstanceInfo const& instance)
    : channel_(plane.channel()),
      fap_(only(fap)),
      memory_(memory),
      instance_(instance),
      buffer_(DmaMemPoolManager::dmaMemPoolBufferFactory(
          Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager>(&plane.pool()))),
      data_(std::size_t{memory.rowCount()} * memory.entrySize()),
      had_(memory.rowCount()) {
  if (!buffer_->valid()) return;
  auto const atOnce = static_cast<std::uint32_t>(buffer_->bufSize() / memory.entrySize());
  for (std::uint32_t first = 0; first < memory.rowCount(); first += atOnce)
    read(first, std::min(atOnce, memory.rowCount() - first));
}

std::span<std::uint8_t const> MemoryRead::row(std::uint32_t number) const {
  if (!had_[number]) return {};
  return {data_.data() + std::size_t{number} * memory_.entrySize(), memory_.entrySize()};
}

// A transfer is refused as a whole, so its halves are tried, down to the rows that the chip won't give.
void MemoryRead::read(std::uint32_t first, std::uint32_t rows) {
  if (transfer(first, rows) || rows == 1) return;
  read(first, rows / 2);
  read(first + rows / 2, rows - rows / 2);
}

bool MemoryRead::transfer(std::uint32_t first, std::uint32_t rows) {
  auto const cmds = Sluice::schanCmdsFactory();
  cmds->cmdEnq(LoamAsicUtils::memoryReadBulkCmdFactory(fap_, memory_, instance_, first, rows, buffer_));
  if (!channel_.send(cmds).ok()) return false;
  std::size_t const rowBytes = memory_.entrySize();
  std::memcpy(data_.data() + first * rowBytes, buffer_->va(), rows * rowBytes);
  std::fill_n(had_.begin() + first, rows, true);
  return true;
}

}  // namespace Host
