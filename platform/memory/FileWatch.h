// Tells its subscribers when to look at their directories again.
//
// 1. One inotify descriptor serves the process. It is made with the first subscription and gone with the
// last.
// 2. A directory that is not there is watched through its nearest ancestor that is.
// 3. A watch stands before the look that relies on it: what happens in between is in the look or an event.
// 4. A look is owed, at the latest, a second after a change. So nothing stays hidden for longer where events
//    were lost, where inotify is not to be had, or where an ancestor further up was renamed.
//
// Thread rule: all of it on the thread of Dovel::schedulerRootDovel(), which makes the calls. In a forked
// child the subscriptions of the parent are dead and only to be destroyed.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

#include "runtime/Dovel/Ptr.h"
#include "runtime/TaskSchedulerRoot.h"

namespace Mem {

class FileWatch : public std::enable_shared_from_this<FileWatch> {
  struct Place;

 public:
  using Look = std::function<void()>;
  using Period = std::chrono::milliseconds;

  class Subscription {
   public:
    // An absolute directory, which need not exist. It is watched when this returns, and the first look is
    // owed. A look may destroy the subscription; one that throws is owed again with the next change.
    Subscription(std::string_view directory, Look look);
    Subscription(Subscription const&) = delete;
    Subscription& operator=(Subscription const&) = delete;
    ~Subscription();

    // Owes a look, as if there had been an event.
    void lookSoon();

   private:
    std::shared_ptr<FileWatch> watch_;
    std::shared_ptr<Place> place_;
  };

  // How long a change without an event may stay hidden; for the tests. To be set while nobody has subscribed.
  static void safetyPeriodIs(Period period) { safetyPeriod_ = period; }

  FileWatch();
  FileWatch(FileWatch const&) = delete;
  FileWatch& operator=(FileWatch const&) = delete;
  ~FileWatch();

 private:
  // A subscriber's directory and where it is watched. The watched directory is the first `length` bytes of
  // the path; none stands for the root.
  struct Place : std::enable_shared_from_this<Place> {
    std::string directory;
    Look look;
    std::size_t length = 0;
    int watch = kNone;
    bool owed = false;

    bool isReached() const { return length == directory.size(); }
    std::size_t nextLength() const;
    std::string_view nextName() const;
  };

  static constexpr int kNone = -1;

  static std::shared_ptr<FileWatch> ofProcess();
  static void leaveToParent();

  void open();
  void close();
  void handleTimer();
  void readEvents();
  void handleEvent(int watch, std::uint32_t events, std::string_view name);

  void owe(Place& place);
  void oweAll();
  void lookAt(Place& place);

  void follow(Place& place);
  int watchPrefix(Place const& place, std::size_t length);
  void moveTo(Place& place, int watch, std::size_t length);
  void leave(Place& place);
  void leaveWatch(Place& place);

  static Period safetyPeriod_;
  static FileWatch* current_;

  Dovel::Ptr<TaskSchedulerRoot> scheduler_;
  TaskSchedulerRoot::Id timer_ = 0;
  TaskSchedulerRoot::Id descriptor_ = 0;
  int inotify_ = kNone;
  bool foreign_ = false;  // of the parent, in a forked child
  std::unordered_set<Place*> places_;
  std::map<int, std::unordered_set<Place*>> watches_;
};

}  // namespace Mem
