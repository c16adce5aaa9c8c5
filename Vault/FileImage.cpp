#include "Vault/FileImage.h"

#include <errno.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/memory/FileAccess.h"

namespace Vault {
namespace {

std::uint64_t physicalMemory() {
  return static_cast<std::uint64_t>(::sysconf(_SC_PHYS_PAGES)) *
         static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace

FileImage::FileImage(Dovel::String const& path, std::uint64_t limit) {
  Mem::OpenedFile const file = Mem::openFile(path, Mem::FileUse::read);
  exists_ = file.isOpen() || file.error != ENOENT;
  if (!file.isOpen()) {
    problem_ = exists_ ? file.text : Dovel::String("absent");
    return;
  }
  size_ = file.size();
  copied_ = std::min(size_, limit);
  if (allocate()) copy(file.descriptor.number());
  if (!problem_.empty()) copied_ = 0;
}

FileImage::FileImage(std::span<std::byte const> bytes)
    : exists_(true), size_(bytes.size()), copied_(bytes.size()) {
  if (allocate()) std::memcpy(words_.get(), bytes.data(), bytes.size());
}

bool FileImage::allocate() {
  if (copied_ == 0) return false;
  // Zeroes that are only ever read cost nothing, so what counts is the file's size alone.
  if (copied_ <= physicalMemory()) {
    words_.reset(static_cast<Mem::Cell*>(
        std::calloc((copied_ + sizeof(Mem::Cell) - 1) / sizeof(Mem::Cell), sizeof(Mem::Cell))));
  }
  if (words_ == nullptr) {
    problem_ = fmt::format("too large to be read: {} bytes", copied_);
  }
  return words_ != nullptr;
}

void FileImage::copy(int file) {
  for (std::uint64_t at = 0; at < copied_;) {
    off_t const data = ::lseek(file, static_cast<off_t>(at), SEEK_DATA);
    if (data < 0 && errno == ENXIO) return;  // nothing but a hole up to the end
    // Where a file system doesn't tell its holes, all is data.
    std::uint64_t const first = data < 0 ? at : static_cast<std::uint64_t>(data);
    off_t const hole = data < 0 ? -1 : ::lseek(file, data, SEEK_HOLE);
    std::uint64_t const end = hole <= data ? copied_ : std::min(copied_, static_cast<std::uint64_t>(hole));
    if (!copyRange(file, first, end)) return;
    at = std::max(end, first);
  }
}

bool FileImage::copyRange(int file, std::uint64_t first, std::uint64_t end) {
  char* const bytes = static_cast<char*>(static_cast<void*>(words_.get()));
  while (first < end) {
    ssize_t const got = ::pread(file, bytes + first, end - first, static_cast<off_t>(first));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) problem_ = fmt::format("cannot be read: {}", std::strerror(errno));
    if (got <= 0) return false;  // 0: somebody has cut the file meanwhile
    first += static_cast<std::uint64_t>(got);
  }
  return true;
}

}  // namespace Vault
