#include "platform/memory/LockFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/memory/FileAccess.h"

namespace Mem {

// All lock files of the process that are open. The mutex is held over every fork, and while a file is opened:
// no child can come to life with one that it doesn't know.
class LockFiles {
 public:
  using State = LockFile::State;

  static LockFiles& all() {
    // Never destroyed: a fork may come after the end of main.
    static LockFiles& files = *new LockFiles;
    return files;
  }

  void open(State& state) {
    std::lock_guard const guard(mutex_);
    OpenedFile file = openFile(state.path, FileUse::makeOrWrite);
    if (!file.isOpen()) throwFileError("LockFile", file.error, file.text);
    state.descriptor = file.descriptor.release();
    state.next = first_;
    if (first_ != nullptr) first_->previous = &state;
    first_ = &state;
  }

  void close(State& state) {
    std::lock_guard const guard(mutex_);
    if (state.descriptor < 0) return;
    ::close(std::exchange(state.descriptor, -1));
    (state.previous != nullptr ? state.previous->next : first_) = state.next;
    if (state.next != nullptr) state.next->previous = state.previous;
    state.previous = state.next = nullptr;
  }

 private:
  LockFiles() {
    ::pthread_atfork([] { all().mutex_.lock(); }, [] { all().mutex_.unlock(); }, [] { all().afterFork(); });
  }

  // In the child. Its copies of the descriptors are closed; that leaves the parent's lock as it is.
  void afterFork() {
    for (State* state = first_; state != nullptr;) {
      ::close(std::exchange(state->descriptor, -1));
      state->foreign = true;
      State* const next = state->next;
      state->previous = state->next = nullptr;
      state = next;
    }
    first_ = nullptr;
    mutex_.unlock();
  }

  std::mutex mutex_;
  State* first_ = nullptr;
};

namespace {

constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::milliseconds kPause{1};

// 0, or the errno.
int lockNow(int descriptor, bool wholeDescription) {
  if (!wholeDescription) return ::flock(descriptor, LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
  struct flock range {};
  range.l_type = F_WRLCK;
  return ::fcntl(descriptor, F_OFD_SETLK, &range) == 0 ? 0 : errno;
}

// A process that isn't ours may share the description, so closing it alone might not unlock.
void unlock(int descriptor, bool wholeDescription) {
  if (!wholeDescription) {
    ::flock(descriptor, LOCK_UN);
    return;
  }
  struct flock range {};
  range.l_type = F_UNLCK;
  ::fcntl(descriptor, F_OFD_SETLK, &range);
}

bool isHeldByAnother(int error) { return error == EWOULDBLOCK || error == EAGAIN || error == EACCES; }

}  // namespace

LockFile::LockFile(RootPath const& rootPath, char const* name, Kind kind)
    : state_(std::make_unique<State>()) {
  state_->path = rootPath.fileName(name);
  state_->kind = kind;
  LockFiles::all().open(*state_);
}

LockFile& LockFile::operator=(LockFile&& other) noexcept {
  if (this != &other) {
    release();
    state_ = std::move(other.state_);
  }
  return *this;
}

bool LockFile::tryLock() {
  int const error = lockNow(state_->descriptor, state_->kind == Kind::openFileDescription);
  state_->locked = error == 0;
  if (error != 0 && !isHeldByAnother(error)) {
    throwFileError("LockFile", error, fmt::format("cannot lock {}: {}", state_->path, std::strerror(error)));
  }
  return state_->locked;
}

bool LockFile::waitForLock() {
  auto const end = std::chrono::steady_clock::now() + kPatience;
  while (!tryLock()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

bool const& LockFile::foreign() const {
  static bool const kOfNobody = false;
  return state_ == nullptr ? kOfNobody : state_->foreign;
}

void LockFile::release() {
  if (state_ == nullptr || state_->descriptor < 0) return;
  if (state_->locked) unlock(state_->descriptor, state_->kind == Kind::openFileDescription);
  state_->locked = false;
  LockFiles::all().close(*state_);
}

}  // namespace Mem
