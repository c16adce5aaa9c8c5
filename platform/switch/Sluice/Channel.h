// The way of commands to the chips of a process.
//
// For whoever provides one: commands of one list, and lists one after the other, reach each FAP in the order
// in which they were sent. The channel belongs to the agent's thread.
#pragma once

#include <cstdint>

#include "platform/switch/Sluice/SchanCmds.h"

namespace Sluice {

// How the commands of one call went. A command that goes to several FAPs counts once; one that any of them
// refused is refused, else one that any of them left without an answer is unanswered.
struct SendOutcome {
  std::uint64_t commands = 0;
  std::uint64_t refused = 0;
  std::uint64_t unanswered = 0;
  std::uint64_t full = 0;  // of the refused, those for which no FAP had another reason than a full bucket
  std::uint64_t bulkCommands = 0;  // of the commands, those of bulk transfers
  std::uint64_t bulkBytes = 0;     // of all FAPs together
  std::uint64_t flushPasses = 0;   // that FAPs have run to their end
  std::uint64_t flushed = 0;       // entries that those have removed, merged or read
  // The first status other than ok, and the FAPs that gave such a one.
  SchanStatus status = SchanStatus::ok;
  Fapmask failed;

  bool ok() const { return status == SchanStatus::ok; }
  // Nothing failed but for full buckets.
  bool onlyFull() const { return unanswered == 0 && refused == full; }

  // Adds what another call did; the status stays that of the first that failed.
  SendOutcome& operator+=(SendOutcome const& other);
};

class Channel : public Dovel::Node {
 public:
  // Empties the list: runs each command on the FAPs of its mask, gives it their answers and lets go of it.
  // Returns when all have answered or are known not to. A null list is nothing to do. FAPs that have no chip
  // count as unanswered.
  virtual SendOutcome send(Dovel::Ptr<SchanCmds> const& cmds) = 0;

  // How often the FAP's chip has become blank, as far as the channel knows.
  virtual std::uint64_t resets(FapId fap) const = 0;
};

}  // namespace Sluice
