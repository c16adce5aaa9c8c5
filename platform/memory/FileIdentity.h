// Tells a file from another that later has its name. A plain value; any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "runtime/Dovel/String.h"

namespace Mem {

struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  // File systems give the number of a removed file to the next; 0 where they keep no time of birth.
  std::int64_t birthSeconds = 0;
  std::uint32_t birthNanoseconds = 0;

  // Of the regular file at the path; nothing where there is none.
  static std::optional<FileIdentity> atPath(Dovel::String const& path);
  // Of an open file.
  static std::optional<FileIdentity> ofDescriptor(int descriptor);

  friend bool operator==(FileIdentity const&, FileIdentity const&) = default;
};

}  // namespace Mem
