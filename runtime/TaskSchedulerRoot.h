// The event loop of a process: descriptors, timers and tasks, run one at a time on one thread.
//
// Thread rule: the scheduler belongs to the thread that made it, or to the last that called ownerIs(). Only
// post() and stop() may be called by others; runCriticalPriorityTasks() does nothing there, and anything else
// is an assertion. Callbacks run on the owner. Any callback may add and remove anything, itself included:
// what has been removed is not called any more. An exception from a callback is counted, and traced at level
// 0 on channel "TaskSchedulerRoot"; the loop goes on. Not to be used in a forked child: it makes its own.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "runtime/Dovel/PtrIs.h"

class TaskSchedulerRoot : public Dovel::Tracked<TaskSchedulerRoot> {
 public:
  using Clock = std::chrono::steady_clock;
  using Task = std::function<void()>;
  // Names a descriptor or a timer; never given out twice. 0 names none.
  using Id = std::uint64_t;

  enum class Priority {
    critical,    // also run inside long operations, by runCriticalPriorityTasks(); to be short
    normal,      // run once in each turn of the loop
    background,  // one in each turn that has nothing else to do
  };

  // What a descriptor is watched for, and what it was found to be.
  struct Readiness {
    bool readable = false;
    bool writable = false;
    bool failed = false;  // error or hang-up; always watched for
  };
  using DescriptorCallback = std::function<void(Readiness)>;

  // Throws Dovel::MemoryResourceException where the kernel gives no epoll or event descriptor.
  TaskSchedulerRoot();
  ~TaskSchedulerRoot() override;

  // Makes the calling thread the owner. The former one must not be using the scheduler.
  void ownerIs();

  // Watches an open descriptor, called for as long as it stays ready. It remains the caller's, who removes it
  // here before closing it. Throws Dovel::RuntimeException for a descriptor that can't be watched.
  Id descriptorIs(int fd, Readiness interest, DescriptorCallback callback);
  // Changes what it is watched for. Throws as above, and for an unknown id.
  void interestIs(Id descriptor, Readiness interest);
  // Unknown ids, here and below, are ignored.
  void descriptorDel(Id descriptor);

  // Runs the task after the delay and then, unless the period is zero, once a period. A late timer skips the
  // periods that it has missed. Timers run in the order of their times, equal ones in the order in which they
  // were made.
  Id timerIs(Clock::duration delay, Clock::duration period, Task task, Priority priority = Priority::normal);
  void timerDel(Id timer);

  // Any thread. Tasks of one priority run in the order of posting.
  void post(Priority priority, Task task);

  // Runs the tasks posted, and the timers due, at critical priority when it is called; those that come up
  // meanwhile wait for the next call. Meant for the middle of long operations: nothing else runs, nothing is
  // thrown, and with nothing to do it costs a few loads. A call from inside a critical task does nothing.
  void runCriticalPriorityTasks();

  // Turns the loop until stop() is called. A stop that came before ends it at once. Not from a callback.
  void run();
  // Any thread.
  void stop();
  // One turn: waits up to the timeout for something to do and does it. Not from a callback.
  void runOnce(std::chrono::milliseconds timeout);

  // Callbacks that have thrown so far.
  std::uint64_t failedCallbacks() const { return failedCallbacks_; }

 private:
  struct Descriptor {
    int fd;
    DescriptorCallback callback;
  };
  struct Timer {
    Clock::duration period;
    Task task;
  };
  using Due = std::pair<Clock::time_point, Id>;
  using Timers = std::map<Due, std::shared_ptr<Timer>>;
  using Tasks = std::deque<Task>;

  struct Posted {
    std::mutex lock;
    Tasks tasks;                        // under lock
    std::atomic<std::size_t> size = 0;  // of tasks
  };

  void handleInitialized();
  void onDelete();
  void assertOwner() const;
  bool isOwner() const { return owner_ == std::this_thread::get_id(); }
  Posted& posted(Priority priority) { return posted_[static_cast<std::size_t>(priority)]; }
  Tasks takePosted(Priority priority, std::size_t limit);

  void watch(int operation, int fd, Readiness interest, Id id);
  int waitTime(std::chrono::milliseconds timeout) const;
  bool runDescriptors(int waitMilliseconds);
  static std::vector<Due> dueNow(Timers const& timers);
  void runTimer(Timers& timers, Due due);
  bool runTimers();
  bool runNormalTasks();
  void runBackgroundTask();
  void wake();
  template <class Call>
  void guarded(char const* what, Call&& call) noexcept;
  void callbackFailed(char const* what, char const* reason);

  int epoll_ = -1;
  int wakeUp_ = -1;
  std::atomic<std::thread::id> owner_;
  Id lastId_ = 0;
  bool inCritical_ = false;
  bool inTurn_ = false;
  std::uint64_t failedCallbacks_ = 0;
  std::unordered_map<Id, std::shared_ptr<Descriptor>> descriptors_;
  Timers criticalTimers_;
  Timers otherTimers_;
  std::unordered_map<Id, std::pair<Timers*, Clock::time_point>> timerPlaces_;
  std::array<Posted, 3> posted_;
  std::atomic<bool> stopping_ = false;
};

namespace Dovel {

// The scheduler of this process, made by the first call, to whose thread it belongs until another calls
// ownerIs(). A forked child has another. Any thread, under the rule of Node.h for use counts.
Ptr<TaskSchedulerRoot> schedulerRootDovel();

}  // namespace Dovel
