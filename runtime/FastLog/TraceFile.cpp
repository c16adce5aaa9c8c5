#include "runtime/FastLog/TraceFile.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Dovel/Rdtsc.h"
#include "runtime/Dovel/WriteSignals.h"
#include "runtime/FastLog/Registry.h"

namespace FastLog {
namespace {

constexpr std::uint64_t kCellsBetweenRefinements = 4096;
constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;

std::uint64_t nanoseconds(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * kNanosecondsPerSecond +
         static_cast<std::uint64_t>(time.tv_nsec);
}

// The space is taken before the file is mapped: a full disk is an error here, not a signal at some later
// message.
void* makeAndMap(std::string const& path, std::uint64_t bytes, char const*& step, int& error) {
  step = "make";
  int const fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
  if (fd < 0) {
    error = errno;
    return nullptr;
  }
  step = "take the disk space of";
  {
    Dovel::Impl::WriteSignals signals;
    error = ::posix_fallocate(fd, 0, static_cast<off_t>(bytes));
    signals.failedWith(error);
  }
  void* mapped = nullptr;
  if (error == 0) {
    step = "map";
    mapped = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED) {
      error = errno;
      mapped = nullptr;
    }
  }
  ::close(fd);
  if (mapped == nullptr) ::unlink(path.c_str());
  return mapped;
}

}  // namespace

TraceFile::TraceFile(std::string path, Size size)
    : path_(std::move(path)),
      size_{std::max<std::uint64_t>(size.cells, kMaxMessageCells), (size.descriptorBytes + 63) / 64 * 64},
      fileBytes_(kHeaderBytes + size_.descriptorBytes + size_.cells * sizeof(Cell)) {
  char const* step = nullptr;
  int error = 0;
  void* const mapped = makeAndMap(path_, fileBytes_, step, error);
  if (mapped == nullptr) {
    DOVEL_THROW(Dovel::MemoryResourceException, "TraceFile", "cannot {} the log file {}: {}", step, path_,
                std::strerror(error));
  }
  auto* const bytes = static_cast<std::byte*>(mapped);
  header_ = static_cast<FileHeader*>(mapped);
  descriptors_ = static_cast<std::uint64_t*>(static_cast<void*>(bytes + kHeaderBytes));
  ring_ = static_cast<Cell*>(static_cast<void*>(bytes + kHeaderBytes + size_.descriptorBytes));
  writeHeader();
  Registry::attach(*this);
}

TraceFile::~TraceFile() {
  Registry::detach(*this);
  ::munmap(header_, fileBytes_);
}

void TraceFile::writeHeader() {
  auto const rate = static_cast<std::uint64_t>(Dovel::Rdtsc::calibrationRate());
  startMonotonic_ = nanoseconds(CLOCK_MONOTONIC);
  startTicks_ = Dovel::Rdtsc::now();
  header_->version = kVersion;
  header_->descriptorOffset = kHeaderBytes;
  header_->descriptorBytes = size_.descriptorBytes;
  header_->ringOffset = kHeaderBytes + size_.descriptorBytes;
  header_->cellCount = size_.cells;
  header_->pid = static_cast<std::uint64_t>(::getpid());
  header_->startTime = nanoseconds(CLOCK_REALTIME);
  header_->startTicks = startTicks_;
  char name[17] = {};
  ::prctl(PR_GET_NAME, name);
  std::memcpy(header_->program, name, std::strlen(name));
  word(header_->ticksPerSecond).store(rate, std::memory_order_relaxed);
  word(header_->magic).store(kMagic, std::memory_order_release);
}

bool TraceFile::isEmpty() const {
  return word(header_->startedMessages).load(std::memory_order_relaxed) == 0;
}

void TraceFile::describe(std::span<std::uint64_t const> descriptor) {
  if (foreign_) return;
  std::uint64_t const used = word(header_->describedBytes).load(std::memory_order_relaxed);
  descriptorsFull_ = descriptorsFull_ || descriptor.size_bytes() > size_.descriptorBytes - used;
  if (descriptorsFull_) return;
  for (std::size_t i = 0; i < descriptor.size(); ++i) {
    word(descriptors_[used / 8 + i]).store(descriptor[i], std::memory_order_relaxed);
  }
  word(header_->describedBytes).store(used + descriptor.size_bytes(), std::memory_order_release);
}

void TraceFile::append(std::uint64_t const* words, std::size_t count) {
  if (foreign_) return;
  std::size_t const cells = (count + kPayloadWords - 1) / kPayloadWords;
  word(header_->startedMessages).fetch_add(1, std::memory_order_relaxed);
  std::uint64_t const first = word(header_->reservedCells).fetch_add(cells, std::memory_order_relaxed);
  for (std::size_t part = 0; part < cells; ++part) {
    std::size_t const begin = part * kPayloadWords;
    writeCell(first + part, part, cells, words + begin, std::min(kPayloadWords, count - begin));
  }
  if (first / kCellsBetweenRefinements != (first + cells) / kCellsBetweenRefinements) refineRate();
}

// Gives the cell up, and with it the message, where another writer is in it or has passed by: that takes a
// thread that was stopped for a whole turn of the ring.
void TraceFile::writeCell(std::uint64_t position, std::size_t part, std::size_t cells,
                          std::uint64_t const* words, std::size_t count) {
  Cell& cell = ring_[position % size_.cells];
  std::uint64_t const mine = Tag{position + 1, part, cells}.word();
  auto tag = word(cell.tag);
  std::uint64_t seen = tag.load(std::memory_order_relaxed);
  if (seen >= mine) return;  // a newer message, or one being written: kWriting is the highest bit
  if (!tag.compare_exchange_strong(seen, mine | Tag::kWriting, std::memory_order_acquire,
                                   std::memory_order_relaxed)) {
    return;
  }
  std::atomic_thread_fence(
      std::memory_order_release);  // the decoder that sees new payload sees kWriting as well
  for (std::size_t i = 0; i < count; ++i) word(cell.payload[i]).store(words[i], std::memory_order_relaxed);
  tag.store(mine, std::memory_order_release);
}

// The rate of the first milliseconds drifts away over hours; that of the whole run doesn't.
void TraceFile::refineRate() {
  std::uint64_t const elapsed = nanoseconds(CLOCK_MONOTONIC) - startMonotonic_;
  std::uint64_t const ticks = Dovel::Rdtsc::now() - startTicks_;
  if (elapsed < kNanosecondsPerSecond) return;
  double const rate = static_cast<double>(ticks) / static_cast<double>(elapsed) * 1e9;
  word(header_->ticksPerSecond).store(static_cast<std::uint64_t>(rate), std::memory_order_relaxed);
}

}  // namespace FastLog
