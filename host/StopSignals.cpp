#include "host/StopSignals.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/TaskSchedulerRoot.h"

namespace Host {
namespace {

int blockedSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGINT);
  ::sigaddset(&signals, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  int const fd = ::signalfd(-1, &signals, SFD_CLOEXEC);
  if (fd < 0)
    DOVEL_THROW(Dovel::RuntimeException, "StopSignals", "cannot wait for signals: {}", std::strerror(errno));
  return fd;
}

// Turns the scheduler until one of the descriptors is ready.
void runUntilReadable(int first, int second) {
  auto const& scheduler = Dovel::schedulerRootDovel();
  auto const stop = [&](TaskSchedulerRoot::Readiness) { scheduler->stop(); };
  auto const firstId = scheduler->descriptorIs(first, {.readable = true}, stop);
  auto const secondId = second < 0 ? 0 : scheduler->descriptorIs(second, {.readable = true}, stop);
  scheduler->run();
  scheduler->descriptorDel(firstId);
  scheduler->descriptorDel(secondId);
}

}  // namespace

StopSignals::StopSignals() : fd_(blockedSignals()) {}
StopSignals::~StopSignals() { ::close(fd_); }

bool StopSignals::arrived() const { return isReadable(fd_); }

bool StopSignals::isReadable(int fd) {
  pollfd one{fd, POLLIN, 0};
  return ::poll(&one, 1, 0) > 0;
}

bool StopSignals::waitReadable(int fd) const {
  if (!arrived() && !isReadable(fd)) runUntilReadable(fd_, fd);
  return !arrived();
}

void StopSignals::wait() const {
  if (!arrived()) runUntilReadable(fd_, -1);
}

}  // namespace Host
