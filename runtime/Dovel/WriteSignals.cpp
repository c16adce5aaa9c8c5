#include "runtime/Dovel/WriteSignals.h"

#include <cerrno>
#include <ctime>

namespace Dovel::Impl {

WriteSignals::WriteSignals() {
  ::sigemptyset(&blocked_);
  ::sigaddset(&blocked_, SIGPIPE);
  ::sigaddset(&blocked_, SIGXFSZ);
  ::pthread_sigmask(SIG_BLOCK, &blocked_, &before_);
}

WriteSignals::~WriteSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

void WriteSignals::failedWith(int error) {
  int const number = error == EPIPE ? SIGPIPE : error == EFBIG ? SIGXFSZ : 0;
  // Where the caller holds the signal back itself, one more pending does no harm and may be the caller's own.
  if (number == 0 || ::sigismember(&before_, number) == 1) return;
  sigset_t one;
  ::sigemptyset(&one);
  ::sigaddset(&one, number);
  timespec const now{};
  ::sigtimedwait(&one, nullptr, &now);
}

}  // namespace Dovel::Impl
