// Switches that the people who run a system set in files, one JSON object a library: {"FullCoreDump": false}.
// Any thread.
#pragma once

#include "runtime/Dovel/String.h"

namespace Dovel {

// The boolean of that name in the file of that name, in the directory of HWTABLES_TOGGLES or else in
// /etc/hwtables. Where it can't be had the answer is defaultValue, and a level 1 trace on channel "Toggle"
// says why. The file is read by every call: keep the result in a function-local static, so that a toggle
// holds for the life of the process.
bool getToggleState(String const& toggleName, String const& fileName, bool defaultValue);

}  // namespace Dovel
