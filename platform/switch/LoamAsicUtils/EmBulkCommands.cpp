#include "platform/switch/LoamAsicUtils/EmBulkCommands.h"

#include <cstring>
#include <utility>

#include "runtime/Dovel/Format.h"

namespace LoamAsicUtils {
namespace {

using Buffer = Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer>;
using Sluice::SchanResponse;
using Sluice::SchanStatus;

// Bytes of an entry as flush passes read them.
constexpr std::uint32_t kEntryBytes = sizeof SchanResponse::image;
constexpr unsigned kResponseWords = sizeof(SchanResponse) / sizeof(std::uint32_t);

unsigned answerWords(Sluice::Fapmask const& fapmask) {
  return static_cast<unsigned>(fapmask.fapIds().size()) * kResponseWords;
}

class EmGenericBulkWriteCommand final
    : public Dovel::Tracked<EmGenericBulkWriteCommand, Sluice::SchanCmdBase> {
 public:
  EmGenericBulkWriteCommand(Sluice::Fapmask const& fapmask, Sluice::BulkTransfer const& transfer,
                            Buffer buffer, HwShadowKey hwShadowKey,
                            Dovel::Ptr<HwBulkDownloadErrReporter> errReporter, Dovel::String name)
      : fapmask_(fapmask),
        transfer_(transfer),
        buffer_(std::move(buffer)),
        hwShadowKey_(hwShadowKey),
        errReporter_(std::move(errReporter)),
        name_(std::move(name)) {}
  ~EmGenericBulkWriteCommand() override { markBeingDestroyed(); }

  Sluice::Fapmask const& fapmask() const override { return fapmask_; }
  unsigned int dwc_write() const override { return 0; }
  unsigned int dwc_read() const override { return answerWords(fapmask_); }
  unsigned int bulkTransferCount() const override { return 1; }
  Sluice::BulkTransfer bulkTransfer(unsigned int /*number*/) const override { return transfer_; }

 protected:
  void fillCmd(std::span<std::uint32_t> /*buf*/) override {}
  void readResp(std::span<std::uint32_t const> buf) override {
    if (isSuccessResponse(reinterpret_cast<std::uint64_t>(buf.data()), buf.size() / kResponseWords)) return;
    if (errReporter_ == nullptr) return;
    errReporter_->failureIs({.table = name_,
                             .shadow = hwShadowKey_,
                             .entryBytes = transfer_.rowBytes,
                             .entries = {buffer_->va(), std::size_t{transfer_.rows} * transfer_.rowBytes}});
  }

 private:
  Sluice::Fapmask fapmask_;
  Sluice::BulkTransfer transfer_;
  Buffer buffer_;
  HwShadowKey hwShadowKey_;
  Dovel::Ptr<HwBulkDownloadErrReporter> errReporter_;
  Dovel::String name_;
};

Sluice::FlushPass passOf(BcmInstanceInfo const& instance, FlushHelper const& helper,
                         Sluice::FlushPass::Action action) {
  return {.action = action,
          .block = instance.block(),
          .location = instance.location(),
          .physicalTableId = helper.key.physicalTableId,
          .core = instance.instanceId(),
          .tid = helper.tid,
          .entryType = static_cast<std::uint32_t>(helper.entryType),
          .rule = helper.rule,
          .payload = helper.action};
}

class EmFlushCommand final : public Dovel::Tracked<EmFlushCommand, Sluice::SchanCmdBase> {
 public:
  EmFlushCommand(Sluice::Fapmask const& fapmask, Sluice::FlushPass const& pass)
      : fapmask_(fapmask), pass_(pass) {}
  ~EmFlushCommand() override { markBeingDestroyed(); }

  Sluice::Fapmask const& fapmask() const override { return fapmask_; }
  unsigned int dwc_write() const override { return 0; }
  // The channel judges the answers.
  unsigned int dwc_read() const override { return 0; }
  Sluice::FlushPass const* flushPass() const override { return &pass_; }

 protected:
  void fillCmd(std::span<std::uint32_t> /*buf*/) override {}
  void readResp(std::span<std::uint32_t const> /*buf*/) override {}

