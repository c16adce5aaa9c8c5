#include "runtime/TaskSchedulerRoot.h"

#include <errno.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace {

ORLO_DEFAULT_TRACE_HANDLE("TaskSchedulerRoot")

constexpr char kClass[] = "TaskSchedulerRoot";
constexpr TaskSchedulerRoot::Id kWakeUp = 0;
constexpr int kEventsAtOnce = 64;
constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

std::uint32_t eventsOf(TaskSchedulerRoot::Readiness interest) {
  return (interest.readable ? std::uint32_t{EPOLLIN} : 0U) |
         (interest.writable ? std::uint32_t{EPOLLOUT} : 0U);
}

TaskSchedulerRoot::Readiness readinessOf(std::uint32_t events) {
  return {(events & EPOLLIN) != 0, (events & EPOLLOUT) != 0, (events & (EPOLLERR | EPOLLHUP)) != 0};
}

}  // namespace

TaskSchedulerRoot::TaskSchedulerRoot()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      wakeUp_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      owner_(std::this_thread::get_id()) {
  handleInitialized();
}

TaskSchedulerRoot::~TaskSchedulerRoot() {
  markBeingDestroyed();
  onDelete();
}

void TaskSchedulerRoot::handleInitialized() {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kWakeUp;
  if (epoll_ >= 0 && wakeUp_ >= 0 && ::epoll_ctl(epoll_, EPOLL_CTL_ADD, wakeUp_, &event) == 0) return;
  int const error = errno;
  onDelete();
  DOVEL_THROW(Dovel::MemoryResourceException, kClass, "no descriptors for an event loop: {}",
              std::strerror(error));
}

void TaskSchedulerRoot::onDelete() {
  if (epoll_ >= 0) ::close(epoll_);
  if (wakeUp_ >= 0) ::close(wakeUp_);
}

void TaskSchedulerRoot::ownerIs() { owner_ = std::this_thread::get_id(); }

void TaskSchedulerRoot::assertOwner() const {
  DOVEL_ASSERT(isOwner(), kClass, "the scheduler was called from a thread that does not own it");
}

void TaskSchedulerRoot::watch(int operation, int fd, Readiness interest, Id id) {
  epoll_event event{};
  event.events = eventsOf(interest);
  event.data.u64 = id;
  if (::epoll_ctl(epoll_, operation, fd, &event) == 0) return;
  DOVEL_THROW(Dovel::RuntimeException, kClass, "descriptor {} cannot be watched: {}", fd,
              std::strerror(errno));
}

TaskSchedulerRoot::Id TaskSchedulerRoot::descriptorIs(int fd, Readiness interest,
                                                      DescriptorCallback callback) {
  assertOwner();
  Id const id = ++lastId_;
  auto const place = descriptors_.emplace(id, std::make_shared<Descriptor>(fd, std::move(callback))).first;
  try {
    watch(EPOLL_CTL_ADD, fd, interest, id);
  } catch (...) {
    descriptors_.erase(place);
    throw;
  }
  return id;
}

void TaskSchedulerRoot::interestIs(Id descriptor, Readiness interest) {
  assertOwner();
  auto const found = descriptors_.find(descriptor);
  if (found == descriptors_.end()) {
    DOVEL_THROW(Dovel::RuntimeException, kClass, "no descriptor is watched under id {}", descriptor);
  }
  watch(EPOLL_CTL_MOD, found->second->fd, interest, descriptor);
}

void TaskSchedulerRoot::descriptorDel(Id descriptor) {
  assertOwner();
  auto const found = descriptors_.find(descriptor);
  if (found == descriptors_.end()) return;
  ::epoll_ctl(epoll_, EPOLL_CTL_DEL, found->second->fd, nullptr);
  descriptors_.erase(found);
}

TaskSchedulerRoot::Id TaskSchedulerRoot::timerIs(Clock::duration delay, Clock::duration period, Task task,
                                                 Priority priority) {
  assertOwner();
  Timers& timers = priority == Priority::critical ? criticalTimers_ : otherTimers_;
  Clock::time_point const now = Clock::now();
  Clock::time_point const time =
      now + std::clamp(delay, Clock::duration::zero(), Clock::time_point::max() - now);
  Id const id = ++lastId_;
  timerPlaces_.emplace(id, std::pair{&timers, time});
  timers.emplace(Due{time, id}, std::make_shared<Timer>(period, std::move(task)));
  return id;
}

