// Looks at a file of a store from outside. Any thread.
#pragma once

#include <cstdint>

#include "platform/memory/RootPath.h"

namespace Mem {

// Whether it is there, a regular file, and at least that large; traced at level 0 where it isn't.
bool validateFile(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath,
                  Dovel::String const& name, std::uint64_t expectedSize);

}  // namespace Mem