 private:
  Sluice::Fapmask fapmask_;
  Sluice::FlushPass pass_;
};

class FlushReadCommand final : public Dovel::Tracked<FlushReadCommand, EmFlushReadCommand> {
 public:
  FlushReadCommand(Sluice::Fapmask const& fapmask, Sluice::FlushPass const& pass, Buffer buffer)
      : fapmask_(fapmask), pass_(pass), buffer_(std::move(buffer)) {}
  ~FlushReadCommand() override { markBeingDestroyed(); }

  Sluice::Fapmask const& fapmask() const override { return fapmask_; }
  unsigned int dwc_write() const override { return 0; }
  unsigned int dwc_read() const override { return answerWords(fapmask_); }
  Sluice::FlushPass const* flushPass() const override { return &pass_; }

 protected:
  void fillCmd(std::span<std::uint32_t> /*buf*/) override {}
  void readResp(std::span<std::uint32_t const> buf) override {
    SchanResponse response;
    std::memcpy(static_cast<void*>(&response), buf.data(), sizeof response);
    status_ = response.status;
    if (status_ == SchanStatus::ok) std::memcpy(&answer_, response.image, sizeof answer_);
  }

 private:
  Sluice::Fapmask fapmask_;
  Sluice::FlushPass pass_;
  Buffer buffer_;
};

}  // namespace

Dovel::Ptr<Sluice::SchanCmd> emGenericBulkWriteCommandFactory(
    Sluice::Fapmask const& fapmask, Dovel::Ptr<Hardware::Loam::Status const> const& /*loamStatus*/,
    LoamMdb::PhysicalTableId physicalTableId, Hardware::Loam::CoreInfo coreInfo, unsigned int words,
    Dovel::Ptr<BcmRegMemInfo const> const& memory, unsigned int entries, Buffer const& buffer,
    HwShadowKey hwShadowKey, Dovel::Ptr<HwBulkDownloadErrReporter> const& errReporter,
    Dovel::String const& name) {
  auto const core = static_cast<InstanceId>(coreInfo);
  BcmInstanceInfo const* const instance = memory->instance(core);
  DOVEL_ASSERT(instance != nullptr, "LoamAsicUtils::EmGenericBulkWriteCommand", "{} has no instance {}",
               memory->name(), core);
  Sluice::BulkTransfer const transfer{.opcode = Sluice::SchanOpcode::exactMatch,
                                      .block = instance->block(),
                                      .rows = entries,
                                      .rowBytes = words * 4,
                                      .dmaAddress = buffer->dmaAddrInfo().dmaAddress,
                                      .physicalTableId = static_cast<std::uint32_t>(physicalTableId),
                                      .core = core};
  return Dovel::ptrIsImpl<EmGenericBulkWriteCommand>(fapmask, transfer, buffer, hwShadowKey, errReporter,
                                                     name);
}

Dovel::Ptr<Sluice::SchanCmd> emFlushCommandFactory(Sluice::Fapmask const& fapmask,
                                                   BcmInstanceInfo const& instance,
                                                   FlushHelper const& helper) {
  using Action = Sluice::FlushPass::Action;
  return Dovel::ptrIsImpl<EmFlushCommand>(
      fapmask, passOf(instance, helper, helper.key.keep != 0 ? Action::merge : Action::remove));
}

Dovel::Ptr<EmFlushReadCommand> emFlushReadCommandFactory(Sluice::Fapmask const& fapmask,
                                                         BcmInstanceInfo const& instance,
                                                         FlushHelper const& helper, Buffer const& buffer,
                                                         std::uint32_t from) {
  Sluice::FlushPass pass = passOf(instance, helper, Sluice::FlushPass::Action::read);
  pass.dmaAddress = buffer->dmaAddrInfo().dmaAddress;
  pass.capacity = static_cast<std::uint32_t>(buffer->bufSize() / kEntryBytes);
  pass.from = from;
  return Dovel::ptrIsImpl<FlushReadCommand>(fapmask, pass, buffer);
}

}  // namespace LoamAsicUtils
