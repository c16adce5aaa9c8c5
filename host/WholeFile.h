// Files that are read and replaced as a whole. One thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/memory/FileAccess.h"

namespace Host {

// All of a file, or of standard input for "-". Throws Dovel::RuntimeException where it can't be read.
std::string wholeFile(std::string const& path);
// Where the nth byte of a text stands, counted from 1: "line 2, column 7".
std::string placeOf(std::string_view text, std::size_t nth);

// A file that no other process has open in this way, as the lock is that of its directory: the file itself
// becomes another one with each change. A reader without the lock finds the old text or the new one.
class ReplacedFile {
 public:
  // Waits for the lock. The file need not be there, its directory must. All members throw
  // Dovel::RuntimeException for what the system refuses.
  explicit ReplacedFile(std::string const& path);
  ReplacedFile(ReplacedFile const&) = delete;
  ReplacedFile& operator=(ReplacedFile const&) = delete;

  std::optional<std::string> text() const;
  // Keeps the rights of the file. Where it throws the file is as it was.
  void textIs(std::string_view text);

 private:
  std::string const path_;
  Mem::Descriptor const directory_;
};

}  // namespace Host
