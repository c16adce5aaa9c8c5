#include "platform/switch/Hardware/FapControlData.h"

namespace Hardware::Loam {

FapControlData::~FapControlData() { markBeingDestroyed(); }

}  // namespace Hardware::Loam
