#include "bench/store/OtherProcess.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <stdexcept>

#include "bench/store/Processors.h"

namespace StoreBench {
namespace {

constexpr useconds_t kLook = 200;

[[noreturn]] void live(std::function<void(OtherProcess::Shared&)> const& life, OtherProcess::Shared& shared,
                       int processor, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent || !pinTo(processor)) ::_exit(1);
  try {
    life(shared);
    ::_exit(0);
  } catch (std::exception const& caught) {
    std::fprintf(stderr, "the other process: %s\n", caught.what());
  }
  ::_exit(1);
}

}  // namespace

OtherProcess::OtherProcess(std::function<void(Shared&)> const& life) {
  auto const processors = Processors::two();
  if (!processors || !pinTo(processors->measured))
    throw std::runtime_error("two processes need two processors");
  void* const memory =
      ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("mmap");
  shared_ = new (memory) Shared;
  pid_t const self = ::getpid();
  process_ = ::fork();
  if (process_ < 0) throw std::runtime_error("fork");
  if (process_ == 0) live(life, *shared_, processors->other, self);
}

OtherProcess::~OtherProcess() {
  shared_->phase = Phase::over;
  for (int looks = 0; process_ != 0; ++looks) {
    if (looks == 25'000) ::kill(process_, SIGKILL);
    if (::waitpid(process_, nullptr, WNOHANG) != 0) process_ = 0;
    ::usleep(kLook);
  }
  ::munmap(shared_, sizeof(Shared));
}

void OtherProcess::waitFor(Phase wanted) {
  while (shared_->phase != wanted) {
    if (process_ == 0 || ::waitpid(process_, nullptr, WNOHANG) != 0) {
      process_ = 0;
      throw std::runtime_error("the other process has failed");
    }
    ::usleep(kLook);
  }
}

void OtherProcess::Shared::waitFor(Phase wanted) const {
  while (phase != wanted) {
    // The other side may have failed and want to hear no more.
    if (phase == Phase::over) ::_exit(1);
    ::usleep(kLook);
  }
}

}  // namespace StoreBench
