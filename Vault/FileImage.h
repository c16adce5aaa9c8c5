// A private copy of a file of a store. The file is opened for reading alone and only ever read: mapping it
// would fill the holes that a shrink has punched. Whatever the file does later changes nothing in the copy,
// and whatever is in it, nothing outside the copy is ever read. Immutable; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include "platform/memory/SharedWord.h"
#include "runtime/Dovel/String.h"

namespace Vault {

class FileImage {
 public:
  static constexpr std::uint64_t kWhole = ~std::uint64_t{0};

  // Of no file at all.
  FileImage() : problem_("absent") {}
  // At most `limit` bytes of the file are copied. Never throws for what it finds.
  explicit FileImage(Dovel::String const& path, std::uint64_t limit = kWhole);
  // Of bytes that somebody has already.
  explicit FileImage(std::span<std::byte const> bytes);

  // Something stands under the name, readable or not.
  bool exists() const { return exists_; }
  // Why there are no bytes: "absent" where there is no file; empty where there are.
  Dovel::String const& problem() const { return problem_; }
  // Of the file, in bytes.
  std::uint64_t size() const { return size_; }
  // The whole words of what was copied.
  std::span<Mem::Cell const> words() const { return {words_.get(), copied_ / sizeof(Mem::Cell)}; }
  // A word by its place, 0 past the end.
  Mem::Cell word(std::uint64_t index) const { return index < words().size() ? words()[index] : 0; }

 private:
  struct Free {
    void operator()(Mem::Cell* words) const { std::free(words); }
  };

  bool allocate();
  void copy(int file);
  bool copyRange(int file, std::uint64_t first, std::uint64_t end);

  Dovel::String problem_;
  bool exists_ = false;
  std::uint64_t size_ = 0;
  std::uint64_t copied_ = 0;
  std::unique_ptr<Mem::Cell, Free> words_;
};

}  // namespace Vault
