#include "platform/memory/ValidateFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "runtime/Dovel/Format.h"

namespace Mem {

bool validateFile(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath,
                  Dovel::String const& name, std::uint64_t expectedSize) {
  Dovel::String const path = rootPath.fileName(name);
  struct stat status {};
  if (::lstat(path.data(), &status) != 0) {
    DOVEL_TRACE(handler, 0, nullptr, "bad file {}: {}", path, std::strerror(errno));
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    DOVEL_TRACE(handler, 0, nullptr, "bad file {}: it is not a regular file", path);
    return false;
  }
  if (static_cast<std::uint64_t>(status.st_size) < expectedSize) {
    DOVEL_TRACE(handler, 0, nullptr, "bad file {}: size:{} wanted:{}", path, status.st_size, expectedSize);
    return false;
  }
  return true;
}

}  // namespace Mem
