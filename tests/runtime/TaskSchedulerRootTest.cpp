#include "runtime/TaskSchedulerRoot.h"

#include <gmock/gmock.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "runtime/Dovel/Exception.h"
#include "tests/support/ChildProcess.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using Priority = TaskSchedulerRoot::Priority;
using Readiness = TaskSchedulerRoot::Readiness;

constexpr Readiness kReadable{.readable = true};

class EventFd {
 public:
  explicit EventFd(unsigned value) : fd_(::eventfd(value, EFD_NONBLOCK | EFD_CLOEXEC)) {}
  EventFd(EventFd const&) = delete;
  EventFd& operator=(EventFd const&) = delete;
  ~EventFd() { ::close(fd_); }
  int fd() const { return fd_; }

 private:
  int fd_;
};

class SchedulerTest : public testing::Test {
 protected:
  void turn() { scheduler_->runOnce(0ms); }
  // NOLINTNEXTLINE(performance-unnecessary-value-param): a coroutine outlives what its caller passes
  TaskSchedulerRoot::Task note(std::string what) {
    return [this, what] { seen_.push_back(what); };
  }

  Dovel::Ptr<TaskSchedulerRoot> scheduler_ = Dovel::ptrIsImpl<TaskSchedulerRoot>();
  std::vector<std::string> seen_;
};

TEST_F(SchedulerTest, TimersRunInTheOrderOfTheirTimesEqualOnesAsMade) {
  scheduler_->timerIs(6ms, 0ms, [this] {
    seen_.push_back("late");
    scheduler_->stop();
  });
  scheduler_->timerIs(2ms, 0ms, note("early"));
  scheduler_->timerIs(-5ms, 0ms, note("at once"));
  scheduler_->timerIs(TaskSchedulerRoot::Clock::duration::max(), 0ms, note("never"));
  auto const start = TaskSchedulerRoot::Clock::now();
  scheduler_->run();
  EXPECT_GE(TaskSchedulerRoot::Clock::now() - start, 6ms);
  EXPECT_THAT(seen_, ElementsAre("at once", "early", "late"));
}

TEST_F(SchedulerTest, OneShotTimerRunsOnceAndAPeriodicOneUntilItIsRemoved) {
  int periods = 0;
  TaskSchedulerRoot::Id periodic = 0;
  scheduler_->timerIs(0ms, 0ms, note("once"));
  periodic = scheduler_->timerIs(1ms, 1ms, [&] {
    if (++periods == 3) scheduler_->timerDel(periodic);
  });
  scheduler_->timerIs(15ms, 0ms, [this] { scheduler_->stop(); });
  scheduler_->run();
  EXPECT_EQ(periods, 3);
  EXPECT_THAT(seen_, ElementsAre("once"));
}

TEST_F(SchedulerTest, LateTimerSkipsThePeriodsItHasMissed) {
  int runs = 0;
  scheduler_->timerIs(0ms, 5ms, [&] { ++runs; });
  std::this_thread::sleep_for(60ms);
  auto const start = TaskSchedulerRoot::Clock::now();
  for (int i = 0; i < 10; ++i) turn();
  auto const elapsed = TaskSchedulerRoot::Clock::now() - start;
  EXPECT_GE(runs, 1);
  EXPECT_LE(runs, 2 + elapsed / 5ms);
}

TEST_F(SchedulerTest, TimerRemovedByAnotherThatIsDueInTheSameTurnDoesNotRun) {
  TaskSchedulerRoot::Id second = 0;
  scheduler_->timerIs(0ms, 0ms, [&] {
    seen_.push_back("first");
    scheduler_->timerDel(second);
  });
  second = scheduler_->timerIs(0ms, 0ms, note("second"));
  turn();
  turn();
  EXPECT_THAT(seen_, ElementsAre("first"));
}

TEST_F(SchedulerTest, DescriptorIsCalledWhileReadyForWhatItIsWatchedFor) {
  EventFd const event(1);
  int readable = 0;
  int writable = 0;
  auto const id = scheduler_->descriptorIs(event.fd(), kReadable, [&](Readiness ready) {
    readable += ready.readable ? 1 : 0;
    writable += ready.writable ? 1 : 0;
    std::uint64_t value;
    ASSERT_EQ(::read(event.fd(), &value, sizeof value), 8);
  });
  turn();
  turn();
  EXPECT_EQ(readable, 1);
  EXPECT_EQ(writable, 0);
  EXPECT_THROW(scheduler_->interestIs(id + 1000, kReadable), Dovel::RuntimeException);
  scheduler_->descriptorDel(id);
  scheduler_->descriptorDel(id);
}

TEST_F(SchedulerTest, InterestCanBeChanged) {
  EventFd const event(0);
  int calls = 0;
  auto const id = scheduler_->descriptorIs(event.fd(), kReadable,
                                           [&](Readiness ready) { calls += ready.writable ? 1 : 0; });
  turn();
  EXPECT_EQ(calls, 0);
  scheduler_->interestIs(id, {.writable = true});
  turn();
  EXPECT_EQ(calls, 1);
}

