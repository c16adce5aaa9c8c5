// A command whose message is filled by cmdlets, the same for all FAPs of its mask. See Sluice/SchanCmd.h for
// the thread rule.
#pragma once

#include "platform/switch/Hardware/FapRevision.h"
#include "platform/switch/Sluice/SchanCmd.h"

namespace Hardware::Loam {

class LoamSchanCmdlet : public Sluice::SchanCmdBase {
 public:
  Sluice::Fapmask const& fapmask() const override { return fapmask_; }

  // The 32-bit words of one cmdlet's message that count, and those of its answer, on a FAP of that revision.
  virtual unsigned int loam_dwc_write(FapRevision const& fapRevision) const = 0;
  virtual unsigned int loam_dwc_read(FapRevision const& /*fapRevision*/) const {
    return sizeof(Sluice::SchanResponse) / sizeof(std::uint32_t);
  }

  // Writes the whole message of a cmdlet.
  virtual void fillSchanCmdlet(Sluice::schan_xmsg_user_* message, FapRevision const& fapRevision,
                               std::uint8_t cmdletIdx) = 0;

 protected:
  explicit LoamSchanCmdlet(Sluice::Fapmask const& fapmask) : fapmask_(fapmask) {}

 private:
  Sluice::Fapmask fapmask_;
};

}  // namespace Hardware::Loam
