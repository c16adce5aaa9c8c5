// The file that marks a directory as that of a table. Any thread.
#pragma once

#include "platform/memory/RootPath.h"

namespace Mem::Util {

struct Clone {
  static constexpr char CONTROL_FILENAME[] = "control";
};

// Makes the file and its directory where they aren't there, and moves the file's time. Throws
// Dovel::MemoryResourceException, Dovel::NoPermissionException or Dovel::InvalidInitializeException.
void createControlFile(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath);

}  // namespace Mem::Util
