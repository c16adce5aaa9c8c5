// The side of the notification socket that belongs to the writers of a process.
#pragma once

#include "runtime/Dovel/DebugHandler.h"

namespace Nudge {

class WireletAcceptSm : public Dovel::Debuggable {
 public:
  explicit WireletAcceptSm(Dovel::Platform::DebugHandler const& handler) : Dovel::Debuggable(handler) {}

  // Of the socket on which this process accepts clients: a name without a file, written with '@' for its
  // leading zero byte, that no other process of this machine has, nor had since it came up.
  Dovel::String socketName() const;
};

}  // namespace Nudge
