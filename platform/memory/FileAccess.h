// Opening and growing the files of a store so that nothing found in their place can make the caller wait or
// die: only regular files pass, links are not followed, size limits are errors. Any thread.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <utility>

#include "runtime/Dovel/String.h"

namespace Mem {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor();

  int number() const { return number_; }
  bool isOpen() const { return number_ >= 0; }
  // From here on the caller closes it.
  int release() { return std::exchange(number_, -1); }

 private:
  int number_ = -1;
};

enum class FileUse {
  read,        // must be there
  write,       // to read and write; must be there
  makeOrWrite  // to read and write; made where it isn't there, readable by all whatever the umask
};

// What became of an attempt: where the descriptor isn't open, `error` is the errno and `text` says all that a
// person needs to know.
struct OpenedFile {
  Descriptor descriptor;
  struct stat status {};
  int error = 0;
  Dovel::String text;

  bool isOpen() const { return descriptor.isOpen(); }
  std::uint64_t size() const { return static_cast<std::uint64_t>(status.st_size); }
};

OpenedFile openFile(Dovel::String const& path, FileUse use);

// Has the file system give the file the pages of a range, and the file that length at least; what is in it
// stays. False with errno where it can't: nothing changed, but that a file system that can't do so at once
// may have made the file longer.
bool allocate(int descriptor, Dovel::String const& path, std::uint64_t begin, std::uint64_t end);

// False with errno where the file system surely lacks the space for the pages of a range. Some, those in
// memory above all, would otherwise fill up to the last page before they find out.
bool mayFit(int descriptor, std::uint64_t begin, std::uint64_t end);

// Writes all of it; false with errno.
bool writeAt(int descriptor, Dovel::String const& path, void const* bytes, std::size_t size,
             std::uint64_t offset);

// How many bytes could be read, 0 also on errors.
std::size_t readAt(int descriptor, void* bytes, std::size_t size, std::uint64_t offset);

// Throws what fits the errno: Dovel::MemoryResourceException where space is lacking,
// Dovel::NoPermissionException where rights are, else Dovel::InvalidInitializeException.
[[noreturn]] void throwFileError(char const* className, int error, Dovel::String const& text);

constexpr std::uint64_t kPageSize = 4096;
// Of what is mapped at once and of what a file holds: more is taken for an error.
constexpr std::uint64_t kLargestSize = std::uint64_t{1} << 46;

constexpr std::uint64_t roundedToPages(std::uint64_t size) {
  return (size + kPageSize - 1) / kPageSize * kPageSize;
}

}  // namespace Mem
