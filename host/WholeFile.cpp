#include "host/WholeFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "host/Output.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

constexpr std::size_t kPieceBytes = 1 << 16;

[[noreturn]] void fail(char const* what, std::string const& path) {
  DOVEL_THROW(Dovel::RuntimeException, "WholeFile", "cannot {} {}: {}", what, oneLine(path),
              std::strerror(errno));
}

std::string readToEnd(int fd, std::string const& path) {
  std::string text;
  for (ssize_t got = 1; got != 0;) {
    std::size_t const had = text.size();
    text.resize(had + kPieceBytes);
    got = ::read(fd, text.data() + had, kPieceBytes);
    if (got < 0 && errno != EINTR) fail("read", path);
    text.resize(had + static_cast<std::size_t>(got < 0 ? 0 : got));
  }
  return text;
}

// A link stays, and what it leads to is replaced.
std::string resolved(std::string const& path) {
  std::error_code none;
  std::filesystem::path const real = std::filesystem::canonical(path, none);
  return none ? path : real.string();
}

Mem::Descriptor lockedDirectory(std::string const& path) {
  std::string const parent = std::filesystem::path(path).parent_path();
  std::string const directory = parent.empty() ? "." : parent;
  Mem::Descriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened.isOpen()) fail("open directory", directory);
  while (::flock(opened.number(), LOCK_EX) != 0)
    if (errno != EINTR) fail("lock directory", directory);
  return opened;
}

bool writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    ssize_t const written = ::write(fd, text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    text.remove_prefix(static_cast<std::size_t>(written < 0 ? 0 : written));
  }
  return ::fsync(fd) == 0;
}

bool keepRights(int fd, std::string const& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) != 0 || ::fchmod(fd, status.st_mode & 07777) == 0;
}

}  // namespace

std::string wholeFile(std::string const& path) {
  if (path == "-") return readToEnd(STDIN_FILENO, "standard input");
  Mem::Descriptor const file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) fail("read", path);
  return readToEnd(file.number(), path);
}

std::string placeOf(std::string_view text, std::size_t nth) {
  std::string_view const before = text.substr(0, nth == 0 ? 0 : nth - 1);
  std::size_t const lineEnd = before.rfind('\n');
  return fmt::format("line {}, column {}", std::ranges::count(before, '\n') + 1,
                     before.size() - (lineEnd == std::string_view::npos ? 0 : lineEnd + 1) + 1);
}

ReplacedFile::ReplacedFile(std::string const& path)
    : path_(resolved(path)), directory_(lockedDirectory(path_)) {}

std::optional<std::string> ReplacedFile::text() const {
  if (::access(path_.c_str(), F_OK) != 0 && errno == ENOENT) return std::nullopt;
  return wholeFile(path_);
}

// Under the lock nobody else makes the new file; one that is there was left by a process that was killed.
void ReplacedFile::textIs(std::string_view text) {
  std::string const part = path_ + ".new";
  Mem::Descriptor const file(
      ::open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
  if (!file.isOpen()) fail("write", part);
  if (keepRights(file.number(), path_) && writeAll(file.number(), text) &&
      std::rename(part.c_str(), path_.c_str()) == 0) {
    if (::fsync(directory_.number()) != 0) fail("write", path_);
    return;
  }
  int const error = errno;
  ::unlink(part.c_str());
  errno = error;
  fail("write", path_);
}

}  // namespace Host
