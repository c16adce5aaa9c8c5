#include "platform/switch/LoamAsicUtils/HwShadowKey.h"

#include "runtime/Orlo/Hash.h"

namespace LoamAsicUtils {

std::uint32_t HwShadowKey::hash(unsigned int seed) const {
  Orlo::Hash state(seed);
  state.hashMix(fapId_.value());
  state.hashMix(instanceId_);
  return state.result();
}

Dovel::String HwShadowKey::toString() const {
  return valueToStrep(fapId_).append("-").append(std::to_string(instanceId_));
}

}  // namespace LoamAsicUtils
