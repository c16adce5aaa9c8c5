// Small services that the parts of the system share.
// Any thread; nothing here throws.
#pragma once

#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/String.h"

namespace Dovel::Util {

// A sign of life of what the handler belongs to: a level 1 trace, and a message of severity LOG_INFO to the
// system log. Its absence there tells that something didn't come up, or that the way to the log is broken.
void emitCanaryLog(Platform::DebugHandler const& handler, String const& text) noexcept;

// From now on, core dumps of this process hold its shared memory too; what else they hold stays as it was
// set. A failure leaves all as it was and is traced at level 1 on channel "CoreDump".
void includeShmemInCore() noexcept;

}  // namespace Dovel::Util
