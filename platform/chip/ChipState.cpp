#include "platform/chip/ChipState.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/memory/FileAccess.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Chip {

struct ChipFileHeader {
  enum class Life : std::uint32_t { blank = 0, programmed = 1, beingReset = 2 };

  std::uint64_t magic = 0x504948434C545748;  // "HWTLCHIP"
  std::uint32_t version = 1;
  std::uint32_t headerBytes = ChipState::kHeaderBytes;
  std::uint64_t fileBytes = 0;
  std::uint64_t mapFingerprint = 0;
  Life life = Life::blank;

  // The order in which a killed process leaves things is that of its stores: nothing may move across.
  Life lifeNow() { return std::atomic_ref(life).load(std::memory_order_relaxed); }
  void lifeIs(Life next) {
    std::atomic_signal_fence(std::memory_order_seq_cst);
    std::atomic_ref(life).store(next, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
  }
};

namespace {

constexpr char kClass[] = "Chip::ChipState";

std::uint64_t fileBytes() { return ChipState::kHeaderBytes + ChipMemoryMap::bytes(); }

[[noreturn]] void failed(char const* what, Dovel::String const& path) {
  int const error = errno;
  Mem::throwFileError(kClass, error, fmt::format("cannot {} {}: {}", what, path, std::strerror(error)));
}

template <class... Args>
[[noreturn]] void refuse(Dovel::String const& path, fmt::format_string<Args...> why, Args&&... args) {
  DOVEL_THROW(Dovel::InvalidInitializeException, kClass, "{} is no chip of this program: {}", path,
              fmt::format(why, std::forward<Args>(args)...));
}

// A file under its final name is whole: it is made beside it, and takes the name at the end.
void make(Dovel::String const& path, ChipFileHeader const& header) {
  Dovel::String const part = fmt::format("{}.new", path);
  Mem::OpenedFile const file = Mem::openFile(part, Mem::FileUse::makeOrWrite);
  if (!file.isOpen()) Mem::throwFileError(kClass, file.error, file.text);
  int const descriptor = file.descriptor.number();
  bool const made = ::ftruncate(descriptor, 0) == 0 && Mem::allocate(descriptor, part, 0, fileBytes()) &&
                    Mem::writeAt(descriptor, part, &header, sizeof header, 0);
  if (!made) {
    int const error = errno;
    ::unlink(part.data());
    errno = error;
    failed("make", path);
  }
  if (std::rename(part.data(), path.data()) != 0) failed("make", path);
}

void check(Mem::OpenedFile const& file, Dovel::String const& path) {
  ChipFileHeader const wanted;
  ChipFileHeader found;
  if (Mem::readAt(file.descriptor.number(), &found, sizeof found, 0) != sizeof found)
    refuse(path, "its header is cut off");
  if (found.magic != wanted.magic) refuse(path, "it begins with {:#x}", found.magic);
  if (found.version != wanted.version)
    refuse(path, "it has version {} of the format, not {}", found.version, wanted.version);
  if (found.mapFingerprint != ChipMemoryMap::fingerprint())
    refuse(path, "its memories are those of map {:#x}, not {:#x}", found.mapFingerprint,
           ChipMemoryMap::fingerprint());
  auto const size = static_cast<std::uint64_t>(file.status.st_size);
  if (found.headerBytes != wanted.headerBytes || found.fileBytes != fileBytes() || size != fileBytes())
    refuse(path, "it has {} bytes and tells of {}, where a chip has {}", size, found.fileBytes, fileBytes());
  if (found.life > ChipFileHeader::Life::beingReset)
    refuse(path, "its state is {}", static_cast<std::uint32_t>(found.life));
}

}  // namespace

ChipState::ChipState() { map(MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, "a chip"); }

ChipState::ChipState(Dovel::String const& path) {
  static_assert(offsetof(ChipFileHeader, life) == 32 && sizeof(ChipFileHeader) == 40);
  if (::access(path.data(), F_OK) != 0) {
    ChipFileHeader blank;
    blank.fileBytes = fileBytes();
    blank.mapFingerprint = ChipMemoryMap::fingerprint();
    make(path, blank);
  }
  Mem::OpenedFile const file = Mem::openFile(path, Mem::FileUse::write);
  if (!file.isOpen()) Mem::throwFileError(kClass, file.error, file.text);
  check(file, path);
  // A copy may have holes, and a full disk must not show itself as a signal in the middle of a command.
  if (!Mem::allocate(file.descriptor.number(), path, 0, fileBytes())) failed("open", path);
  map(MAP_SHARED, file.descriptor.number(), path);
  if (header_->lifeNow() == ChipFileHeader::Life::beingReset) reset();
}

ChipState::~ChipState() { ::munmap(header_, fileBytes()); }

void ChipState::map(int flags, int descriptor, Dovel::String const& name) {
  void* const memory = ::mmap(nullptr, fileBytes(), PROT_READ | PROT_WRITE, flags, descriptor, 0);
  if (memory == MAP_FAILED) failed("map", name);
  header_ = static_cast<ChipFileHeader*>(memory);
  rows_ = static_cast<std::byte*>(memory) + kHeaderBytes;
}

bool ChipState::programmed() const { return header_->lifeNow() == ChipFileHeader::Life::programmed; }

void ChipState::firstWrite() { header_->lifeIs(ChipFileHeader::Life::programmed); }

void ChipState::reset() {
  if (header_->lifeNow() == ChipFileHeader::Life::blank) return;
  header_->lifeIs(ChipFileHeader::Life::beingReset);
  std::memset(rows_, 0, ChipMemoryMap::bytes());
  header_->lifeIs(ChipFileHeader::Life::blank);
}

}  // namespace Chip
