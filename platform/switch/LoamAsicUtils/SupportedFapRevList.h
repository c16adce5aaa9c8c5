// Every chip revision that the platform knows. Constant once made; any thread.
#pragma once

#include <set>

#include "platform/switch/Hardware/FapRevision.h"

namespace LoamAsicUtils {

class SupportedFapRevList {
 public:
  // In ascending order.
  static std::set<Hardware::Loam::FapRevision> const& fapRevisionList();
};

}  // namespace LoamAsicUtils
