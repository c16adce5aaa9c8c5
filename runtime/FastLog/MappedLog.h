// A log file, mapped to be read, whose header has been found sound. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "runtime/FastLog/Layout.h"

namespace FastLog {

class MappedLog {
 public:
  // Throws DecodeException where the file is no log or is shorter than its header says.
  explicit MappedLog(std::string const& path);
  MappedLog(MappedLog const&) = delete;
  MappedLog& operator=(MappedLog const&) = delete;
  ~MappedLog();

  std::uint64_t cellCount() const { return cellCount_; }
  FileHeader const& header() const { return *header_; }

  // A word of the file that its process may be changing.
  static std::uint64_t load(std::uint64_t const& shared, std::memory_order order) {
    return std::atomic_ref<std::uint64_t>(const_cast<std::uint64_t&>(shared)).load(order);
  }

  // The descriptors stored so far, or what of them the area holds.
  std::vector<std::uint64_t> descriptors() const;

  // The tag of the cell of a position, as it is now.
  std::uint64_t tag(std::uint64_t position) const {
    return load(cell(position).tag, std::memory_order_acquire);
  }

  // The payload of the message that starts at a position and takes some cells; nothing unless all of them
  // hold it.
  std::optional<std::vector<std::uint64_t>> message(std::uint64_t position, std::size_t cells) const;

 private:
  Cell const& cell(std::uint64_t position) const { return ring_[position % cellCount_]; }
  bool holds(std::uint64_t position, std::size_t cells) const;

  std::uint64_t bytes_ = 0;
  std::uint64_t cellCount_ = 0;
  std::uint64_t descriptorBytes_ = 0;
  FileHeader const* header_ = nullptr;
  std::uint64_t const* descriptors_ = nullptr;
  Cell const* ring_ = nullptr;
};

}  // namespace FastLog
