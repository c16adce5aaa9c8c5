#include "platform/memory/RootPath.h"

#include <fmt/format.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/memory/Probe.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Mem {
namespace {

constexpr char const* kDefaultRoot = "/dev/shm/hwtables";
constexpr mode_t kDirectoryMode = 0755;

std::string rootOfAllStores() {
  char const* const given = std::getenv("HWTABLES_ROOT");
  return given != nullptr && *given != '\0' ? given : kDefaultRoot;
}

std::string absolutePath(std::string path) {
  if (path.starts_with('/')) return path;
  char* const current = ::get_current_dir_name();
  if (current != nullptr) path = fmt::format("{}/{}", current, path);
  std::free(current);
  return path;
}

std::string withoutLastSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

std::string directoryOf(std::string_view path) {
  if (path.starts_with('/')) return withoutLastSlashes(std::string(path));
  return withoutLastSlashes(fmt::format("{}/{}", withoutLastSlashes(absolutePath(rootOfAllStores())), path));
}

template <class... Args>
[[noreturn]] void refuse(Dovel::String const& directory,
                         Dovel::FormatText<std::type_identity_t<Args>...> format, Args const&... args) {
  Dovel::String const why = Dovel::fmtracestr(false, nullptr, "", "", 0, format, args...);
  DOVEL_THROW(Dovel::InvalidInitializeException, "RootPath", "cannot use directory {}: {}", directory, why);
}

// An existing directory, of what lies nearest to the one that is to be.
std::string nearestExisting(std::string path) {
  struct stat status {};
  while (path.size() > 1 && ::stat(path.c_str(), &status) != 0 && errno == ENOENT) {
    path = withoutLastSlashes(path.substr(0, path.rfind('/') + 1));
  }
  return path;
}

// Makes one directory whose parent stands.
void makeOne(Dovel::String const& directory, std::string const& path) {
  int const made = probedCall("mkdir", path.c_str(), [&] { return ::mkdir(path.c_str(), kDirectoryMode); });
  if (made == 0) {
    // The umask would lock out the readers of other users.
    if (::chmod(path.c_str(), kDirectoryMode) != 0) refuse(directory, "{}: {}", path, std::strerror(errno));
    return;
  }
  if (errno != EEXIST) refuse(directory, "{}: {}", path, std::strerror(errno));
}

}  // namespace

RootPath::RootPath(Dovel::Platform::DebugHandler const& handler, Dovel::String const& path, bool shared)
    : Dovel::Debuggable(handler), path_(path), dirName_(directoryOf(path)), shared_(shared) {}

Dovel::String RootPath::fileName(std::string_view name) const { return fmt::format("{}/{}", dirName_, name); }

void RootPath::makeDirectory() const {
  if (!shared_) return;
  std::string const nearest = nearestExisting(dirName_.data());
  struct statfs system {};
  if (::statfs(nearest.c_str(), &system) != 0) refuse(dirName_, "{}: {}", nearest, std::strerror(errno));
  if (Impl::isNetworkFileSystem(system.f_type)) {
    refuse(dirName_, "it lies on a network file system (type {:#x}); the files of a store must be local",
           system.f_type);
  }
  std::string const all = dirName_.data();
  for (std::size_t end = all.find('/', nearest.size() + 1); end != std::string::npos;
       end = all.find('/', end + 1)) {
    makeOne(dirName_, all.substr(0, end));
  }
  if (nearest != all) makeOne(dirName_, all);
  struct stat status {};
  if (::stat(all.c_str(), &status) != 0) refuse(dirName_, "{}", std::strerror(errno));
  if (!S_ISDIR(status.st_mode)) refuse(dirName_, "{}", std::strerror(ENOTDIR));
}

bool RootPath::removeFile(std::string_view name) const {
  Dovel::String const file = fileName(name);
  int const removed = probedCall("unlink", file.data(), [&] { return ::unlink(file.data()); });
  if (removed == 0) {
    DOVEL_TRACE(debugHandler(), 3, "RootPath", "removing file: {}", file);
    return true;
  }
  if (errno != ENOENT) {
    DOVEL_TRACE(debugHandler(), 1, "RootPath", "cannot remove file {}: {}", file, std::strerror(errno));
  }
  return false;
}

bool Impl::isNetworkFileSystem(long type) {
  constexpr std::uint32_t kLustre = 0x0bd00bd0;
  constexpr std::uint32_t kGpfs = 0x47504653;
  constexpr std::uint32_t kGfs2 = 0x01161970;
  switch (static_cast<std::uint32_t>(type)) {
    case NFS_SUPER_MAGIC:
    case SMB_SUPER_MAGIC:
    case SMB2_SUPER_MAGIC:
    case CIFS_SUPER_MAGIC:
    case V9FS_MAGIC:
    case AFS_SUPER_MAGIC:
    case AFS_FS_MAGIC:
    case CEPH_SUPER_MAGIC:
    case CODA_SUPER_MAGIC:
    case NCP_SUPER_MAGIC:
    case OCFS2_SUPER_MAGIC:
    case kLustre:
    case kGpfs:
    case kGfs2:
      return true;
    default:
      return false;
  }
}

}  // namespace Mem
