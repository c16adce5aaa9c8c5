#include "platform/memory/FileAccess.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/memory/Probe.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Dovel/WriteSignals.h"

namespace Mem {
namespace {

constexpr mode_t kFileMode = 0644;
// Not to wait for the other end of a pipe that stands in the file's place, nor to follow a link out of the
// directory, nor to leave the descriptor to a program that is executed.
constexpr int kSafely = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

int openExisting(Dovel::String const& path, FileUse use) {
  return ::open(path.data(), (use == FileUse::read ? O_RDONLY : O_RDWR) | kSafely);
}

int make(Dovel::String const& path) {
  int const made = probedCall("open", path.data(), [&] {
    return ::open(path.data(), O_RDWR | O_CREAT | O_EXCL | kSafely, kFileMode);
  });
  if (made >= 0) ::fchmod(made, kFileMode);
  return made;
}

int openOrMake(Dovel::String const& path) {
  // Another process may make or remove the file between the two attempts; not often.
  for (int attempt = 0; attempt < 100; ++attempt) {
    int const existing = openExisting(path, FileUse::write);
    if (existing >= 0 || errno != ENOENT) return existing;
    int const made = make(path);
    if (made >= 0 || errno != EEXIST) return made;
  }
  return -1;
}

OpenedFile refused(Dovel::String const& path, int error, char const* why) {
  OpenedFile file;
  file.error = error;
  file.text = fmt::format("cannot open {}: {}", path, why);
  return file;
}

bool isUnsupported(int error) { return error == EOPNOTSUPP || error == ENOSYS; }

// For file systems without fallocate. Pages in the middle of such a file were written once and never given
// back, so only the end is to be filled.
bool fillPastEnd(int descriptor, Dovel::String const& path, std::uint64_t end) {
  static constexpr std::array<std::byte, 65536> kZeroes{};
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return false;
  for (auto at = static_cast<std::uint64_t>(status.st_size); at < end;) {
    std::size_t const part = std::min<std::uint64_t>(end - at, kZeroes.size());
    if (!writeAt(descriptor, path, kZeroes.data(), part, at)) return false;
    at += part;
  }
  return true;
}

int fallocateOnce(int descriptor, Dovel::String const& path, std::uint64_t begin, std::uint64_t end) {
  return probedCall("fallocate", path.data(), [&] {
    Dovel::Impl::WriteSignals signals;
    if (::fallocate(descriptor, 0, static_cast<off_t>(begin), static_cast<off_t>(end - begin)) == 0) return 0;
    int const error = errno;
    signals.failedWith(error);
    return error;
  });
}

}  // namespace

Descriptor::~Descriptor() {
  int const before = errno;
  if (number_ >= 0) ::close(number_);
  errno = before;
}

OpenedFile openFile(Dovel::String const& path, FileUse use) {
  OpenedFile file;
  Impl::probeLook(path.data());
  file.descriptor = Descriptor(use == FileUse::makeOrWrite ? openOrMake(path) : openExisting(path, use));
  if (!file.isOpen()) return refused(path, errno, errno == ELOOP ? "it is a link" : std::strerror(errno));
  if (::fstat(file.descriptor.number(), &file.status) != 0) return refused(path, errno, std::strerror(errno));
  if (!S_ISREG(file.status.st_mode)) return refused(path, EINVAL, "it is not a regular file");
  return file;
}

bool allocate(int descriptor, Dovel::String const& path, std::uint64_t begin, std::uint64_t end) {
  if (end <= begin) return true;
  int error = EINTR;
  // A signal makes the call give back all that it had taken.
  while (error == EINTR) error = fallocateOnce(descriptor, path, begin, end);
  if (isUnsupported(error)) return fillPastEnd(descriptor, path, end);
  errno = error;
  return error == 0;
}

bool mayFit(int descriptor, std::uint64_t begin, std::uint64_t end) {
  struct stat file {};
  struct statvfs system {};
  if (::fstat(descriptor, &file) != 0 || ::fstatvfs(descriptor, &system) != 0) return false;
  if (system.f_blocks == 0) return true;  // without a limit
  std::uint64_t const past = std::max(begin, roundedToPages(static_cast<std::uint64_t>(file.st_size)));
  std::uint64_t const missing = end > past ? end - past : 0;
  if (missing <= std::uint64_t{system.f_bfree} * system.f_frsize) return true;
  errno = ENOSPC;
  return false;
}

bool writeAt(int descriptor, Dovel::String const& path, void const* bytes, std::size_t size,
             std::uint64_t offset) {
  auto const* at = static_cast<std::byte const*>(bytes);
  while (size > 0) {
    ssize_t const written = probedCall("pwrite", path.data(), [&] {
      Dovel::Impl::WriteSignals signals;
      ssize_t const result = ::pwrite(descriptor, at, size, static_cast<off_t>(offset));
      if (result < 0) signals.failedWith(errno);
      return result;
    });
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    at += written;
    size -= static_cast<std::size_t>(written);
    offset += static_cast<std::uint64_t>(written);
  }
  return true;
}

std::size_t readAt(int descriptor, void* bytes, std::size_t size, std::uint64_t offset) {
  std::size_t done = 0;
  while (done < size) {
    ssize_t const got = ::pread(descriptor, static_cast<std::byte*>(bytes) + done, size - done,
                                static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

void throwFileError(char const* className, int error, Dovel::String const& text) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
    case ENOMEM:
      DOVEL_THROW(Dovel::MemoryResourceException, className, "{}", text);
    case EACCES:
    case EPERM:
    case EROFS:
      DOVEL_THROW(Dovel::NoPermissionException, className, "{}", text);
    default:
      DOVEL_THROW(Dovel::InvalidInitializeException, className, "{}", text);
  }
}

}  // namespace Mem
