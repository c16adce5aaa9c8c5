// How the code that gives a table its first contents traces: on a channel of its own, named after that code.
// A value on the stack; the thread of the table.
#pragma once

#include "platform/switch/LoamAsicUtils/HwShadowKey.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {

// Impl gives its class name as kName.
template <class Impl>
class HwTableAccessor {
 public:
  explicit HwTableAccessor(HwShadowKey const& hwShadowKey) {
    DOVEL_TRACE(_defaultTraceHandle(), 8, Impl::kName, " hwShadowKey: {}", hwShadowKey);
    DOVEL_TRACE(_defaultTraceHandle(), 3, Impl::kName, " hwShadowKey: {}", hwShadowKey);
  }

 private:
  static Orlo::TraceHandle const& _defaultTraceHandle() {
    static Orlo::TraceHandle const handle(Impl::kName, false);
    return handle;
  }
};

}  // namespace LoamAsicUtils
