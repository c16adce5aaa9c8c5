#include "platform/switch/LoamAsicUtils/SupportedFapRevList.h"

namespace LoamAsicUtils {

std::set<Hardware::Loam::FapRevision> const& SupportedFapRevList::fapRevisionList() {
  using Hardware::Loam::FapRevision;
  using enum Hardware::Loam::FapRevMajor;
  using enum Hardware::Loam::FapRevMinor;
  // Never destroyed: registrations of late-unloaded libraries may still walk it.
  static auto const& list = *new std::set<FapRevision>{
      FapRevision::fapRevJericho3A0(),       FapRevision(majorQumran3aA0),
      FapRevision(majorQumran3aA0, minorAi), FapRevision(majorQumran3aB0),
      FapRevision(majorQumran3aB0, minorAi),
  };
  return list;
}

}  // namespace LoamAsicUtils
