#include "platform/switch/Sluice/ResponseSlots.h"

namespace Sluice {

void ResponseSlots::more() {
  chunks_.push_back(std::make_unique<Slot[]>(kChunk));
  free_.reserve(size());
  for (std::size_t slot = kChunk; slot > 0; --slot) free_.push_back(&chunks_.back()[slot - 1]);
}

void ResponseSlots::putAside(SchanResponse& response, FapId fap, std::uint64_t resets) {
  aside_.push_back({&response, fap, resets});
}

}  // namespace Sluice
