#include "platform/switch/LoamAsicUtils/HwFlushTableHolderContext.h"

namespace LoamAsicUtils {

// Never destroyed: bundles may be unloaded after the statics of this library are gone.
HwFlushTableHolderContext& HwFlushTableHolderContext::singleton() {
  static auto* const instance = new HwFlushTableHolderContext;
  return *instance;
}

}  // namespace LoamAsicUtils
