#include "platform/memory/SharedMemWrapper.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "platform/memory/Probe.h"
#include "platform/memory/ProcessIdentity.h"
#include "runtime/Dovel/Format.h"

namespace Mem {
namespace {

// Tables begin small and double: to take pages each time would cost a small one more than all its records.
constexpr std::uint64_t kTakenAhead = 64 * 1024;

}  // namespace

SharedMemWrapper::SharedMemWrapper(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath,
                                   Dovel::String fileName, CoreDump coreDump)
    : Dovel::Debuggable(handler),
      rootPath_(rootPath),
      fileName_(std::move(fileName)),
      path_(rootPath.fileName(fileName_)),
      coreDump_(coreDump) {}

std::byte* SharedMemWrapper::failed(char const* what, std::size_t size, char const* why) {
  error_ = fmt::format("cannot {} {} bytes of {}: {}", what, size, path_, why);
  return nullptr;
}

std::byte* SharedMemWrapper::attach(std::size_t size, Access access, std::size_t hint) {
  unmap();
  if (size == 0 || size > kLargestSize) return failed("map", size, std::strerror(EINVAL));
  bool const writes = access == Access::readWrite;
  OpenedFile const file = openFile(path_, writes ? FileUse::makeOrWrite : FileUse::read);
  if (!file.isOpen()) {
    error_ = file.text;
    return nullptr;
  }
  bool const isNew = file.size() == 0;
  if (isNew && !writes) return failed("map", size, "the file is empty");
  access_ = access;
  if (writes) process_ = ProcessIdentity::self().pid;
  if (!mapWhole(file, isNew ? size : std::min<std::uint64_t>(size, file.size()), hint)) {
    int const error = errno;
    unmap();
    if (isNew) removeFile();
    return failed("have", size, std::strerror(error));
  }
  mappedSize_ = std::min(size, range_.size());
  ready_ = isNew ? range_.size() : file.size();
  if (writes) ready_ = std::min<std::uint64_t>(ready_, range_.size());
  device_ = file.status.st_dev;
  inode_ = file.status.st_ino;
  advise();
  Impl::probeMapped(path_.data(), range_.base(), range_.size());
  return range_.base();
}

bool SharedMemWrapper::mapWhole(OpenedFile const& file, std::size_t size, std::size_t hint) {
  bool const writes = access_ == Access::readWrite;
  int const descriptor = file.descriptor.number();
  std::size_t const pages = roundedToPages(size);
  // An existing file keeps its length, which need not be that of a page; only its holes are filled.
  std::uint64_t const length = file.size() == 0 ? pages : std::min<std::uint64_t>(pages, file.size());
  std::size_t const wish = roundedToPages(std::min<std::uint64_t>(hint, kLargestSize));
  return (!writes || takePages(descriptor, 0, length)) &&
         range_.map(descriptor, writes ? PROT_READ | PROT_WRITE : PROT_READ, pages, wish);
}

// Large files get huge pages first, where the kernel has some: that takes a fifth of the time of small ones.
// It makes huge none that is empty, so each is begun with a small one.
bool SharedMemWrapper::takePages(int descriptor, std::uint64_t begin, std::uint64_t end) const {
  std::uint64_t huge = begin / AddressRange::kHugePage * AddressRange::kHugePage;
  if (huge + AddressRange::kHugePage <= end) {
    if (!mayFit(descriptor, begin, end)) return false;
    // The last byte gives the file its length, outside of which nothing is made huge.
    if (!allocate(descriptor, path_, end - 1, end)) return false;
    for (; huge + AddressRange::kHugePage <= end; huge += AddressRange::kHugePage) {
      if (!allocate(descriptor, path_, huge, huge + kPageSize)) return false;
    }
    AddressRange::collapse(descriptor, begin, end);
  }
  return allocate(descriptor, path_, begin, end);
}

OpenedFile SharedMemWrapper::open(FileUse use) {
  OpenedFile file = openFile(path_, use);
  if (file.isOpen() && (file.status.st_dev != device_ || file.status.st_ino != inode_)) {
    file = {};
    file.text = fmt::format("{} is no longer the file that is mapped", path_);
  }
  return file;
}

std::byte* SharedMemWrapper::resize(std::size_t size) {
  if (range_.base() == nullptr) return failed("resize to", size, "it is not mapped");
  if (isForeign()) return failed("resize to", size, "it is another process that has it mapped");
  if (size == 0 || size > kLargestSize) return failed("resize to", size, std::strerror(EINVAL));
  std::size_t const pages = roundedToPages(size);
  // A file that was found ending within its last page is made longer though that page is mapped.
  bool const grows = pages > range_.size() || (access_ == Access::readWrite && size > ready_);
  std::byte* const base = grows ? grow(size) : shrink(pages);
  if (base != nullptr) {
    mappedSize_ = size;
    Impl::probeMapped(path_.data(), base, range_.size());
  }
  return base;
}

std::byte* SharedMemWrapper::grow(std::size_t size) {
  bool const isThere = size <= ready_ && roundedToPages(size) <= range_.room();
  if (isThere && range_.grow(roundedToPages(size))) return range_.base();
  bool const writes = access_ == Access::readWrite;
  OpenedFile const file = open(writes ? FileUse::write : FileUse::read);
  if (file.isOpen()) return writes ? growFile(file, size) : follow(file, roundedToPages(size));
  error_ = file.text;
  return nullptr;
}

std::byte* SharedMemWrapper::growFile(OpenedFile const& file, std::size_t wanted) {
  std::size_t const before = range_.size();
  std::size_t const size = roundedToPages(wanted);
  // One that is long enough keeps its length.
  std::uint64_t end = wanted > file.size() ? size : std::min<std::uint64_t>(size, file.size());
  // What a shrink had given back is taken again, too, and what another has cut off.
  std::uint64_t const begin = std::min<std::uint64_t>(before, file.size());
  int const descriptor = file.descriptor.number();
  std::uint64_t const ahead = std::min<std::uint64_t>(kTakenAhead, range_.room());
  bool taken = ahead > std::max<std::uint64_t>(end, file.size()) && takePages(descriptor, begin, ahead);
  if (taken) {
    end = ahead;
  } else {
    taken = takePages(descriptor, begin, end);
  }
  if (!taken || !range_.grow(size)) {
    int const error = errno;
    giveBack(descriptor, std::max<std::uint64_t>(before, roundedToPages(file.size())), std::max(end, size));
    return failed("have", size, std::strerror(error));
  }
  range_.mapPages(before, std::max(end, size));
  ready_ = end;
  return range_.base();
}

std::byte* SharedMemWrapper::follow(OpenedFile const& file, std::size_t size) {
  if (roundedToPages(file.size()) < size) {
    return failed("map", size, fmt::format("the file has {}", file.size()).c_str());
  }
  if (size < AddressRange::kHugePage) {
    return range_.grow(size) ? range_.base() : failed("map", size, std::strerror(errno));
  }
  // What was mapped by small pages would stay so, though the writer has made it huge since.
  AddressRange anew;
  if (!anew.map(file.descriptor.number(), PROT_READ, size, range_.room())) {
    return failed("map", size, std::strerror(errno));
  }
  range_.swap(anew);
  advise();
  return range_.base();
}

std::byte* SharedMemWrapper::shrink(std::size_t size) {
  if (access_ == Access::readWrite && size < range_.size()) {
    OpenedFile const file = open(FileUse::write);
    if (file.isOpen()) giveBack(file.descriptor.number(), size, file.size());
    ready_ = std::min<std::uint64_t>(ready_, size);
  }
  range_.shrink(size);
  return range_.base();
}

// Readers that are late must find zeroes. Where the file system makes no holes they are written, though that
// gives nothing back; as far as this mapping reached, for nobody has looked farther.
void SharedMemWrapper::giveBack(int descriptor, std::uint64_t begin, std::uint64_t end) const {
  if (end <= begin) return;
  int const punched = probedCall("fallocate", path_.data(), [&] {
    return ::fallocate(descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(begin),
                       static_cast<off_t>(end - begin));
  });
  if (punched == 0) return;
  DOVEL_TRACE(debugHandler(), 1, "SharedMemWrapper", "{} keeps its space: {}", path_, std::strerror(errno));
  static constexpr std::array<std::byte, 65536> kZeroes{};
  for (end = std::min<std::uint64_t>(end, range_.size()); begin < end; begin += kZeroes.size()) {
    writeAt(descriptor, path_, kZeroes.data(), std::min<std::uint64_t>(end - begin, kZeroes.size()), begin);
  }
}

// A forked child must not write into its parent's table, nor keep it in memory.
void SharedMemWrapper::advise() const {
  if (access_ == Access::readWrite) ::madvise(range_.base(), range_.room(), MADV_DONTFORK);
  if (coreDump_ == CoreDump::asProcess) return;
  ::madvise(range_.base(), range_.room(), coreDump_ == CoreDump::excluded ? MADV_DONTDUMP : MADV_DODUMP);
}

void SharedMemWrapper::dumpToCoreIs(CoreDump mode) {
  coreDump_ = mode;
  if (range_.base() != nullptr && !isForeign()) advise();
}

std::size_t SharedMemWrapper::memSize() const {
  Impl::probeLook(path_.data());
  struct stat status {};
  bool const isThere = ::lstat(path_.data(), &status) == 0 && S_ISREG(status.st_mode);
  return isThere ? static_cast<std::size_t>(status.st_size) : 0;
}

bool SharedMemWrapper::isInPlace() const {
  Impl::probeLook(path_.data());
  struct stat status {};
  return range_.base() != nullptr && ::lstat(path_.data(), &status) == 0 && status.st_dev == device_ &&
         status.st_ino == inode_;
}

// A forked child doesn't inherit the writer's mapping: something of its own may stand in that place by now.
bool SharedMemWrapper::isForeign() const {
  return access_ == Access::readWrite && process_ != ProcessIdentity::self().pid;
}

void SharedMemWrapper::unmap() {
  if (isForeign()) range_.forget();
  range_.unmap();
  mappedSize_ = 0;
}

}  // namespace Mem
