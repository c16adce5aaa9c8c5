#include "platform/switch/Hardware/EsemValues.h"

#include "runtime/Asic/GracefulAssert.h"

namespace {

// Items of our chips have their own numbers; what differs is how far they go.
std::uint32_t ownNumber(char const* what, Hardware::Loam::FapRevision const& revision, std::uint32_t item,
                        std::uint32_t first, std::uint32_t last) {
  ASIC_GRACEFUL_ASSERT(item >= first && item <= last, "item", "{} has no {} {}, items are {} to {}", revision,
                       what, item, first, last);
  return item;
}

}  // namespace

std::uint32_t Jericho3EsemCmds::hwValue(Hardware::Loam::FapRevision const& revision, Item item) {
  return ownNumber("access command", revision, static_cast<std::uint32_t>(item), 1, 3);
}

bool Jericho3EsemProgram::exists(Hardware::Loam::FapRevision const& /*revision*/, Item item) {
  return item == Item::vlan || item == Item::tunnel;
}

std::uint32_t Jericho3EsemProgram::hwValue(Hardware::Loam::FapRevision const& revision, Item item) {
  return ownNumber("program", revision, static_cast<std::uint32_t>(item), 1, 2);
}

std::uint32_t Jericho3EsemDefaultResults::hwValue(Hardware::Loam::FapRevision const& revision, Item item) {
  return ownNumber("default result", revision, static_cast<std::uint32_t>(item), 0, 2);
}
