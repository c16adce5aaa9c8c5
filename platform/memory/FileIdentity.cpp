#include "platform/memory/FileIdentity.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace Mem {
namespace {

std::optional<FileIdentity> identityOf(int directory, char const* path, int flags) {
  struct statx found {};
  if (::statx(directory, path, flags, STATX_TYPE | STATX_INO | STATX_BTIME, &found) != 0) return {};
  if (!S_ISREG(found.stx_mode)) return {};
  FileIdentity identity{.device = makedev(found.stx_dev_major, found.stx_dev_minor), .inode = found.stx_ino};
  if ((found.stx_mask & STATX_BTIME) != 0) {
    identity.birthSeconds = found.stx_btime.tv_sec;
    identity.birthNanoseconds = found.stx_btime.tv_nsec;
  }
  return identity;
}

}  // namespace

std::optional<FileIdentity> FileIdentity::atPath(Dovel::String const& path) {
  return identityOf(AT_FDCWD, path.data(), AT_SYMLINK_NOFOLLOW);
}

std::optional<FileIdentity> FileIdentity::ofDescriptor(int descriptor) {
  return identityOf(descriptor, "", AT_EMPTY_PATH);
}

}  // namespace Mem
