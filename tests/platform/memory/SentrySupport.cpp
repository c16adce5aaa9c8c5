#include "tests/platform/memory/SentrySupport.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace TestSupport {
namespace {

std::string emberOf(std::uint32_t id) {
  std::string bytes(64, '\0');
  std::copy_n(reinterpret_cast<char const*>(&id), sizeof id, bytes.data());
  return bytes;
}

void setLimit(rlim_t descriptors) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = descriptors;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) throw std::runtime_error("setrlimit");
}

}  // namespace

bool SentryTest::turnUntil(std::function<bool()> const& isDone) {
  auto const end = TaskSchedulerRoot::Clock::now() + std::chrono::seconds(10);
  while (!isDone()) {
    if (TaskSchedulerRoot::Clock::now() > end) return false;
    scheduler_->runOnce(std::chrono::milliseconds(20));
  }
  return true;
}

void SentryTest::makeTableAt(std::string const& directory, std::uint32_t emberId) {
  std::filesystem::create_directories(directory);
  writeFile(directory + "/owner", "owner");
  writeFile(directory + "/ember", emberOf(emberId));
  writeFile(directory + "/control", "");
}

void SentryTest::makeTable(std::string const& table, std::uint32_t emberId) const {
  makeTableAt(dir_.file(table), emberId);
}

void SentryTest::removeTable(std::string const& table) const {
  std::filesystem::remove_all(dir_.file(table));
}

void SentryTest::writeEmber(std::string const& table, std::uint32_t emberId) const {
  writeFile(dir_.file(table) + "/ember", emberOf(emberId));
}

void SentryTest::storeEmberInPlace(std::string const& table, std::uint32_t emberId) const {
  int const file = ::open((dir_.file(table) + "/ember").c_str(), O_RDWR | O_CLOEXEC);
  void* const page = ::mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ASSERT_NE(page, MAP_FAILED);
  *static_cast<std::uint32_t*>(page) = emberId;
  ::munmap(page, 64);
  ASSERT_EQ(::futimens(file, nullptr), 0);
  ::close(file);
}

void SentryTest::replace(std::string const& file) const {
  std::string const path = dir_.file(file);
  std::filesystem::copy_file(path, path + ".new");
  std::filesystem::rename(path + ".new", path);
}

std::vector<std::string> inotifyDescriptors() {
  std::vector<std::string> found;
  for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the one that reads the directory
    if (std::filesystem::read_symlink(entry.path(), gone) == "anon_inode:inotify") {
      found.push_back(entry.path().filename());
    }
  }
  return found;
}

std::size_t watchedDirectories() {
  std::size_t count = 0;
  for (std::string const& descriptor : inotifyDescriptors()) {
    auto const lines = linesOf("/proc/self/fdinfo/" + descriptor);
    count += static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(), [](std::string const& line) { return line.starts_with("inotify wd:"); }));
  }
  return count;
}

NoDescriptors::NoDescriptors() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit_ = limit.rlim_cur;
  setLimit(0);
}

NoDescriptors::~NoDescriptors() { setLimit(limit_); }

}  // namespace TestSupport
