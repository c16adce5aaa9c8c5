// A process beside the one that is measured, on a processor of its own, and the words by which the two agree
// on what they are at. One thread.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>

namespace StoreBench {

// What the other process is asked to do, or says that it does.
enum class Phase : int { beginning, filled, running, stopping, stopped, over };

class OtherProcess {
 public:
  // What the two share. Words that only one of them writes stand on lines of their own.
  struct Shared {
    alignas(64) std::atomic<Phase> phase{Phase::beginning};
    alignas(64) std::atomic<std::uint64_t> done{0};  // operations of the other process
    // How far the writer came: all records are of this round up to the position, and of the one before from
    // there on.
    alignas(64) std::atomic<std::uint32_t> round{0};
    std::atomic<std::uint32_t> position{0};
    std::atomic<bool> isWrong{false};  // the other process was told something that isn't so

    void waitFor(Phase wanted) const;
  };

  // Forks. Nothing that the two use may be open yet. Throws std::runtime_error, with one processor too.
  explicit OtherProcess(std::function<void(Shared&)> const& life);
  OtherProcess(OtherProcess const&) = delete;
  OtherProcess& operator=(OtherProcess const&) = delete;
  // Says Phase::over and waits for the end, or kills.
  ~OtherProcess();

  Shared& shared() const { return *shared_; }
  // Throws std::runtime_error where the process has ended instead.
  void waitFor(Phase wanted);

 private:
  Shared* shared_;
  pid_t process_ = 0;
};

}  // namespace StoreBench
