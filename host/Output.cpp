#include "host/Output.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstring>

#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

constexpr std::size_t kPieceBytes = 1 << 16;

}  // namespace

OutputException::~OutputException() = default;

void OutputException::throwException(Dovel::String const& message) { throw OutputException(message); }

void Output::line(std::string_view text) {
  pending_.append(text);
  pending_.push_back('\n');
  if (pending_.size() >= kPieceBytes) finish();
}

void Output::finish() {
  std::string_view left = pending_;
  while (!left.empty()) {
    ssize_t const written = ::write(STDOUT_FILENO, left.data(), left.size());
    if (written >= 0) {
      left.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      DOVEL_THROW(OutputException, "Output", "cannot write to standard output: {}", std::strerror(errno));
    }
  }
  pending_.clear();
}

std::string oneLine(std::string_view text) {
  std::string line;
  for (char const c : text) {
    auto const code = static_cast<unsigned char>(c);
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\t') {
      line += "\\t";
    } else if (code < 0x20 || code == 0x7f) {
      line += fmt::format("\\x{:02x}", code);
    } else {
      line += c;
    }
  }
  return line;
}

void holdStandardDescriptors() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    // The lowest free number is this one. Each is opened in the direction in which it is never used.
    [[maybe_unused]] int const held = ::open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace Host
