// What the caller of an iteration keeps between two calls. A plain value.
#pragma once

#include <cstdint>

#include "runtime/Dovel/Format.h"

namespace Vault {

struct IterHint {
  // Of a hint that can't be used: the next call then goes by the key.
  static constexpr std::uint32_t kNoBucket = 0xffffffff;

  std::uint32_t sequence = 0;
  std::uint32_t slot = 0;
  std::uint32_t bucket = kNoBucket;
};

}  // namespace Vault

template <>
struct fmt::formatter<Vault::IterHint> : Dovel::PlainFormatter {
  auto format(Vault::IterHint const& hint, fmt::format_context& context) const {
    return fmt::format_to(context.out(), "slot {} of bucket {} at sequence {}", hint.slot, hint.bucket,
                          hint.sequence);
  }
};
