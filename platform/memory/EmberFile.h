// The file that holds the generation of a table: whoever wants to know whether the files at hand still are
// the table looks here. 64 bytes, the generation at 0 and zeroes behind it; written in place, so that those
// who have it mapped see the change. Any thread; one process writes.
#pragma once

#include "platform/memory/EmberId.h"
#include "platform/memory/RootPath.h"

namespace SharedMem {

class EmberFile : public Dovel::Debuggable {
 public:
  static constexpr char EMBER_NAME[] = "ember";
  static constexpr std::size_t kSize = 64;

  // A local table has no such file: nothing is read and nothing written.
  EmberFile(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath, bool localMode);

  // No generation where the file is absent, short, unreadable or no file of this kind.
  EmberId read() const;

  // Makes the file where it isn't there, unless it is to hold no generation, and moves its time, so that
  // watchers wake. Throws Dovel::MemoryResourceException, Dovel::NoPermissionException or
  // Dovel::InvalidInitializeException.
  void write(EmberId id);

  // Whether the file holds this generation; traced at level 0 where it doesn't. Always of a local table.
  bool validate(EmberId id) const;

  // When the generation was written, in seconds since 1970; "never" where there is no file.
  Dovel::String mtime() const;

 private:
  void fail(int error, Dovel::String const& text) const;

  Dovel::String const path_;
  bool const localMode_;
};

}  // namespace SharedMem