void TaskSchedulerRoot::timerDel(Id timer) {
  assertOwner();
  auto const found = timerPlaces_.find(timer);
  if (found == timerPlaces_.end()) return;
  auto const [timers, time] = found->second;
  timerPlaces_.erase(found);
  auto const gone = timers->extract(Due{time, timer});  // destroyed last: what it holds may call back in here
}

void TaskSchedulerRoot::post(Priority priority, Task task) {
  Posted& queue = posted(priority);
  bool wasEmpty;
  {
    std::lock_guard const guard(queue.lock);
    wasEmpty = queue.tasks.empty();
    queue.tasks.push_back(std::move(task));
    queue.size = queue.tasks.size();
  }
  // The owner looks at the sizes before it sleeps; where the queue was not empty, somebody has woken it
  // already.
  if (wasEmpty && !isOwner()) wake();
}

TaskSchedulerRoot::Tasks TaskSchedulerRoot::takePosted(Priority priority, std::size_t limit) {
  Posted& queue = posted(priority);
  Tasks taken;
  if (queue.size == 0) return taken;
  std::lock_guard const guard(queue.lock);
  if (queue.tasks.size() <= limit) {
    taken.swap(queue.tasks);
  } else {
    auto const end = queue.tasks.begin() + static_cast<std::ptrdiff_t>(limit);
    taken.assign(std::move_iterator(queue.tasks.begin()), std::move_iterator(end));
    queue.tasks.erase(queue.tasks.begin(), end);
  }
  queue.size = queue.tasks.size();
  return taken;
}

void TaskSchedulerRoot::runCriticalPriorityTasks() {
  if (!isOwner() || inCritical_) return;
  if (posted(Priority::critical).size == 0 && criticalTimers_.empty()) return;
  inCritical_ = true;
  std::vector<Due> const due = dueNow(criticalTimers_);
  for (Task& task : takePosted(Priority::critical, kAll)) guarded("critical task", task);
  for (Due const& timer : due) runTimer(criticalTimers_, timer);
  inCritical_ = false;
}

void TaskSchedulerRoot::run() {
  while (!stopping_.exchange(false)) runOnce(std::chrono::milliseconds::max());
}

void TaskSchedulerRoot::stop() {
  stopping_ = true;
  wake();
}

void TaskSchedulerRoot::runOnce(std::chrono::milliseconds timeout) {
  assertOwner();
  DOVEL_ASSERT(!inTurn_ && !inCritical_, kClass, "the scheduler was turned from one of its callbacks");
  inTurn_ = true;
  runCriticalPriorityTasks();
  bool busy = runDescriptors(waitTime(timeout));
  busy = runTimers() || busy;
  busy = runNormalTasks() || busy;
  if (!busy) runBackgroundTask();
  inTurn_ = false;
}

// In milliseconds, rounded up, so that a timer is due when the wait ends; -1 waits for ever.
int TaskSchedulerRoot::waitTime(std::chrono::milliseconds timeout) const {
  for (Posted const& queue : posted_) {
    if (queue.size != 0) return 0;
  }
  auto wait = timeout;
  for (Timers const* timers : {&criticalTimers_, &otherTimers_}) {
    if (timers->empty()) continue;
    auto const left = timers->begin()->first.first - Clock::now();
    wait = std::min(wait, std::chrono::ceil<std::chrono::milliseconds>(left));
  }
  if (wait == std::chrono::milliseconds::max()) return -1;
  return static_cast<int>(std::clamp<std::int64_t>(wait.count(), 0, std::numeric_limits<int>::max()));
}

