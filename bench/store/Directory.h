// A fresh directory in shared memory for the files of one table; removed with all in it. One thread, and not
// the processes that are forked meanwhile.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>

namespace StoreBench {

class Directory {
 public:
  Directory() {
    static int made = 0;
    path_ = "/dev/shm/hwtables-bench-" + std::to_string(getpid()) + "-" + std::to_string(made++);
    std::filesystem::create_directory(path_);
  }
  Directory(Directory const&) = delete;
  Directory& operator=(Directory const&) = delete;
  ~Directory() {
    std::error_code ignored;
    if (isOwner_) std::filesystem::remove_all(path_, ignored);
  }

  // One that another process has made, and removes.
  static Directory existing(std::string path) { return Directory(std::move(path)); }

  std::string const& path() const { return path_; }
  std::string file(std::string const& name) const { return path_ + "/" + name; }

  // The memory that the files really hold: sparse files count by the pages that were touched.
  std::uint64_t bytes() const {
    std::uint64_t blocks = 0;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(path_)) {
      struct stat status;
      if (lstat(entry.path().c_str(), &status) == 0 && S_ISREG(status.st_mode))
        blocks += static_cast<std::uint64_t>(status.st_blocks);
    }
    return blocks * 512;
  }

 private:
  explicit Directory(std::string path) : path_(std::move(path)), isOwner_(false) {}

  std::string path_;
  bool isOwner_ = true;
};

}  // namespace StoreBench
