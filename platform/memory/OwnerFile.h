// The file that tells who writes a table, how to reach that process, and what the table holds. Two records:
// a change is written over the older one, so that a writer that dies at it loses nothing.
//
// Each call reads the file anew. Any thread; who changes it holds the lock.
#pragma once

#include <sys/types.h>

#include <array>

#include "platform/memory/LockFile.h"
#include "platform/memory/OwnerRecord.h"
#include "platform/memory/RootPath.h"
#include "platform/memory/WireletInfo.h"

namespace SharedMem {

class OwnerFile : public Dovel::Debuggable {
 public:
  static constexpr char FILENAME[] = "owner";
  static constexpr char kLockName[] = ".owner.lock";

  // Held while the owner of a table changes; moments only.
  class Lock {
   public:
    Lock() = default;
    explicit Lock(Mem::LockFile file) : file_(std::move(file)) {}
    void release() { file_.release(); }

   private:
    Mem::LockFile file_;
  };

  // create: the directory, and a first record of this process where the file is absent or empty. Otherwise an
  // absent file stays absent, whatever is called. A local table has no such file: nothing is read or written,
  // and all is valid. Throws as throwFileError does.
  OwnerFile(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath, bool localMode,
            bool create = true);

  // Throws Dovel::NoPermissionException where another process holds it for seconds.
  Lock lock() const;

  // Whether a record is whole, was written since the machine came up, and is of a known kind of shared
  // memory.
  bool validate() const;
  bool validate(Dovel::String& error) const;
  // The same, and the reason traced at level 0.
  bool validateFile() const;
  bool exists() const;

  // All that stands in the file, for people, whatever its state.
  Dovel::String headerToString() const;

  // Changes, each in the file when it returns. A file that was found invalid stays invalid through them until
  // wipedIs(true), by which the caller says that nothing of the old table will be used: a writer that dies
  // between repairing the file and wiping the table doesn't hide the damage from the next one.
  void typeNameIs(Dovel::String const& name);
  void sharedMemTypeIs(unsigned type);
  void wipedIs(bool wiped);
  void wireletInfoIs(WireletInfo const& info);

  // Empty and 0 where there is no file; these throw Dovel::CorruptionDetectedException where neither record
  // is whole.
  Dovel::String typeName() const;
  unsigned sharedMemType() const;
  bool wiped() const;
  WireletInfo wireletInfo() const;
  // Of the process that made the last change.
  pid_t pid() const;
  std::uint64_t startTime() const;
  Dovel::String bootId() const;

 private:
  // What stands in the file.
  struct Copies {
    bool isEmpty = false;   // so, or absent
    Dovel::String trouble;  // why the file can't be read, if it can't
    std::array<OwnerRecord, 2> records;
    std::array<char const*, 2> problems{};  // null for a sound record

    OwnerRecord const* newest() const;  // null where neither is sound
    std::size_t indexOfOlder() const;
  };

  static Copies copiesIn(int descriptor);
  Copies load() const;
  bool isValid(Copies const& copies, Dovel::String& error) const;
  OwnerRecord current() const;
  void initialise();
  template <class Change>
  void update(Change change);

  Mem::RootPath const rootPath_;
  Dovel::String const path_;
  bool const localMode_;
  bool const create_;
};

}  // namespace SharedMem
