// A command to a physical table of the chip's exact-match databases. See Sluice/SchanCmd.h for the thread
// rule.
#pragma once

#include "platform/switch/Hardware/ChipType.h"
#include "platform/switch/Hardware/LoamSchanCmdlet.h"
#include "platform/switch/LoamMdb/Types.h"

namespace LoamMdb {

class EmTableSchanCmdlet : public Hardware::Loam::LoamSchanCmdlet {
 public:
  PhysicalTableId physicalTableId() const { return physicalTableId_; }
  Hardware::Loam::CoreInfo coreInfo() const { return coreInfo_; }

  // Puts the database's place into a message that is filled otherwise.
  virtual void fillCmdlet(Sluice::schan_xmsg_user_* message) {
    message->physicalTableId = static_cast<std::uint32_t>(physicalTableId_);
    message->core = static_cast<std::uint32_t>(coreInfo_);
  }

 protected:
  EmTableSchanCmdlet(Sluice::Fapmask const& fapmask, PhysicalTableId physicalTableId,
                     Hardware::Loam::CoreInfo coreInfo)
      : LoamSchanCmdlet(fapmask), physicalTableId_(physicalTableId), coreInfo_(coreInfo) {}

 private:
  PhysicalTableId physicalTableId_;
  Hardware::Loam::CoreInfo coreInfo_;
};

}  // namespace LoamMdb
