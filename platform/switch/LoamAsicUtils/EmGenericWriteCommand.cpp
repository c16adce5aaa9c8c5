#include "platform/switch/LoamAsicUtils/EmGenericWriteCommand.h"

#include "platform/switch/HwLoamErrors/PlatformLoamError.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {

EmGenericWriteCommand::~EmGenericWriteCommand() {
  if (response_.currentVa != 0) DmaMemBufferMgrSingleton::singleton().responsesGive(response_, faps_);
}

Sluice::SchanResponse* EmGenericWriteCommand::responseBlock() {
  if (response_.currentVa == 0) {
    faps_ = static_cast<unsigned>(fapmask().fapIds().size());
    if (faps_ == 0) return nullptr;
    response_ = DmaMemBufferMgrSingleton::singleton().responsesTake(faps_);
  }
  return reinterpret_cast<Sluice::SchanResponse*>(response_.currentVa);
}

void EmGenericWriteCommand::fillCmdletsIntoBuf(std::span<std::uint32_t> buf) {
  Sluice::schan_xmsg_user_ message;
  for (std::uint8_t idx = 0; idx < cmdletCount_; ++idx) {
    fillSchanCmdlet(&message, fapRevision(), idx);
    fillCmdlet(&message);
    std::memcpy(buf.data() + idx * sizeof message / sizeof(std::uint32_t), &message, sizeof message);
  }
}

bool EmGenericWriteCommand::succeeded(Orlo::TraceHandle const& trace, std::uint8_t idx,
                                      EmSchanResponse const& response) const {
  DOVEL_TRACE(trace, 8, "EmGenericWriteCommand",
              " cmdletIdx: {} currentDmaBuffer: {} currentVa : {}fapsInMask {} ", idx,
              response.currentDmaBuffer->name(), response.currentVa, faps_);
  if (!isSuccessResponse(response.currentVa, faps_)) return false;
  DOVEL_TRACE(trace, 8, "EmGenericWriteCommand", " No error ");
  return true;
}

void EmGenericWriteCommand::countFailure(std::string_view table) const {
  if (logEntry_ != nullptr) {
    constexpr HwLoamErrors::PlatformLoamError error(HwLoamErrors::PlatformLoamError::kWriteFailed);
    logEntry_->errorCodeIs(error.getErrorCode());
  }
  auto& counters = DmaMemBufferMgrSingleton::singleton();
  Dovel::String const name(table);
  if (counters.schanErrCounterHas(name)) {
    counters.schanErrCounterInc(name, 1);
  } else {
    counters.schanErrCounterIs(name, 1);
  }
}

}  // namespace LoamAsicUtils
