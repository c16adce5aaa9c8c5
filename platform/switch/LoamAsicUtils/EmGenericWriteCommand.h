// What all commands that write one exact-match entry have in common. See Sluice/SchanCmd.h for the thread
// rule; the last reference goes in the thread of DmaMemBufferMgrSingleton.
#pragma once

#include "platform/switch/Asic/LogEntryWrapperBase.h"
#include "platform/switch/Hardware/Status.h"
#include "platform/switch/LoamAsicUtils/BcmGroupAddrInfo.h"
#include "platform/switch/LoamAsicUtils/DmaMemBufferMgrSingleton.h"
#include "platform/switch/LoamMdb/EmTableSchanCmdlet.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {

class EmGenericWriteCommand : public LoamMdb::EmTableSchanCmdlet {
 public:
  // How many messages the command has; their answers, null before the command was sent.
  std::uint8_t cmdletCount() const { return cmdletCount_; }
  EmSchanResponse const* schanResponse(std::uint8_t cmdletIdx) const {
    return cmdletIdx < cmdletCount_ && response_.currentVa != 0 ? &response_ : nullptr;
  }
  virtual Hardware::Loam::FapRevision const& fapRevision() const = 0;

  unsigned int dwc_write() const final { return sizeof(Sluice::schan_xmsg_user_) / sizeof(std::uint32_t); }
  // The answers go into responseBlock().
  unsigned int dwc_read() const final { return 0; }
  Sluice::SchanResponse* responseBlock() final;

  // Writes the messages of all cmdlets, one after the other.
  virtual void fillCmdletsIntoBuf(std::span<std::uint32_t> buf);

 protected:
  EmGenericWriteCommand(Sluice::Fapmask const& fapmask,
                        Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                        LoamMdb::PhysicalTableId physicalTableId, Hardware::Loam::CoreInfo coreInfo,
                        Dovel::Ptr<Asic::LogEntryWrapperBase> const& logEntry)
      : EmTableSchanCmdlet(fapmask, physicalTableId, coreInfo),
        loamStatus_(loamStatus),
        logEntry_(logEntry) {}
  ~EmGenericWriteCommand() override;

  // Every entry is one message.
  void createCacheCmds() { cmdletCount_ = 1; }
  void fillCmd(std::span<std::uint32_t> buf) final { fillCmdletsIntoBuf(buf); }
  void readResp(std::span<std::uint32_t const> /*buf*/) final {}

  // For the command's end: tells the log entry and the table's error counter of each cmdlet that some FAP of
  // the mask didn't take, and calls failed() for it. What was never sent has nothing to tell.
  template <class Failed>
  void examineResponses(Orlo::TraceHandle const& trace, std::string_view table, Failed&& failed) const {
    for (std::uint8_t idx = 0; idx < cmdletCount_; ++idx) {
      EmSchanResponse const* const response = schanResponse(idx);
      if (response == nullptr || succeeded(trace, idx, *response)) continue;
      countFailure(table);
      failed();
    }
  }

 private:
  bool succeeded(Orlo::TraceHandle const& trace, std::uint8_t idx, EmSchanResponse const& response) const;
  void countFailure(std::string_view table) const;

  Dovel::Ptr<Hardware::Loam::Status const> loamStatus_;
  Dovel::Ptr<Asic::LogEntryWrapperBase> logEntry_;
  std::uint8_t cmdletCount_ = 0;
  unsigned int faps_ = 0;
  EmSchanResponse response_;
};

}  // namespace LoamAsicUtils