TEST_F(SchedulerTest, HangUpOfAPeerIsTold) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  bool failed = false;
  scheduler_->descriptorIs(ends[0], {}, [&](Readiness ready) { failed = ready.failed; });
  turn();
  EXPECT_FALSE(failed);
  ::close(ends[1]);
  turn();
  EXPECT_TRUE(failed);
  ::close(ends[0]);
}

TEST_F(SchedulerTest, DescriptorsRemovedByACallbackAreNotCalledAnyMore) {
  EventFd const a(1);
  EventFd const b(1);
  TaskSchedulerRoot::Id ids[2];
  int calls = 0;
  auto const removeBoth = [&](Readiness) {
    ++calls;
    for (auto const id : ids) scheduler_->descriptorDel(id);
  };
  ids[0] = scheduler_->descriptorIs(a.fd(), kReadable, removeBoth);
  ids[1] = scheduler_->descriptorIs(b.fd(), kReadable, removeBoth);
  turn();
  turn();
  EXPECT_EQ(calls, 1);
}

TEST_F(SchedulerTest, NumberReusedInTheSameTurnDoesNotGetTheOldEvent) {
  EventFd const a(1);
  int const first = ::eventfd(1, EFD_NONBLOCK);
  TaskSchedulerRoot::Id firstId = 0;
  int reused = -1;
  // Whichever of the two is called first closes the other's descriptor and opens another with the same
  // number.
  TaskSchedulerRoot::Id const aId = scheduler_->descriptorIs(a.fd(), kReadable, [&](Readiness) {
    if (reused >= 0) return;
    scheduler_->descriptorDel(firstId);
    ::close(first);
    reused = ::eventfd(0, EFD_NONBLOCK);
    scheduler_->descriptorIs(reused, kReadable, [this](Readiness) { seen_.push_back("stale event"); });
  });
  firstId = scheduler_->descriptorIs(first, kReadable, [](Readiness) {});
  turn();
  scheduler_->descriptorDel(aId);
  turn();
  EXPECT_EQ(reused, first);
  EXPECT_THAT(seen_, IsEmpty());
  ::close(reused);
}

TEST_F(SchedulerTest, DescriptorThatCannotBeWatchedIsRefused) {
  EXPECT_THROW(scheduler_->descriptorIs(-1, kReadable, [](Readiness) {}), Dovel::RuntimeException);
}

TEST_F(SchedulerTest, CriticalCallRunsWhatIsDueAtCriticalPriorityOnly) {
  EventFd const event(1);
  scheduler_->descriptorIs(event.fd(), kReadable, [this](Readiness) { seen_.push_back("descriptor"); });
  scheduler_->post(Priority::normal, note("normal"));
  scheduler_->post(Priority::background, note("background"));
  scheduler_->timerIs(0ms, 0ms, note("timer"));
  scheduler_->timerIs(0ms, 0ms, note("critical timer"), Priority::critical);
  scheduler_->timerIs(1h, 0ms, note("critical, not due"), Priority::critical);
  scheduler_->post(Priority::critical, note("critical"));
  scheduler_->runCriticalPriorityTasks();
  EXPECT_THAT(seen_, ElementsAre("critical", "critical timer"));
}

TEST_F(SchedulerTest, CriticalTaskThatPostsAnotherEndsTheCallAllTheSame) {
  int runs = 0;
  TaskSchedulerRoot::Task again = [&] {
    ++runs;
    scheduler_->post(Priority::critical, again);
    scheduler_->timerIs(0ms, 0ms, note("timer"), Priority::critical);
    scheduler_->runCriticalPriorityTasks();
  };
  scheduler_->post(Priority::critical, again);
  scheduler_->runCriticalPriorityTasks();
  EXPECT_EQ(runs, 1);
  EXPECT_THAT(seen_, IsEmpty());
  scheduler_->runCriticalPriorityTasks();
  EXPECT_EQ(runs, 2);
  EXPECT_THAT(seen_, ElementsAre("timer"));
}

TEST_F(SchedulerTest, LongTaskThatYieldsLetsCriticalTasksIn) {
  scheduler_->post(Priority::normal, [this] {
    seen_.push_back("begin");
    scheduler_->post(Priority::critical, note("critical"));
    scheduler_->runCriticalPriorityTasks();
    seen_.push_back("end");
  });
  turn();
  EXPECT_THAT(seen_, ElementsAre("begin", "critical", "end"));
}

TEST_F(SchedulerTest, BackgroundTasksWaitForATurnWithNothingElse) {
  scheduler_->post(Priority::background, note("background 1"));
  scheduler_->post(Priority::background, note("background 2"));
  scheduler_->post(Priority::normal, note("normal"));
  turn();
  EXPECT_THAT(seen_, ElementsAre("normal"));
  turn();
  EXPECT_THAT(seen_, ElementsAre("normal", "background 1"));
  turn();
  EXPECT_THAT(seen_, ElementsAre("normal", "background 1", "background 2"));
}

