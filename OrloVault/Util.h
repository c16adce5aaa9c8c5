// Names of mounted entities. Any thread.
#pragma once

#include "runtime/Orlo/Entity.h"

namespace OrloSharedMem::Util {

// The names of all parents and the name, joined by '/'.
Dovel::String fullName(Orlo::Entity const& parent, Dovel::String const& name);

}  // namespace OrloSharedMem::Util
