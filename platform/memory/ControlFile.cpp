#include "platform/memory/ControlFile.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/memory/FileAccess.h"
#include "platform/memory/Probe.h"
#include "runtime/Dovel/Format.h"

namespace Mem::Util {

void createControlFile(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath) {
  rootPath.makeDirectory();
  Dovel::String const path = rootPath.fileName(Clone::CONTROL_FILENAME);
  OpenedFile const file = openFile(path, FileUse::makeOrWrite);
  if (!file.isOpen()) throwFileError("ControlFile", file.error, file.text);
  probedCall("futimens", path.data(), [&] { return ::futimens(file.descriptor.number(), nullptr); });
  DOVEL_TRACE(handler, 5, "ControlFile", "{}", path);
}

}  // namespace Mem::Util
