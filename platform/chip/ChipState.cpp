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
  std::uint32_t version = 2;
  std::uint32_t headerBytes = ChipState::kHeaderBytes;
  std::uint64_t fileBytes = 0;
  std::uint64_t mapFingerprint = 0;
  Life life = Life::blank;
  std::uint32_t entries = 0;

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

std::uint64_t fingerprint() {
  return ChipMemoryMap::fingerprint() * 0x100000001B3 ^ ExactMatchMap::fingerprint();
}

[[noreturn]] void failed(char const* what, Dovel::String const& path) {
  int const error = errno;
  Mem::throwFileError(kClass, error, fmt::format("cannot {} {}: {}", what, path, std::strerror(error)));
}

template <class... Args>
[[noreturn]] void refuse(Dovel::String const& path, fmt::format_string<Args...> why, Args&&... args) {
  DOVEL_THROW(Dovel::InvalidInitializeException, kClass, "{} is no chip of this program: {}", path,
              fmt::format(why, std::forward<Args>(args)...));
}

}  // namespace

// Tables begin with a page, so that each of them can be let go of.
ChipState::Layout::Layout(std::uint32_t tableEntries)
    : entries(tableEntries),
      tableBytes(std::uint64_t{tableEntries} * kSlotBytes),
      chunks(SparseMemory::chunksOf(tableBytes)),
      marksAt(Mem::roundedToPages(kHeaderBytes + ChipMemoryMap::bytes())),
      slotsAt(Mem::roundedToPages(marksAt + chunks * ExactMatchMap::kPhysicalTables)),
      slotsStep(Mem::roundedToPages(tableBytes)),
      end(slotsAt + slotsStep * ExactMatchMap::kPhysicalTables) {}

// A file under its final name is whole: it is made beside it, and takes the name at the end.
void ChipState::make(Layout const& layout, Dovel::String const& path) {
  ChipFileHeader header;
  header.fileBytes = layout.end;
  header.mapFingerprint = fingerprint();
  header.entries = layout.entries;
  Dovel::String const part = fmt::format("{}.new", path);
  Mem::OpenedFile const file = Mem::openFile(part, Mem::FileUse::makeOrWrite);
  if (!file.isOpen()) Mem::throwFileError(kClass, file.error, file.text);
  int const descriptor = file.descriptor.number();
  // As long as it will ever be; in between it takes no room yet.
  bool const made = ::ftruncate(descriptor, 0) == 0 && Mem::allocate(descriptor, part, 0, layout.slotsAt) &&
                    Mem::allocate(descriptor, part, layout.end - 1, layout.end) &&
                    Mem::writeAt(descriptor, part, &header, sizeof header, 0);
  if (!made) {
    int const error = errno;
    ::unlink(part.data());
    errno = error;
    failed("make", path);
  }
  if (std::rename(part.data(), path.data()) != 0) failed("make", path);
}

void ChipState::check(Layout const& layout, Mem::OpenedFile const& file, Dovel::String const& path) {
  ChipFileHeader const wanted;
  ChipFileHeader found;
  if (Mem::readAt(file.descriptor.number(), &found, sizeof found, 0) != sizeof found)
    refuse(path, "its header is cut off");
  if (found.magic != wanted.magic) refuse(path, "it begins with {:#x}", found.magic);
  if (found.version != wanted.version)
    refuse(path, "it has version {} of the format, not {}", found.version, wanted.version);
  if (found.mapFingerprint != fingerprint())
    refuse(path, "its memories and databases are those of map {:#x}, not {:#x}", found.mapFingerprint,
           fingerprint());
  if (found.entries != layout.entries)
    refuse(path, "its physical tables have room for {} entries, not {}", found.entries, layout.entries);
  auto const size = static_cast<std::uint64_t>(file.status.st_size);
  if (found.headerBytes != wanted.headerBytes || found.fileBytes != layout.end || size != layout.end)
    refuse(path, "it has {} bytes and tells of {}, where a chip has {}", size, found.fileBytes, layout.end);
  if (found.life > ChipFileHeader::Life::beingReset)
    refuse(path, "its state is {}", static_cast<std::uint32_t>(found.life));
}

ChipState::ChipState(std::uint32_t entries) : layout_(entries) {
  map(MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, "a chip");
}

ChipState::ChipState(std::uint32_t entries, Dovel::String const& path) : layout_(entries) {
  static_assert(offsetof(ChipFileHeader, life) == 32 && offsetof(ChipFileHeader, entries) == 36 &&
                sizeof(ChipFileHeader) == 40);
  static_assert(sizeof(ChipFileHeader) <= kHeadsAt && sizeof(ExactMatchHead) == 64);
  static_assert(kHeadsAt + ExactMatchMap::kPhysicalTables * sizeof(ExactMatchHead) <= kHeaderBytes);
  if (::access(path.data(), F_OK) != 0) make(layout_, path);
  Mem::OpenedFile file = Mem::openFile(path, Mem::FileUse::write);
  if (!file.isOpen()) Mem::throwFileError(kClass, file.error, file.text);
  check(layout_, file, path);
  // A copy may have holes, and a full disk must not show itself as a signal in the middle of a command.
  if (!Mem::allocate(file.descriptor.number(), path, 0, layout_.slotsAt)) failed("open", path);
  file_ = std::move(file.descriptor);
  map(MAP_SHARED, path);
  if (header_->lifeNow() == ChipFileHeader::Life::beingReset) reset();
}

ChipState::~ChipState() { ::munmap(header_, layout_.end); }

void ChipState::map(int flags, Dovel::String const& name) {
  void* const memory = ::mmap(nullptr, layout_.end, PROT_READ | PROT_WRITE, flags, file_.number(), 0);
  if (memory == MAP_FAILED) failed("map", name);
  auto* const bytes = static_cast<std::byte*>(memory);
  header_ = static_cast<ChipFileHeader*>(memory);
  rows_ = bytes + kHeaderBytes;
  for (std::size_t table = 0; table < ExactMatchMap::kPhysicalTables; ++table) {
    auto* const marks = reinterpret_cast<std::uint8_t*>(bytes + layout_.marksAt + table * layout_.chunks);
    std::uint64_t const at = layout_.slotsAt + table * layout_.slotsStep;
    slots_.emplace_back(std::span(bytes + at, layout_.tableBytes), std::span(marks, layout_.chunks),
                        SparseMemory::Part{file_.number(), name, at});
  }
}

ExactMatchHead& ChipState::head(std::size_t table) const {
  return reinterpret_cast<ExactMatchHead*>(reinterpret_cast<std::byte*>(header_) + kHeadsAt)[table];
}

bool ChipState::programmed() const { return header_->lifeNow() == ChipFileHeader::Life::programmed; }

void ChipState::firstWrite() { header_->lifeIs(ChipFileHeader::Life::programmed); }

void ChipState::reset() {
  if (header_->lifeNow() == ChipFileHeader::Life::blank) return;
  header_->lifeIs(ChipFileHeader::Life::beingReset);
  std::memset(rows_, 0, ChipMemoryMap::bytes());
  for (std::size_t table = 0; table < slots_.size(); ++table) {
    head(table).slot = 0;
    slots_[table].clear();
  }
  header_->lifeIs(ChipFileHeader::Life::blank);
}

}  // namespace Chip
