#include "Vault/Util.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/memory/Probe.h"
#include "runtime/Dovel/Format.h"

namespace Vault::Util {
namespace {

// 0, or the error number.
int writeMarker(Dovel::String const& path, Dovel::String const& text) {
  return Mem::probedCall("write", path.data(), [&] {
    int const fd =
        ::open(path.data(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
    if (fd < 0) return errno;
    bool const written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    int const error = written ? 0 : errno;
    ::close(fd);
    return error;
  });
}

bool isOne(char const* variable) {
  char const* const value = std::getenv(variable);
  return value != nullptr && std::strcmp(value, "1") == 0;
}

void traceFailure(Dovel::Platform::DebugHandler const& handler, Dovel::String const& path, int error) {
  DOVEL_TRACE(handler, 1, "Util", "can't write {}: {}", path, std::strerror(error));
}

}  // namespace

void writeCorruptionFile(Dovel::Platform::DebugHandler const& handler, Dovel::String const& directory,
                         Dovel::String const& text) {
  Dovel::String path = directory;
  path.append("/").append(kCorruptionFile);
  if (int const error = writeMarker(path, text); error != 0) traceFailure(handler, path, error);
}

void writeCorruptionFile(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                         Dovel::String const& text) {
  Dovel::String const path = rootPath.fileName(kCorruptionFile);
  int const error = writeMarker(path, text);
  if (error != 0 && error != EACCES && error != EPERM && error != EROFS) traceFailure(handler, path, error);
}

bool strictValidation() { return isOne("HWTABLES_STRICT_VALIDATION"); }

bool runningOnPhysicalDut() { return isOne("HWTABLES_PHYSICAL_DUT"); }

}  // namespace Vault::Util