bool TaskSchedulerRoot::runDescriptors(int waitMilliseconds) {
  epoll_event events[kEventsAtOnce];
  int const count = ::epoll_wait(epoll_, events, kEventsAtOnce, waitMilliseconds);
  DOVEL_ASSERT(count >= 0 || errno == EINTR, kClass, "the scheduler cannot wait: {}", std::strerror(errno));
  bool busy = false;
  for (int i = 0; i < count; ++i) {
    Id const id = events[i].data.u64;  // a copy: the kernel's structure is packed
    if (id == kWakeUp) {
      std::uint64_t wakes;
      [[maybe_unused]] ssize_t const drained = ::read(wakeUp_, &wakes, sizeof wakes);
      continue;
    }
    auto const found = descriptors_.find(id);
    if (found == descriptors_.end()) continue;  // removed by a callback of this turn
    auto const descriptor = found->second;
    guarded("descriptor callback", [&] { descriptor->callback(readinessOf(events[i].events)); });
    runCriticalPriorityTasks();
    busy = true;
  }
  return busy;
}

std::vector<TaskSchedulerRoot::Due> TaskSchedulerRoot::dueNow(Timers const& timers) {
  std::vector<Due> due;
  if (timers.empty()) return due;
  Clock::time_point const now = Clock::now();
  for (auto next = timers.begin(); next != timers.end() && next->first.first <= now; ++next) {
    due.push_back(next->first);
  }
  return due;
}

// Runs one due timer unless a callback has removed it; a periodic one takes its next place first, from where
// its own callback may remove it.
void TaskSchedulerRoot::runTimer(Timers& timers, Due due) {
  auto node = timers.extract(due);
  if (node.empty()) return;
  auto const timer = node.mapped();
  if (timer->period <= Clock::duration::zero()) {
    timerPlaces_.erase(due.second);
  } else {
    auto const missed = (Clock::now() - due.first) / timer->period;
    Clock::time_point const last = due.first + missed * timer->period;
    node.key().first = last + std::min(timer->period, Clock::time_point::max() - last);
    timerPlaces_[due.second].second = node.key().first;
    timers.insert(std::move(node));
  }
  guarded("timer", timer->task);
}

bool TaskSchedulerRoot::runTimers() {
  runCriticalPriorityTasks();
  std::vector<Due> const due = dueNow(otherTimers_);
  for (Due const& timer : due) {
    runTimer(otherTimers_, timer);
    runCriticalPriorityTasks();
  }
  return !due.empty();
}

bool TaskSchedulerRoot::runNormalTasks() {
  Tasks tasks = takePosted(Priority::normal, kAll);
  for (Task& task : tasks) {
    guarded("task", task);
    runCriticalPriorityTasks();
  }
  return !tasks.empty();
}

void TaskSchedulerRoot::runBackgroundTask() {
  for (Task& task : takePosted(Priority::background, 1)) guarded("background task", task);
}

void TaskSchedulerRoot::wake() {
  std::uint64_t const one = 1;
  [[maybe_unused]] ssize_t const written =
      ::write(wakeUp_, &one, sizeof one);  // fails only where wakes are pending
}

template <class Call>
void TaskSchedulerRoot::guarded(char const* what, Call&& call) noexcept {
  try {
    call();
    return;
  } catch (std::exception const& failure) {
    callbackFailed(what, failure.what());
  } catch (...) {
    callbackFailed(what, "unknown exception");
  }
}

void TaskSchedulerRoot::callbackFailed(char const* what, char const* reason) {
  ++failedCallbacks_;
  DOVEL_TRACE(_defaultTraceHandle(), 0, kClass, "a {} failed: {}", what, reason);
}

namespace Dovel {
namespace {

std::atomic<TaskSchedulerRoot*> rootOfProcess = nullptr;
// Left alone by a forked child: its descriptors are the parent's event loop.
TaskSchedulerRoot* rootOfParent = nullptr;

void handleForks() {
  [[maybe_unused]] static int const handled =
      ::pthread_atfork(nullptr, nullptr, [] { rootOfParent = rootOfProcess.exchange(nullptr); });
}

}  // namespace

// Its first use is never given up: callbacks may be posted until the very end of the process.
Ptr<TaskSchedulerRoot> schedulerRootDovel() {
  TaskSchedulerRoot* root = rootOfProcess;
  if (root != nullptr) return Ptr<TaskSchedulerRoot>(root);
  handleForks();
  auto made = ptrIsImpl<TaskSchedulerRoot>();
  made->incUseCount();
  if (rootOfProcess.compare_exchange_strong(root, made.ptr())) return made;
  made->decUseImpl();  // another thread was first
  return Ptr<TaskSchedulerRoot>(root);
}

}  // namespace Dovel
