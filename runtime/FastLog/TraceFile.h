// One mapped log file, written by this process. Messages are appended by any thread, without a lock and
// without a system call; the rest is called by the registry, under its lock. Rules of the file: Layout.h.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string>

#include "runtime/FastLog/Layout.h"

namespace FastLog {

class TraceFile {
 public:
  struct Size {
    std::uint64_t cells = 65536;
    std::uint64_t descriptorBytes = 1 << 20;
  };

  // Makes the file, which must not exist, with all of its disk space, and describes every site known so far
  // in it. Throws Dovel::MemoryResourceException, and leaves no file behind, where that fails.
  TraceFile(std::string path, Size size);
  explicit TraceFile(std::string path) : TraceFile(std::move(path), Size{}) {}
  TraceFile(TraceFile const&) = delete;
  TraceFile& operator=(TraceFile const&) = delete;
  // No thread may be logging any more. The file stays.
  ~TraceFile();

  // Whether a site's id may be used: all that its registration wrote is then seen by the caller.
  static bool msgIdInitialized(int const& msgId) {
    return std::atomic_ref<int>(const_cast<int&>(msgId)).load(std::memory_order_acquire) != 0;
  }

  std::string const& path() const { return path_; }
  // Whether no message has been started in it.
  bool isEmpty() const;

  // Appends a message of `count` words.
  void append(std::uint64_t const* words, std::size_t count);

  // Appends a descriptor. Once one has found no room, no later one is stored: a message of such a site is
  // still kept, without its text.
  void describe(std::span<std::uint64_t const> descriptor);

  // Makes all of the above do nothing: this process is a child of the file's owner.
  void disown() { foreign_ = true; }

 private:
  void writeHeader();
  void writeCell(std::uint64_t position, std::size_t part, std::size_t cells, std::uint64_t const* words,
                 std::size_t count);
  void refineRate();

  std::string const path_;
  Size const size_;
  std::uint64_t const fileBytes_;
  FileHeader* header_ = nullptr;
  std::uint64_t* descriptors_ = nullptr;
  Cell* ring_ = nullptr;
  std::uint64_t startTicks_ = 0;
  std::uint64_t startMonotonic_ = 0;
  bool descriptorsFull_ = false;
  bool foreign_ = false;
};

}  // namespace FastLog
