#include "platform/memory/FileWatch.h"

#include <errno.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace Mem {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("FileWatch")

constexpr char kClass[] = "FileWatch";

// The end of a watched directory, which ends the watch, is an event unasked.
constexpr std::uint32_t kOfAncestor = IN_ONLYDIR | IN_MASK_ADD | IN_MOVE_SELF | IN_CREATE | IN_MOVED_TO;
// A word stored through a mapping makes no event; the change of the file's times that follows it does.
constexpr std::uint32_t kOfDirectory =
    kOfAncestor | IN_DELETE | IN_MOVED_FROM | IN_ATTRIB | IN_MODIFY | IN_EXCL_UNLINK;

constexpr std::size_t kBufferSize = std::size_t{32} * 1024;

}  // namespace

FileWatch::Period FileWatch::safetyPeriod_ = std::chrono::seconds(1);
FileWatch* FileWatch::current_ = nullptr;

FileWatch::Subscription::Subscription(std::string_view directory, Look look)
    : watch_(ofProcess()), place_(std::make_shared<Place>()) {
  place_->directory = directory;
  place_->look = std::move(look);
  watch_->places_.insert(place_.get());
  watch_->follow(*place_);
  watch_->owe(*place_);
}

FileWatch::Subscription::~Subscription() { watch_->leave(*place_); }

void FileWatch::Subscription::lookSoon() { watch_->owe(*place_); }

std::shared_ptr<FileWatch> FileWatch::ofProcess() {
  if (current_ != nullptr) return current_->shared_from_this();
  [[maybe_unused]] static int const handled = ::pthread_atfork(nullptr, nullptr, leaveToParent);
  auto made = std::make_shared<FileWatch>();
  current_ = made.get();
  return made;
}

// The child shares the watches and the scheduler's descriptors with its parent: what it took away would be
// missing there.
void FileWatch::leaveToParent() {
  if (current_ == nullptr) return;
  current_->foreign_ = true;
  if (current_->inotify_ >= 0) ::close(current_->inotify_);
  current_ = nullptr;
}

FileWatch::FileWatch() : scheduler_(Dovel::schedulerRootDovel()) {
  open();
  timer_ = scheduler_->timerIs(safetyPeriod_, safetyPeriod_, [this] { handleTimer(); });
}

FileWatch::~FileWatch() {
  if (foreign_) return;
  current_ = nullptr;
  scheduler_->timerDel(timer_);
  close();
}

void FileWatch::open() {
  inotify_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (inotify_ < 0) {
    DOVEL_TRACE(_defaultTraceHandle(), 1, kClass, "no events of files, looking every {} ms: {}",
                safetyPeriod_.count(), std::strerror(errno));
    return;
  }
  try {
    descriptor_ = scheduler_->descriptorIs(inotify_, {.readable = true},
                                           [this](TaskSchedulerRoot::Readiness) { readEvents(); });
  } catch (Dovel::RuntimeException const& failure) {
    DOVEL_TRACE(_defaultTraceHandle(), 1, kClass, "no events of files: {}", failure.what());
    close();
  }
}

void FileWatch::close() {
  if (inotify_ < 0) return;
  scheduler_->descriptorDel(descriptor_);
  ::close(inotify_);
  inotify_ = kNone;
}

void FileWatch::handleTimer() {
  if (inotify_ < 0) open();
  oweAll();
}

void FileWatch::readEvents() {
  alignas(inotify_event) char buffer[kBufferSize];
  ssize_t const size = ::read(inotify_, buffer, sizeof buffer);
  inotify_event event;
  for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(sizeof event + event.len)) {
    std::memcpy(&event, buffer + at, sizeof event);
    handleEvent(event.wd, event.mask, event.len == 0 ? "" : buffer + at + sizeof event);
  }
}

void FileWatch::handleEvent(int watch, std::uint32_t events, std::string_view name) {
  if ((events & IN_Q_OVERFLOW) != 0) {
    DOVEL_TRACE(_defaultTraceHandle(), 1, kClass, "events were lost, looking at all {} directories",
                places_.size());
    oweAll();
    return;
  }
  auto const found = watches_.find(watch);
  if (found == watches_.end()) return;  // given up while the event was under way
  for (Place* place : found->second) {
    if (name.empty() || place->isReached() || name == place->nextName()) owe(*place);
  }
}

// As a task of its own: what a look does to the subscriptions then troubles no loop over them, and one that
// throws does not keep the others waiting.
void FileWatch::owe(Place& place) {
  if (place.owed || foreign_) return;
  place.owed = true;
  scheduler_->post(TaskSchedulerRoot::Priority::normal, [this, subscribed = place.weak_from_this()] {
    if (auto const found = subscribed.lock()) lookAt(*found);
  });
}

void FileWatch::oweAll() {
  for (Place* place : places_) owe(*place);
}

// The look comes last: it may take the subscription and all of this along.
void FileWatch::lookAt(Place& place) {
  place.owed = false;
  follow(place);
  place.look();
}

// Watches the nearest directory that is there, then goes down as far as it gets. Each directory is watched
// before the next is tried, so one that appears meanwhile is either entered or an event.
void FileWatch::follow(Place& place) {
  if (inotify_ < 0) return;
  std::size_t length = place.directory.size();
  int watch = watchPrefix(place, length);
  while (watch < 0 && length > 0) {
    length = place.directory.rfind('/', length - 1);
    watch = watchPrefix(place, length);
  }
  while (watch >= 0) {
    moveTo(place, watch, length);
    if (place.isReached()) return;
    length = place.nextLength();
    watch = watchPrefix(place, length);
  }
}

// The descriptor of the watch, the same for as long as the path leads to the same directory; negative where
// it can't be watched.
int FileWatch::watchPrefix(Place const& place, std::size_t length) {
  std::string const path = length == 0 ? "/" : place.directory.substr(0, length);
  int const watch = ::inotify_add_watch(inotify_, path.c_str(),
                                        length == place.directory.size() ? kOfDirectory : kOfAncestor);
  if (watch < 0 && errno != ENOENT) {
    DOVEL_TRACE(_defaultTraceHandle(), 2, kClass, "cannot watch {}: {}", path, std::strerror(errno));
  }
  return watch;
}

void FileWatch::moveTo(Place& place, int watch, std::size_t length) {
  place.length = length;
  if (watch == place.watch) return;
  leaveWatch(place);
  place.watch = watch;
  watches_[watch].insert(&place);
}

void FileWatch::leaveWatch(Place& place) {
  auto const found = watches_.find(std::exchange(place.watch, kNone));
  if (found == watches_.end()) return;
  found->second.erase(&place);
  if (!found->second.empty()) return;
  ::inotify_rm_watch(inotify_, found->first);  // fails where the directory went, and the watch with it
  watches_.erase(found);
}

void FileWatch::leave(Place& place) {
  if (foreign_) return;
  leaveWatch(place);
  places_.erase(&place);
}

std::size_t FileWatch::Place::nextLength() const {
  return std::min(directory.find('/', length + 1), directory.size());
}

std::string_view FileWatch::Place::nextName() const {
  return std::string_view(directory).substr(length + 1, nextLength() - length - 1);
}

}  // namespace Mem
