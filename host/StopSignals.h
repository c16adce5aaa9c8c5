// SIGINT and SIGTERM as something to wait for, so that a run ends between two operations and in order. One
// object a process, on the thread that owns the process's scheduler, which runs while there is nothing to do.
#pragma once

namespace Host {

class StopSignals {
 public:
  // From now on neither signal ends the process.
  StopSignals();
  StopSignals(StopSignals const&) = delete;
  StopSignals& operator=(StopSignals const&) = delete;
  ~StopSignals();

  bool arrived() const;
  // Whether the descriptor has something to read, or has ended.
  static bool isReadable(int fd);
  // Waits until it has; false where a signal came first.
  bool waitReadable(int fd) const;
  // Waits for a signal.
  void wait() const;

 private:
  int const fd_;
};

}  // namespace Host
