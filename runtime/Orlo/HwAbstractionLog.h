// The system log messages of the hardware abstraction. Constants; any thread, at any time.
#pragma once

#include "runtime/Orlo/Log.h"

namespace Orlo {

// A persistent item could not be loaded; its argument is the item.
extern LogDescriptor const HW_ABSTRACTION_ERROR;
// A second writer came to the store of a table; its argument tells which.
extern LogDescriptor const HW_ABSTRACTION_RELAUNCH_ERROR;
// An exception; its argument is the text.
extern LogDescriptor const HW_ABSTRACTION_EXCEPTION;

}  // namespace Orlo
