// The root of all hardware tables. A table belongs to the thread of its agent.
#pragma once

#include "platform/switch/Sluice/SchanCmds.h"
#include "runtime/Dovel/String.h"

namespace Sluice {

class HwTableBase : public Dovel::Node {
 public:
  // How many entries the table has room for in one shadow.
  virtual std::uint64_t size() const = 0;

  // A command that the table has made was sent; its answers are in it.
  virtual void processWriteCmd(Dovel::Ptr<SchanCmd> const& /*cmd*/) {}
  // Ends the process where the table contradicts itself.
  virtual void doSanityCheck() {}

  // The commands that bring the FAPs of the mask in line with the table's shadows; null where none of them
  // is the table's. The text names the generation of the FAPs, for people.
  virtual Dovel::Ptr<SchanCmds> download(Dovel::String const& fapType, Fapmask const& fapmask) const = 0;

  // For tables that can be audited: the commands that read the table back, and what is to be done with them.
  virtual Dovel::Ptr<SchanCmdBatches> readCmdsForAudit(FapId /*fap*/, Dovel::String const& /*fapType*/) {
    return nullptr;
  }
  virtual void doAudit(FapId /*fap*/, Dovel::String const& /*fapType*/,
                       Dovel::Ptr<SchanCmdBatches> const& /*batches*/) {}
};

}  // namespace Sluice
