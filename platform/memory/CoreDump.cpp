#include "platform/memory/CoreDump.h"

#include "runtime/Dovel/Toggle.h"

namespace Mem {

CoreDump coreDumpOfTables() {
  static bool const on = Dovel::getToggleState("FullCoreDump", "Vault.json", true);
  return on ? CoreDump::included : CoreDump::excluded;
}

CoreDump coreDumpOfSharedFiles() {
  static bool const on = Dovel::getToggleState("CoreDumpSharedFiles", "SharedMem.json", true);
  return on ? CoreDump::included : CoreDump::excluded;
}

}  // namespace Mem