void failWithoutStandardError() {
  ::close(STDERR_FILENO);
  auto const scheduler = Dovel::ptrIsImpl<TaskSchedulerRoot>();
  scheduler->post(Priority::normal, [] { throw std::runtime_error("no luck"); });
  scheduler->runOnce(0ms);
  std::_Exit(scheduler->failedCallbacks() == 1 ? 0 : 1);
}
TestSupport::ChildRole const failWithoutStandardErrorRole("failWithoutStandardError",
                                                          failWithoutStandardError);

TEST(Scheduler, ExceptionOfACallbackThatCannotBeToldDoesNotEndTheProcess) {
  auto const child = TestSupport::runChild("failWithoutStandardError");
  EXPECT_EQ(child.signal, 0);
  EXPECT_EQ(child.exitCode, 0);
}

TEST(Scheduler, ForkedChildHasOneOfItsOwn) {
  auto const parents = Dovel::schedulerRootDovel();
  pid_t const child = ::fork();
  if (child == 0) {
    auto const mine = Dovel::schedulerRootDovel();
    ::_exit(mine != parents && mine == Dovel::schedulerRootDovel() ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Dovel::schedulerRootDovel(), parents);
}

TEST_F(SchedulerTest, TimerOfTheLongestPeriodRunsOnce) {
  scheduler_->timerIs(0ms, TaskSchedulerRoot::Clock::duration::max(), note("once"));
  turn();
  turn();
  EXPECT_THAT(seen_, ElementsAre("once"));
}

TEST_F(SchedulerTest, ExceptionOfACallbackIsToldAndTheOthersStillRun) {
  testing::internal::CaptureStderr();
  scheduler_->post(Priority::critical, [] { throw std::runtime_error("no luck"); });
  scheduler_->post(Priority::critical, [] { throw 7; });
  scheduler_->post(Priority::critical, note("after"));
  scheduler_->runCriticalPriorityTasks();
  scheduler_->timerIs(0ms, 0ms, [] { throw std::runtime_error("late"); });
  turn();
  std::string const place = "[^ ]+ [0-9]+ TaskSchedulerRoot 0 runtime/TaskSchedulerRoot.cpp:[0-9]+ [^ ]+ ";
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              MatchesRegex(place + "a critical task failed: no luck\n" + place +
                           "a critical task failed: unknown exception\n" + place + "a timer failed: late\n"));
  EXPECT_THAT(seen_, ElementsAre("after"));
  EXPECT_EQ(scheduler_->failedCallbacks(), 3U);
  scheduler_->post(Priority::critical, note("still critical"));
  scheduler_->runCriticalPriorityTasks();
  EXPECT_THAT(seen_, ElementsAre("after", "still critical"));
}

TEST_F(SchedulerTest, PostFromOtherThreadsWakesTheLoopAndKeepsEachThreadsOrder) {
  constexpr int kPosts = 1000;
  std::vector<int> next(3, 0);
  int left = 3 * kPosts;
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPosts; ++i) {
        scheduler_->post(Priority::normal, [&, t, i] {
          EXPECT_EQ(next[t]++, i);
          if (--left == 0) scheduler_->stop();
        });
      }
    });
  }
  scheduler_->run();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(left, 0);
}

TEST_F(SchedulerTest, StopEndsALoopThatWaitsAndOneThatHasNotBegun) {
  scheduler_->stop();
  scheduler_->run();
  std::thread other([this] {
    std::this_thread::sleep_for(5ms);
    scheduler_->stop();
  });
  scheduler_->run();
  other.join();
}

TEST_F(SchedulerTest, CriticalCallOnAnotherThreadDoesNothingUntilThatThreadOwnsTheScheduler) {
  scheduler_->post(Priority::critical, note("critical"));
  std::thread([this] { scheduler_->runCriticalPriorityTasks(); }).join();
  EXPECT_THAT(seen_, IsEmpty());
  std::thread([this] {
    scheduler_->ownerIs();
    scheduler_->runCriticalPriorityTasks();
  }).join();
  EXPECT_THAT(seen_, ElementsAre("critical"));
}

TEST_F(SchedulerTest, OwnersCallsFromAnotherThreadAreAssertions) {
  EXPECT_DEATH(std::thread([this] { scheduler_->timerIs(0ms, 0ms, [] {}); }).join(), "does not own it");
  EXPECT_DEATH(
      {
        scheduler_->post(Priority::normal, [this] { turn(); });
        turn();
      },
      "turned from one of its callbacks");
}

TEST(SchedulerRoot, IsOneForTheProcessAndCountsItsUsers) {
  Dovel::Ptr<TaskSchedulerRoot> const first = Dovel::schedulerRootDovel();
  std::uint32_t const users = first->useCount();
  {
    Dovel::Ptr<TaskSchedulerRoot> const second = Dovel::schedulerRootDovel();
    EXPECT_EQ(second, first);
    EXPECT_EQ(first->useCount(), users + 1);
  }
  EXPECT_EQ(first->useCount(), users);
}

}  // namespace
