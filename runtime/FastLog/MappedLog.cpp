#include "runtime/FastLog/MappedLog.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "runtime/Dovel/Format.h"
#include "runtime/FastLog/Decoder.h"

namespace FastLog {
namespace {

class OpenFile {
 public:
  explicit OpenFile(int fd) : fd_(fd) {}
  OpenFile(OpenFile const&) = delete;
  OpenFile& operator=(OpenFile const&) = delete;
  ~OpenFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

template <class... Args>
[[noreturn]] void refuse(std::string const& path, Dovel::FormatText<std::type_identity_t<Args>...> format,
                         Args const&... args) {
  Dovel::String const why = Dovel::fmtracestr(false, nullptr, "", "", 0, format, args...);
  DOVEL_THROW(DecodeException, "MappedLog", "{}: {}", path, why);
}

// Read before anything is mapped, so that only a file that is long enough ever is.
FileHeader readHeader(std::string const& path, int fd) {
  FileHeader header{};
  ssize_t const got = ::pread(fd, &header, sizeof header, 0);
  if (got < 0) refuse(path, "cannot read: {}", std::strerror(errno));
  auto const size = static_cast<std::size_t>(got);
  if (size < sizeof header.magic || header.magic != kMagic) refuse(path, "not a fast log file");
  if (size < sizeof header)
    refuse(path, "truncated: {} bytes, the header alone takes {}", size, sizeof header);
  if (header.version != kVersion) {
    refuse(path, "fast log of version {}, this program reads version {}", header.version, kVersion);
  }
  return header;
}

// The parts must follow each other without a gap; each size is limited first, so that no sum overflows.
std::uint64_t expectedBytes(std::string const& path, FileHeader const& header) {
  constexpr std::uint64_t kLimit = std::uint64_t{1} << 40;
  bool const sound = header.descriptorOffset == kHeaderBytes && header.descriptorBytes < kLimit &&
                     header.descriptorBytes % sizeof(Cell) == 0 &&
                     header.ringOffset == kHeaderBytes + header.descriptorBytes &&
                     header.cellCount >= kMaxMessageCells && header.cellCount < kLimit / sizeof(Cell);
  if (!sound) {
    refuse(path, "damaged header: {} bytes of descriptors at {}, {} cells at {}", header.descriptorBytes,
           header.descriptorOffset, header.cellCount, header.ringOffset);
  }
  return header.ringOffset + header.cellCount * sizeof(Cell);
}

}  // namespace

MappedLog::MappedLog(std::string const& path) {
  OpenFile const file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0)
    refuse(path, "cannot open: {}", std::strerror(errno));
  if (!S_ISREG(status.st_mode)) refuse(path, "not a regular file");
  FileHeader const header = readHeader(path, file.get());
  bytes_ = expectedBytes(path, header);
  cellCount_ = header.cellCount;
  descriptorBytes_ = header.descriptorBytes;
  auto const present = static_cast<std::uint64_t>(status.st_size);
  if (present < bytes_) refuse(path, "truncated: {} bytes of {}", present, bytes_);
  void* const mapped = ::mmap(nullptr, bytes_, PROT_READ, MAP_SHARED, file.get(), 0);
  if (mapped == MAP_FAILED) refuse(path, "cannot map: {}", std::strerror(errno));
  auto const* const bytes = static_cast<std::byte const*>(mapped);
  header_ = static_cast<FileHeader const*>(mapped);
  descriptors_ = static_cast<std::uint64_t const*>(static_cast<void const*>(bytes + kHeaderBytes));
  ring_ = static_cast<Cell const*>(static_cast<void const*>(bytes + header.ringOffset));
}

MappedLog::~MappedLog() { ::munmap(const_cast<FileHeader*>(header_), bytes_); }

std::vector<std::uint64_t> MappedLog::descriptors() const {
  std::uint64_t const described = load(header_->describedBytes, std::memory_order_acquire);
  std::vector<std::uint64_t> words(std::min(described, descriptorBytes_) / 8);
  for (std::size_t i = 0; i < words.size(); ++i) words[i] = load(descriptors_[i], std::memory_order_relaxed);
  return words;
}

bool MappedLog::holds(std::uint64_t position, std::size_t cells) const {
  for (std::size_t part = 0; part < cells; ++part) {
    std::uint64_t const expected = Tag{position + part + 1, part, cells}.word();
    if (tag(position + part) != expected) return false;
  }
  return true;
}

std::optional<std::vector<std::uint64_t>> MappedLog::message(std::uint64_t position,
                                                             std::size_t cells) const {
  if (!holds(position, cells)) return std::nullopt;
  std::vector<std::uint64_t> words;
  words.reserve(cells * kPayloadWords);
  for (std::size_t part = 0; part < cells; ++part) {
    for (std::uint64_t const& payload : cell(position + part).payload) {
      words.push_back(load(payload, std::memory_order_relaxed));
    }
  }
  std::atomic_thread_fence(std::memory_order_acquire);
  if (!holds(position, cells)) return std::nullopt;
  return words;
}

}  // namespace FastLog
