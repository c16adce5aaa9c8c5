// What stands in the place of a store's files.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <string>

#include "platform/memory/RootPath.h"
#include "tests/support/Files.h"

namespace TestSupport {

// A folder where stores live: in memory, where there is such a file system.
class StoreDir : public TempDir {
 public:
  StoreDir() : TempDir(::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") {}
};

inline Dovel::Platform::DebugHandler handler() { return Dovel::Platform::getDebugHandler("storetest", true); }

inline Mem::RootPath rootPath(std::string const& folder) { return {handler(), folder, true}; }

inline struct stat statusOf(std::string const& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status;
}

inline bool isThere(std::string const& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

inline void makeSocket(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  path.copy(address.sun_path, path.size());
  int const listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(listener);
}

// Everything that isn't a file, made at a path.
inline std::map<std::string, std::function<void(std::string const&)>> const& notFiles() {
  static std::map<std::string, std::function<void(std::string const&)>> const all{
      {"folder", [](std::string const& path) { EXPECT_EQ(::mkdir(path.c_str(), 0755), 0); }},
      {"pipe", [](std::string const& path) { EXPECT_EQ(::mkfifo(path.c_str(), 0644), 0); }},
      {"socket", makeSocket},
      {"link", [](std::string const& path) { EXPECT_EQ(::symlink("/etc/passwd", path.c_str()), 0); }},
      {"link to nothing", [](std::string const& path) { EXPECT_EQ(::symlink("nowhere", path.c_str()), 0); }},
  };
  return all;
}

}  // namespace TestSupport
