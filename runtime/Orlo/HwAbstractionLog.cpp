#include "runtime/Orlo/HwAbstractionLog.h"

#include <syslog.h>

namespace Orlo {

constinit LogDescriptor const HW_ABSTRACTION_ERROR{
    "HW_ABSTRACTION_ERROR",
    "Hardware abstraction error: unable to load item: %s",
    "Hardware abstraction error: unable to load some persistent items. Some agents will be restarted",
    "\x01",
    LOG_ERR,
    0};

constinit LogDescriptor const HW_ABSTRACTION_RELAUNCH_ERROR{
    "HW_ABSTRACTION_RELAUNCH_ERROR",
    "%s",
    "Duplicate Writer Detected, vault path not cleaned up",
    "\x01",
    LOG_ERR,
    0};

constinit LogDescriptor const HW_ABSTRACTION_EXCEPTION{
    "HW_ABSTRACTION_EXCEPTION", "%s", "Exception", "\x01", LOG_ERR, 0};

}  // namespace Orlo
