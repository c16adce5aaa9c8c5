// Small services of the store. Any thread.
#pragma once

#include "platform/memory/RootPath.h"
#include "runtime/Dovel/DebugHandler.h"

namespace Vault::Util {

// Left behind in a table's directory by whoever found it corrupt.
inline constexpr char kCorruptionFile[] = "corruption-detected";

// Writes the marker with the text; a failure is traced at level 1.
void writeCorruptionFile(Dovel::Platform::DebugHandler const& handler, Dovel::String const& directory,
                         Dovel::String const& text);
// The same for who may be a mere reader of the table: not being allowed to write there is no failure.
void writeCorruptionFile(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                         Dovel::String const& text);

// HWTABLES_STRICT_VALIDATION=1: a table of physical hardware that doesn't validate is kept for inspection,
// and its writer gives up. HWTABLES_PHYSICAL_DUT=1: there is physical hardware.
bool strictValidation();
bool runningOnPhysicalDut();

}  // namespace Vault::Util
