#include "host/ProgressBar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace Host {
namespace {

constexpr unsigned kWidth = 40;
constexpr std::chrono::milliseconds kPeriod{100};

}  // namespace

// Short runs show none.
ProgressBar::ProgressBar() : terminal_(::isatty(STDERR_FILENO) == 1), next_(Clock::now() + kPeriod) {}

void ProgressBar::show(double done) {
  done_ = done;
  if (!terminal_ || Clock::now() < next_) return;
  next_ = Clock::now() + kPeriod;
  auto const filled = static_cast<unsigned>(done * kWidth);
  fmt::print(stderr, "\r[{}{}] {:3.0f}% {}", std::string(filled, '#'), std::string(kWidth - filled, ' '),
             done * 100, "|/-\\"[turns_++ % 4]);
  std::fflush(stderr);
  shown_ = true;
}

void ProgressBar::remove() {
  if (!shown_) return;
  fmt::print(stderr, "\r\033[K");
  std::fflush(stderr);
  shown_ = false;
}

}  // namespace Host
