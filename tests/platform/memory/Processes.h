// Other processes, for what one alone can't show.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "tests/support/Files.h"

namespace TestSupport {

// Exit code of a child that lacks the rights for what its test needs.
constexpr int kNoRights = 77;

// In a child, where a failed expectation of GoogleTest would not be seen.
inline void must(bool condition, char const* what) {
  if (condition) return;
  std::fputs(what, stderr);
  ::_exit(1);
}
#define MUST(condition) ::TestSupport::must(condition, #condition " ")

pid_t forked(auto&& body) {
  pid_t const pid = ::fork();
  if (pid == 0) {
    body();
    ::_exit(0);
  }
  return pid;
}

inline int waitedFor(pid_t pid) {
  int status = 0;
  ::waitpid(pid, &status, 0);
  return status;
}

// Two processes tell each other where they are, or that they are gone.
class Signpost {
 public:
  Signpost() { EXPECT_EQ(::pipe2(ends_, O_CLOEXEC), 0); }
  Signpost(Signpost const&) = delete;
  Signpost& operator=(Signpost const&) = delete;
  ~Signpost() {
    stopWaiting();
    stopTelling();
  }

  void tell() const { MUST(::write(ends_[1], "x", 1) == 1); }
  // False where all who could tell are gone.
  bool wait() const {
    char byte = 0;
    return ::read(ends_[0], &byte, 1) == 1;
  }
  void stopTelling() { close(ends_[1]); }
  void stopWaiting() { close(ends_[0]); }

 private:
  static void close(int& end) {
    if (end >= 0) ::close(end);
    end = -1;
  }

  int ends_[2]{-1, -1};
};

// In a child: mounts a file system at a folder that nobody else sees it in. Exits where it has no right to.
inline void mountPrivately(char const* type, char const* options, std::string const& folder) {
  uid_t const user = ::getuid();
  if (::unshare(CLONE_NEWNS) != 0) {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) ::_exit(kNoRights);
    writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
  }
  bool const mounted = ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                       ::mount(type, folder.c_str(), type, 0, options) == 0;
  if (!mounted) ::_exit(kNoRights);
}

// In a child: goes on as a user who owns nothing.
inline void becomeNobody() {
  constexpr uid_t kNobody = 65534;
  if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) ::_exit(kNoRights);
}

}  // namespace TestSupport
