// How a validation of files tells what is wrong. Any thread.
#pragma once

#include "runtime/Dovel/DebugHandler.h"

namespace Mem {

// Puts the text into error, traces it at level 0 as from className's validate(), and returns false.
bool failValidation(Dovel::Platform::DebugHandler const& handler, char const* className,
                    Dovel::String const& text, Dovel::String& error);

}  // namespace Mem
