// The rate limit of one log message. It is told the time, so it has no clock of its own.
// One thread at a time.
#pragma once

#include <chrono>
#include <cstdint>

#include "runtime/Dovel/Duration.h"

namespace Orlo {

class LogLimit {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // interval: length of a window; zero or less: every message passes but for `most`.
  // growth: a window in which messages were suppressed makes the next one longer by this factor, up to a day;
  //   one without makes the next one `interval` again. 1.0 or less: all windows have the same length.
  // perWindow: messages let through in one window; 0 means 1.
  // most: messages let through in the life of this process; 0 means no limit.
  LogLimit(Dovel::Duration interval, double growth, unsigned perWindow, unsigned most);

  struct Verdict {
    bool passes = false;
    bool isLast = false;           // it passes, and none will after it
    std::uint64_t suppressed = 0;  // messages held back in the window that has ended, to be told now
  };
  Verdict admit(Time now);

  // Messages held back and not told yet.
  std::uint64_t suppressed() const { return suppressed_; }

 private:
  Verdict pass();
  void openWindow(Time now);

  Dovel::Duration const interval_;
  double const growth_;
  unsigned const perWindow_;
  unsigned const most_;

  Dovel::Duration length_;
  Time end_ = Time::min();
  unsigned passedInWindow_ = 0;
  std::uint64_t passed_ = 0;
  std::uint64_t suppressed_ = 0;
};

}  // namespace Orlo
