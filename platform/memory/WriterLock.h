// The right to write a table, of one process and one writer in it at a time. It ends with the process,
// however that ends: a dead owner is one whose lock is free. One thread.
#pragma once

#include "platform/memory/LockFile.h"
#include "platform/memory/RootPath.h"

namespace SharedMem {
class OwnerFile;
}

namespace Mem {

enum class WriterLockState { free, held };

class WriterLock {
 public:
  static constexpr char kLockName[] = ".writer.lock";

  WriterLock() = default;

  // Throws Dovel::NoPermissionException where another writer, of this process too, has the lock, at once or,
  // with `wait`, after some seconds. The owner is what the trace of that tells.
  static WriterLock acquireWriterLock(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath,
                                      SharedMem::OwnerFile const& owner, bool wait);

  // Whether the owner file names this process and this socket. Throws Dovel::CorruptionDetectedException
  // where the file is damaged.
  static bool ownerIsMe(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath,
                        Dovel::String const& socketName);

  // Takes no lock and changes nothing. A lock that can't be asked for its state counts as held.
  static WriterLockState lockState(RootPath const& rootPath);

  bool held() const { return file_.held(); }
  // Whether this is the copy in a forked child, which has no right to write.
  bool foreign() const { return file_.foreign(); }
  // Stands as long as the lock does, also when that is moved: what every operation tests.
  bool const& foreignFlag() const { return file_.foreign(); }

  // Idempotent; in a child it does nothing.
  void release() { file_.release(); }

 private:
  explicit WriterLock(LockFile file) : file_(std::move(file)) {}

  LockFile file_;
};

}  // namespace Mem
