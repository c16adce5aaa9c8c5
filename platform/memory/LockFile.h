// A file whose kernel lock says that someone is at work, and that is free again once that process is gone,
// however it went. Never removed: two processes could otherwise hold locks on two files of one name.
//
// A forked child would share the lock, and keep it when its parent dies. So all lock files that are open are
// known here, and a child closes them before it does anything else. Any thread; each object, one thread.
#pragma once

#include <memory>

#include "platform/memory/RootPath.h"

namespace Mem {

class LockFile {
 public:
  // flock(2): among users of this class.
  // openFileDescription: fcntl(2); anyone may ask for its state without taking it.
  enum class Kind { flock, openFileDescription };

  LockFile() = default;
  // Opens the file, making it where needed. Throws as throwFileError does.
  LockFile(RootPath const& rootPath, char const* name, Kind kind);
  LockFile(LockFile&&) noexcept = default;
  LockFile& operator=(LockFile&& other) noexcept;
  ~LockFile() { release(); }

  // Never waits. False where another, in this process too, has the lock. Throws where the file system locks
  // nothing.
  bool tryLock();
  // Tries until it has the lock or some seconds are over.
  bool waitForLock();

  bool held() const { return state_ != nullptr && state_->locked && !state_->foreign; }
  // Whether this is the copy in a child of the process that opened the file. The address stands as long as
  // the object that was made, moved or not.
  bool const& foreign() const;

  // Of a foreign lock, nothing is done.
  void release();

  Dovel::String const& path() const { return state_->path; }

 private:
  friend class LockFiles;

  struct State {
    Dovel::String path;
    Kind kind = Kind::flock;
    int descriptor = -1;
    bool locked = false;
    bool foreign = false;
    State* previous = nullptr;
    State* next = nullptr;
  };

  std::unique_ptr<State> state_;
};

}  // namespace Mem
