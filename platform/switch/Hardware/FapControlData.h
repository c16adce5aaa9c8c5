// What the platform tells a table of a FAP that has come up. Immutable; any thread.
#pragma once

#include "platform/switch/Hardware/FapRevision.h"
#include "platform/switch/Sluice/FapId.h"
#include "runtime/Dovel/PtrIs.h"

namespace Hardware::Loam {

class FapControlData : public Dovel::Tracked<FapControlData> {
 public:
  FapControlData(Sluice::FapId fapId, FapRevision fapRevision) : fapId_(fapId), fapRevision_(fapRevision) {}
  ~FapControlData() override;

  Sluice::FapId fapId() const { return fapId_; }
  FapRevision fapRevision() const { return fapRevision_; }

 private:
  Sluice::FapId fapId_;
  FapRevision fapRevision_;
};

}  // namespace Hardware::Loam
