#include "platform/memory/WireletAcceptSm.h"

#include <fmt/format.h>

#include "platform/memory/ProcessIdentity.h"

namespace Nudge {

Dovel::String WireletAcceptSm::socketName() const {
  auto const self = Mem::ProcessIdentity::self();
  return fmt::format("@hwtables/{}.{}", self.pid, self.startTime);
}

}  // namespace Nudge
