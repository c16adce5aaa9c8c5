// Names one generation of a store: every file of a store belongs to exactly one. A plain value.
#pragma once

#include <fmt/core.h>

#include <cstdint>

namespace SharedMem {

class EmberId {
 public:
  // No generation.
  EmberId() = default;
  // The counter in the upper half, the low half of the process number in the lower.
  EmberId(unsigned short counter, int pid)
      : value_(std::uint32_t{counter} << 16 | (static_cast<std::uint32_t>(pid) & 0xffffU)) {}
  explicit EmberId(std::uint32_t word) : value_(word) {}

  // One that this process has not given out before and, most likely, no other either. Any thread.
  static EmberId fresh();

  std::uint32_t value() const { return value_; }

  // The generation after this one, upper half plus one; never the value 0. It counts as given out, so that
  // fresh() can't bring a table back to it. Any thread.
  EmberId incremented() const;

  friend bool operator==(EmberId, EmberId) = default;

 private:
  std::uint32_t value_ = 0;
};

}  // namespace SharedMem

template <>
struct fmt::formatter<SharedMem::EmberId> {
  constexpr fmt::format_parse_context::iterator parse(fmt::format_parse_context& context) {
    return context.begin();
  }
  fmt::format_context::iterator format(SharedMem::EmberId id, fmt::format_context& context) const;
};
