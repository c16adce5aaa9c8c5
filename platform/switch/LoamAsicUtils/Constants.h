// Where the control plane keeps its stores. Any thread.
#pragma once

#include "runtime/Dovel/String.h"

namespace LoamAsicUtils::Constants {

// The path of a shadow's store below the root of all stores: "shadow/<revision>/<type>/<shadow key>", the
// type name without its namespace, as the revision tells the chip.
Dovel::String shadowTblVaultPath(Dovel::String const& revision, Dovel::String const& typeName,
                                 Dovel::String const& shadowKey);

}  // namespace LoamAsicUtils::Constants
