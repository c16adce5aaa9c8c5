#include "host/RunScript.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/Output.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

constexpr std::size_t kPieceBytes = 1 << 16;

[[noreturn]] void fail(std::string const& name) {
  DOVEL_THROW(Dovel::RuntimeException, "RunScript", "cannot read {}: {}", oneLine(name),
              std::strerror(errno));
}

int opened(std::string const& path) {
  int const fd = path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) fail(path);
  return fd;
}

bool isBlank(std::string_view line) { return line.find_first_not_of(" \t\r") == std::string_view::npos; }

}  // namespace

RunScript::RunScript(std::string const& path, StopSignals const& signals, std::function<void()> idle)
    : name_(path == "-" ? "standard input" : path),
      fd_(opened(path)),
      signals_(signals),
      idle_(std::move(idle)) {
  struct stat status {};
  if (::fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)) size_ = status.st_size;
}

RunScript::~RunScript() {
  if (fd_ != STDIN_FILENO) ::close(fd_);
}

bool RunScript::next(std::string& line) {
  for (;;) {
    if (signals_.arrived()) return false;
    std::size_t const end = buffer_.find('\n', at_);
    if (end == std::string::npos && fill()) continue;
    if (signals_.arrived() || (end == std::string::npos && at_ == buffer_.size())) return false;
    line = buffer_.substr(at_, end == std::string::npos ? end : end - at_);
    at_ = end == std::string::npos ? buffer_.size() : end + 1;
    ++line_;
    if (!isBlank(line)) return true;
  }
}

// False where no more comes.
bool RunScript::fill() {
  if (ended_) return false;
  if (!StopSignals::isReadable(fd_)) {
    idle_();
    if (!signals_.waitReadable(fd_)) return false;
  }
  buffer_.erase(0, std::exchange(at_, 0));
  std::size_t const had = buffer_.size();
  buffer_.resize(had + kPieceBytes);
  ssize_t const got = ::read(fd_, buffer_.data() + had, kPieceBytes);
  if (got < 0 && errno != EINTR) fail(name_);
  buffer_.resize(had + static_cast<std::size_t>(got < 0 ? 0 : got));
  consumed_ += got < 0 ? 0 : got;
  ended_ = got == 0;
  return !ended_;
}

std::string RunScript::where() const { return fmt::format("{}:{}", oneLine(name_), line_); }

double RunScript::progress() const {
  if (size_ == 0) return 0;
  return static_cast<double>(consumed_ - static_cast<off_t>(buffer_.size() - at_)) /
         static_cast<double>(size_);
}

}  // namespace Host
