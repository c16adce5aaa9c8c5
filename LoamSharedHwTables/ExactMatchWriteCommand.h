// The command that writes one entry of an exact-match table, or deletes one. Command is the concrete class,
// Unit the table's generated part. See EmGenericWriteCommand.h for the thread rule.
#pragma once

#include <cstring>

#include "platform/switch/LoamAsicUtils/EmGenericWriteCommand.h"
#include "platform/switch/LoamAsicUtils/HwEmShadowBase.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamSharedHwTables {

template <class Command, class Unit>
class ExactMatchWriteCommand : public Dovel::Tracked<Command, LoamAsicUtils::EmGenericWriteCommand> {
  using Base = Dovel::Tracked<Command, LoamAsicUtils::EmGenericWriteCommand>;
  using Traits = typename Unit::Traits;

 public:
  using Entry = typename Unit::Entry;

  // The entry is copied, so that a batch of commands needs the store no more. Where `wantsResponse` is false
  // the chip isn't asked for an answer. The memory must have the core as an instance when the command is
  // sent.
  ExactMatchWriteCommand(Sluice::Fapmask const& fapmask,
                         Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                         LoamMdb::PhysicalTableId physicalTableId, Hardware::Loam::CoreInfo coreInfo,
                         Dovel::Ptr<Asic::LogEntryWrapperBase> const& logEntry, bool isDelete,
                         bool wantsResponse, Hardware::Loam::FapRevision const& fapRevision,
                         Dovel::Ptr<LoamAsicUtils::BcmRegMemInfo const> const& memory, Entry const& entry)
      : Base(fapmask, loamStatus, physicalTableId, coreInfo, logEntry),
        isDelete_(isDelete),
        wantsResponse_(wantsResponse),
        fapRevision_(fapRevision),
        memory_(memory),
        entry_(entry) {
    handleInitialized();
  }
  // Looks at the answers: what the chip didn't take is traced, and counted under the table's name.
  ~ExactMatchWriteCommand() override {
    this->markBeingDestroyed();
    onDelete();
  }

  bool isDelete() const { return isDelete_; }
  Entry const& entry() const { return entry_; }
  Hardware::Loam::FapRevision const& fapRevision() const override { return fapRevision_; }
  unsigned int loam_dwc_write(Hardware::Loam::FapRevision const& /*fapRevision*/) const override {
    return Sluice::schan_xmsg_user_::kExactMatchLength / sizeof(std::uint32_t);
  }
  void fillSchanCmdlet(Sluice::schan_xmsg_user_* message, Hardware::Loam::FapRevision const& fapRevision,
                       std::uint8_t cmdletIdx) override;

 private:
  static constexpr char kClass[] = "WriteCommand";

  void handleInitialized() {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, kClass, "entry : {}", entry_);
    this->createCacheCmds();
  }
  void onDelete() {
    this->examineResponses(Traits::_defaultTraceHandle(), Traits::tableName, [this] {
      DOVEL_TRACE(Traits::_defaultTraceHandle(), 1, kClass,
                  " Error inserting entry fapmask {} tableId {}  entry {} ", this->fapmask(),
                  static_cast<unsigned>(this->physicalTableId()), entry_);
    });
  }

  bool isDelete_;
  bool wantsResponse_;
  Hardware::Loam::FapRevision fapRevision_;
  Dovel::Ptr<LoamAsicUtils::BcmRegMemInfo const> memory_;
  Entry entry_;
};

// What goes to the chip, for those who look at every bit.
template <class Traits, class Entry>
void traceImage(char const* traceClass, Entry const& entry) {
  auto const& trace = Traits::_defaultTraceHandle();
  if (!trace.isOn(9)) [[likely]]
    return;
  DOVEL_TRACE(trace, 9, traceClass, "{}", entry);
  DOVEL_TRACE(trace, 9, traceClass, "entryType: {}", entry.entryType());
  DOVEL_TRACE(trace, 9, traceClass, "command: {}", entry.command());
  DOVEL_TRACE(trace, 9, traceClass, "tid: {}", entry.tid());
}

template <class Command, class Unit>
void ExactMatchWriteCommand<Command, Unit>::fillSchanCmdlet(
    Sluice::schan_xmsg_user_* message, Hardware::Loam::FapRevision const& /*fapRevision*/,
    std::uint8_t cmdletIdx) {
  DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, kClass, " cmdletIdx: {}", cmdletIdx);
  std::memset(message, 0, sizeof *message);
  auto const core = static_cast<LoamAsicUtils::InstanceId>(this->coreInfo());
  LoamAsicUtils::BcmInstanceInfo const* const instance = memory_->instance(core);
  DOVEL_ASSERT(instance != nullptr, kClass, "{} has no instance {}", memory_->name(), core);
  this->fillCmdletHeader(message, Sluice::SchanOpcode::exactMatch, instance->location(), instance->block(),
                         Sluice::schan_xmsg_user_::kExactMatchLength);
  entry_.commandIs(isDelete_ ? LoamAsicUtils::emCommandDelete : LoamAsicUtils::emCommandWrite);
  message->responseRequested = wantsResponse_ ? 1 : 0;
  std::memcpy(message->data, entry_.dataBytes().data(), Entry::kDataBytes);
  traceImage<Traits>(kClass, entry_);
}

}  // namespace LoamSharedHwTables
