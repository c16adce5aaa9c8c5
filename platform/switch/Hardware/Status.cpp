#include "platform/switch/Hardware/Status.h"

namespace Hardware::Loam {

Status::~Status() { markBeingDestroyed(); }
MdbStatus::~MdbStatus() { markBeingDestroyed(); }
LoamCmdletRequiredStatus::~LoamCmdletRequiredStatus() { markBeingDestroyed(); }

}  // namespace Hardware::Loam
