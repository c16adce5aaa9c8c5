// Whether the pages of a mapping go into core dumps.
#pragma once

#include <cstdint>

namespace Mem {

enum class CoreDump : std::uint8_t {
  included = 0,   // they do, and the process is set up to dump shared memory
  asProcess = 1,  // as the process is set up
  forced = 2,     // they do, whatever was said before: the store is being given up
  excluded = 3,   // they never do
};

// As the toggles say, read once a process: FullCoreDump of Vault.json for the tables themselves,
// CoreDumpSharedFiles of SharedMem.json for the files beside them. Both are on by default. Any thread.
CoreDump coreDumpOfTables();
CoreDump coreDumpOfSharedFiles();

}  // namespace Mem
