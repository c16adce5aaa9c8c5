// A handle of a trace channel for the code of one source unit. A pointer in size: copy it freely; any thread.
#pragma once

#include "runtime/Dovel/TraceChannel.h"

namespace Orlo {

class TraceHandle : public Dovel::Impl::ChannelHandle {
 public:
  // perObject is false for a channel named in the source, and true for one that is named after an object made
  // at run time; Dovel::Trace::channels() tells them apart.
  TraceHandle(std::string_view name, bool perObject) : ChannelHandle(name, perObject) {}
};

}  // namespace Orlo

// Defines _defaultTraceHandle(), through which all code of one source unit, or of one class, reaches its
// channel. Write it in the unit's unnamed namespace, or in a class with `static` before it. The handle is
// made by the first call, under the guard of a function-local static, and needs no destructor, so that static
// objects may trace at any time. Inlined always: a call would cost more than the rest of a disabled trace.
#define ORLO_DEFAULT_TRACE_HANDLE(channelName)                                                   \
  __attribute__((always_inline, unused)) inline Orlo::TraceHandle const& _defaultTraceHandle() { \
    static Orlo::TraceHandle const handle(channelName, false);                                   \
    return handle;                                                                               \
  }
