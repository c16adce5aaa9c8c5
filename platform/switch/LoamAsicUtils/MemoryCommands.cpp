#include "platform/switch/LoamAsicUtils/MemoryCommands.h"

#include <algorithm>
#include <cstring>

#include "runtime/Dovel/Format.h"

namespace LoamAsicUtils {
namespace {

using Sluice::schan_xmsg_user_;
using Sluice::SchanOpcode;

class MemoryWriteCmd : public Dovel::Tracked<MemoryWriteCmd, Sluice::SchanCmdBase> {
 public:
  MemoryWriteCmd(Sluice::Fapmask const& fapmask, BcmInstanceInfo const& instance, std::uint32_t address,
                 std::uint32_t bytes, unsigned char const* data)
      : fapmask_(fapmask),
        block_(instance.block()),
        location_(instance.location()),
        address_(address),
        bytes_(bytes) {
    DOVEL_ASSERT(bytes <= sizeof data_, "LoamAsicUtils::MemoryWriteCmd", "a row of {} bytes in a message",
                 bytes);
    std::memcpy(data_, data, bytes);
  }
  ~MemoryWriteCmd() override { markBeingDestroyed(); }

  Sluice::Fapmask const& fapmask() const override { return fapmask_; }
  unsigned int dwc_write() const override { return sizeof(schan_xmsg_user_) / 4; }
  // The channel judges the answers: there is nothing else in them.
  unsigned int dwc_read() const override { return 0; }

 protected:
  void fillCmd(std::span<std::uint32_t> buf) override {
    schan_xmsg_user_ message;
    fillCmdletHeader(&message, SchanOpcode::memoryWrite, location_, block_,
                     schan_xmsg_user_::lengthFor(bytes_));
    message.responseRequested = 1;
    message.address = address_;
    std::memcpy(message.data, data_, bytes_);
    std::memset(reinterpret_cast<unsigned char*>(message.data) + bytes_, 0, sizeof message.data - bytes_);
    std::memcpy(buf.data(), &message, sizeof message);
  }
  void readResp(std::span<std::uint32_t const> /*buf*/) override {}

 private:
  Sluice::Fapmask fapmask_;
  std::uint32_t block_;
  std::uint32_t location_;
  std::uint32_t address_;
  std::uint32_t bytes_;
  unsigned char data_[sizeof schan_xmsg_user_::data];
};

// Bulk transfers between one buffer and the instances of a memory.
class MemoryBulkCmd : public Dovel::Tracked<MemoryBulkCmd, Sluice::SchanCmdBase> {
 public:
  using Buffer = Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer>;

  MemoryBulkCmd(Sluice::Fapmask const& fapmask, Buffer const& buffer) : fapmask_(fapmask), buffer_(buffer) {}
  ~MemoryBulkCmd() override { markBeingDestroyed(); }

  void transferIs(Sluice::BulkTransfer const& transfer) { transfers_.push_back(transfer); }

  Sluice::Fapmask const& fapmask() const override { return fapmask_; }
  unsigned int dwc_write() const override { return 0; }
  unsigned int dwc_read() const override { return 0; }
  unsigned int bulkTransferCount() const override { return static_cast<unsigned>(transfers_.size()); }
  Sluice::BulkTransfer bulkTransfer(unsigned int number) const override { return transfers_.at(number); }

 protected:
  void fillCmd(std::span<std::uint32_t> /*buf*/) override {}
  void readResp(std::span<std::uint32_t const> /*buf*/) override {}

 private:
  Sluice::Fapmask fapmask_;
  Buffer buffer_;
  std::vector<Sluice::BulkTransfer> transfers_;
};

}  // namespace

Dovel::Ptr<Sluice::SchanCmd> memoryWriteCmdFactory(Sluice::Fapmask const& fapmask,
                                                   BcmRegMemInfo const& memory,
                                                   BcmInstanceInfo const& instance, std::uint8_t array,
                                                   std::uint32_t entry, unsigned char const* data) {
  return Dovel::ptrIsImpl<MemoryWriteCmd>(fapmask, instance, memory.rowAddress(instance, array, entry),
                                          std::uint32_t{memory.entrySize()}, data);
}

Dovel::Ptr<Sluice::SchanCmd> memoryWriteDmamemPoolBulkCmdFactory(
    Sluice::Fapmask const& fapmask,
    Dovel::Ptr<Hardware::Loam::LoamCmdletRequiredStatus const> const& /*loamCmdletRequiredStatus*/,
    std::uint8_t firstArray, std::uint32_t firstEntry, std::uint16_t entrySize, std::uint64_t dmaAddress,
    Dovel::Ptr<BcmRegMemInfo const> const& memory, InstanceId firstInstance, InstanceId lastInstance,
    std::uint32_t queued, Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> const& buffer) {
  auto cmd = Dovel::ptrIsImpl<MemoryBulkCmd>(fapmask, buffer);
  for (unsigned id = firstInstance; id <= lastInstance; ++id) {
    BcmInstanceInfo const* const instance = memory->instance(static_cast<InstanceId>(id));
    DOVEL_ASSERT(instance != nullptr, "LoamAsicUtils::MemoryBulkCmd", "{} has no instance {}", memory->name(),
                 id);
    cmd->transferIs({.opcode = SchanOpcode::memoryWrite,
                     .block = instance->block(),
                     .row = memory->rowAddress(*instance, firstArray, firstEntry),
                     .rows = queued,
                     .rowBytes = entrySize,
                     .dmaAddress = dmaAddress});
  }
  return cmd;
}

Dovel::Ptr<Sluice::SchanCmd> memoryReadBulkCmdFactory(
    Sluice::Fapmask const& fapmask, BcmRegMemInfo const& memory, BcmInstanceInfo const& instance,
    std::uint32_t firstRow, std::uint32_t rows,
    Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer> const& buffer) {
  auto cmd = Dovel::ptrIsImpl<MemoryBulkCmd>(fapmask, buffer);
  cmd->transferIs({.opcode = SchanOpcode::memoryRead,
                   .block = instance.block(),
                   .row = instance.address() + firstRow,
                   .rows = rows,
                   .rowBytes = memory.entrySize(),
                   .dmaAddress = buffer->dmaAddrInfo().dmaAddress});
  return cmd;
}

}  // namespace LoamAsicUtils
