// What the machine itself takes: an array of records with a sequence each, whose index is known. Nothing is
// searched, nothing can come or go; no table that is read without a lock can cost less.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>

#include "bench/store/TwoProcessBench.h"

namespace {

using namespace StoreBench;

class SequenceArray {
 public:
  struct Cell {
    std::atomic<std::uint64_t> sequence;
    std::array<std::atomic<std::uint64_t>, sizeof(Record) / 8> words;
  };

  SequenceArray(Directory const& directory, std::uint32_t count) : size_(std::size_t{count} * sizeof(Cell)) {
    int const file = ::open(directory.file("array").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0 || ::posix_fallocate(file, 0, static_cast<off_t>(size_)) != 0)
      throw std::runtime_error("the array can't be had");
    void* const memory = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, file, 0);
    ::close(file);
    if (memory == MAP_FAILED) throw std::runtime_error("mmap");
    cells_ = static_cast<Cell*>(memory);
  }
  SequenceArray(SequenceArray const&) = delete;
  SequenceArray& operator=(SequenceArray const&) = delete;
  ~SequenceArray() { ::munmap(cells_, size_); }

  // As writer.
  void fill(Target const& target, Record const& record) { overwrite(target, record); }
  void filled() {}
  void overwrite(Target const& target, Record const& record) {
    Cell& cell = cells_[target.index];
    std::array<std::uint64_t, sizeof(Record) / 8> words;
    std::memcpy(words.data(), &record, sizeof record);
    std::uint64_t const sequence = cell.sequence.load(std::memory_order_relaxed);
    cell.sequence.store(sequence + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    for (std::size_t at = 0; at < words.size(); ++at)
      cell.words[at].store(words[at], std::memory_order_relaxed);
    cell.sequence.store(sequence + 2, std::memory_order_release);
  }

  // As reader.
  bool get(Target const& target, Record& out) {
    Cell const& cell = cells_[target.index];
    std::array<std::uint64_t, sizeof(Record) / 8> words;
    for (;;) {
      std::uint64_t const sequence = cell.sequence.load(std::memory_order_acquire);
      for (std::size_t at = 0; at < words.size(); ++at)
        words[at] = cell.words[at].load(std::memory_order_relaxed);
      std::atomic_thread_fence(std::memory_order_acquire);
      if ((sequence & 1) == 0 && cell.sequence.load(std::memory_order_relaxed) == sequence) break;
    }
    std::memcpy(static_cast<void*>(&out), words.data(), sizeof out);
    return true;
  }

 private:
  std::size_t size_;
  Cell* cells_ = nullptr;
};

struct Floor {
  using Writer = SequenceArray;
  using Reader = SequenceArray;
};

[[maybe_unused]] bool const registered = registerKind<Floor>("sequence_array");

}  // namespace
