// The first chip of a place, seen in its file from outside of the process that has it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "tests/host/Runs.h"

class ChipFileWatch {
 public:
  ChipFileWatch(ChipFileWatch const&) = delete;
  ChipFileWatch& operator=(ChipFileWatch const&) = delete;

  // How much of what the chip is to hold it lacks.
  virtual unsigned missingNow() const = 0;

  // Looks on until end(), in a thread of its own.
  void begin() {
    thread_ = std::thread([this] {
      while (!ending_) {
        missing_ += missingNow();
        ++rounds_;
      }
    });
  }
  void end() {
    ending_ = true;
    if (thread_.joinable()) thread_.join();
  }
  std::uint64_t missing() const { return missing_; }
  std::uint64_t rounds() const { return rounds_; }

 protected:
  explicit ChipFileWatch(RunPlace const& place) {
    int const file = ::open((place.chips() + "/fap-0.chip").c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_GE(file, 0);
    struct stat status {};
    ::fstat(file, &status);
    bytes_ = static_cast<std::size_t>(status.st_size);
    void* const mapped = ::mmap(nullptr, bytes_, PROT_READ, MAP_SHARED, file, 0);
    EXPECT_NE(mapped, MAP_FAILED);
    ::close(file);
    start_ = static_cast<std::byte*>(mapped);
  }
  // Whoever derives ends the thread first: it looks at what is theirs.
  ~ChipFileWatch() { ::munmap(start_, bytes_); }

  std::byte* start() const { return start_; }
  std::size_t bytes() const { return bytes_; }

 private:
  std::byte* start_ = nullptr;
  std::size_t bytes_ = 0;
  std::thread thread_;
  std::atomic<bool> ending_ = false;
  std::atomic<std::uint64_t> missing_ = 0;
  std::atomic<std::uint64_t> rounds_ = 0;
};
