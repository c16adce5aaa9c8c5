// The directory of one table's files. A value; any thread may read it.
#pragma once

#include <string_view>

#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/String.h"

namespace Mem {

class RootPath : public Dovel::Debuggable {
 public:
  // A relative path lies under the root of all stores: HWTABLES_ROOT, or else /dev/shm/hwtables. An absolute
  // one stands for itself. Not shared: the path of a local table, which names it but is never made.
  RootPath(Dovel::Platform::DebugHandler const& handler, Dovel::String const& path, bool shared);

  // Absolute; ends in no slash.
  Dovel::String const& dirName() const { return dirName_; }
  // As it was given.
  Dovel::String const& path() const { return path_; }
  bool shared() const { return shared_; }

  Dovel::String fileName(std::string_view name) const;

  // Makes the directory, and those above it, readable by all whatever the umask; does nothing where it stands
  // or the path is not shared. Throws Dovel::InvalidInitializeException where it can't be had or lies on a
  // network file system: there, mappings of several machines would not show each other's words.
  void makeDirectory() const;

  // True where the file was there and is gone. A failure is traced at level 1.
  bool removeFile(std::string_view name) const;

 private:
  Dovel::String path_;
  Dovel::String dirName_;
  bool shared_;
};

using NimbexRootPath = RootPath;

namespace Impl {

// Of a type as statfs(2) gives it.
bool isNetworkFileSystem(long type);

}  // namespace Impl
}  // namespace Mem
