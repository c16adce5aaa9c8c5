#include "platform/memory/ProcessIdentity.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <string>

#include "platform/memory/FileAccess.h"

namespace Mem {
namespace {

// Short enough to be read at once.
std::string systemFile(char const* path) {
  Descriptor const file(::open(path, O_RDONLY | O_CLOEXEC));
  std::array<char, 1024> text;
  ssize_t const size = file.isOpen() ? ::read(file.number(), text.data(), text.size()) : 0;
  return size > 0 ? std::string(text.data(), static_cast<std::size_t>(size)) : std::string();
}

// The 22nd field; the second may hold anything but ends with the last ')'.
std::uint64_t startTimeOf(std::string const& stat) {
  std::size_t at = stat.rfind(')');
  for (int field = 3; field <= 22 && at != std::string::npos; ++field) at = stat.find(' ', at + 1);
  std::uint64_t time = 0;
  if (at != std::string::npos) std::from_chars(stat.data() + at + 1, stat.data() + stat.size(), time);
  return time;
}

}  // namespace

// Asked once: every change of an owner file needs both.
ProcessIdentity ProcessIdentity::self() {
  static thread_local ProcessIdentity known;
  static int const forgottenByChildren = ::pthread_atfork(nullptr, nullptr, [] { known = {}; });
  bool const isKnown = known.pid != 0 && forgottenByChildren == 0;
  if (!isKnown) known = {::getpid(), startTimeOf(systemFile("/proc/self/stat"))};
  return known;
}

Dovel::String bootId() {
  static Dovel::String const known = [] {
    std::string id = systemFile("/proc/sys/kernel/random/boot_id");
    if (id.ends_with('\n')) id.pop_back();
    return Dovel::String(id.empty() ? "unknown" : id);
  }();
  return known;
}

}  // namespace Mem
