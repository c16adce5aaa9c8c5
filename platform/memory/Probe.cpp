#include "platform/memory/Probe.h"

#ifdef HWTABLES_STORE_PROBE

namespace Mem {

thread_local constinit Probe* probe = nullptr;

}  // namespace Mem

#endif
