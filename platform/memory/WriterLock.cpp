#include "platform/memory/WriterLock.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/memory/FileAccess.h"
#include "platform/memory/OwnerFile.h"
#include "platform/memory/ProcessIdentity.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/HwAbstractionLog.h"

namespace Mem {
namespace {

constexpr char kDuplicateWriter[] = "Duplicate Writer Detected, vault path not cleaned up";

}  // namespace

WriterLock WriterLock::acquireWriterLock(Dovel::Platform::DebugHandler const& handler,
                                         RootPath const& rootPath, SharedMem::OwnerFile const& owner,
                                         bool wait) {
  LockFile file(rootPath, kLockName, LockFile::Kind::openFileDescription);
  if (wait ? file.waitForLock() : file.tryLock()) return WriterLock(std::move(file));
  DOVEL_TRACE(handler, 1, "WriterLock", "{} is held, owner file: {}", file.path(), owner.headerToString());
  Orlo::LogHandle log(Orlo::HW_ABSTRACTION_RELAUNCH_ERROR, Dovel::Duration::zero(), 1.0, 0, 0);
  log.log(kDuplicateWriter);
  DOVEL_THROW(Dovel::NoPermissionException, "WriterLock", "{}", kDuplicateWriter);
}

bool WriterLock::ownerIsMe(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath,
                           Dovel::String const& socketName) {
  SharedMem::OwnerFile const owner(handler, rootPath, false, false);
  return ProcessIdentity{owner.pid(), owner.startTime()} == ProcessIdentity::self() &&
         owner.bootId() == bootId() && owner.wireletInfo().socketName() == socketName;
}

WriterLockState WriterLock::lockState(RootPath const& rootPath) {
  OpenedFile const file = openFile(rootPath.fileName(kLockName), FileUse::read);
  if (!file.isOpen()) return file.error == ENOENT ? WriterLockState::free : WriterLockState::held;
  struct flock range {};
  range.l_type = F_RDLCK;  // what a descriptor for reading may ask for; a writer's lock is in its way
  bool const known = ::fcntl(file.descriptor.number(), F_OFD_GETLK, &range) == 0;
  return known && range.l_type == F_UNLCK ? WriterLockState::free : WriterLockState::held;
}

}  // namespace Mem
