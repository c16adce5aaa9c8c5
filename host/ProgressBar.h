// How far a run is, on a terminal at standard error; nothing elsewhere. One thread.
#pragma once

#include <chrono>

namespace Host {

class ProgressBar {
 public:
  ProgressBar();
  ProgressBar(ProgressBar const&) = delete;
  ProgressBar& operator=(ProgressBar const&) = delete;
  ~ProgressBar() { remove(); }

  // 0 to 1. Draws ten times a second at most.
  void show(double done);
  // The same again: work goes on.
  void show() { show(done_); }
  // Before other output.
  void remove();

 private:
  using Clock = std::chrono::steady_clock;

  bool const terminal_;
  bool shown_ = false;
  double done_ = 0;
  unsigned turns_ = 0;
  Clock::time_point next_;
};

}  // namespace Host
