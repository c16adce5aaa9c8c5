// Names one shadow of a table: for which FAP and which instance of the block it stands. A plain value; any
// thread.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

#include "platform/switch/Sluice/FapId.h"

namespace LoamAsicUtils {

// Which instance of a chip block.
using InstanceId = std::uint8_t;

class HwShadowKey {
 public:
  // What the seed of a table's shadow collection is mixed with.
  static constexpr std::uint32_t kCollectionConstant = 0x14c9ecf0;

  constexpr HwShadowKey() = default;
  // A null FAP names the one shadow that serves all FAPs of a table.
  constexpr HwShadowKey(Sluice::FapId fapId, InstanceId instanceId)
      : fapId_(fapId), instanceId_(instanceId) {}

  constexpr Sluice::FapId fapId() const { return fapId_; }
  constexpr InstanceId instanceId() const { return instanceId_; }

  std::uint32_t hash(unsigned int seed) const;
  // "<fap>-<instance>" in decimal. It names a file of the store, so it never changes.
  Dovel::String toString() const;

  friend constexpr bool operator==(HwShadowKey a, HwShadowKey b) = default;
  friend constexpr std::strong_ordering operator<=>(HwShadowKey a, HwShadowKey b) = default;
  friend std::ostream& operator<<(std::ostream& out, HwShadowKey key) { return out << key.toString(); }

 private:
  Sluice::FapId fapId_;
  InstanceId instanceId_ = 0;
};
static_assert(sizeof(HwShadowKey) == 2);

}  // namespace LoamAsicUtils

template <>
struct fmt::formatter<LoamAsicUtils::HwShadowKey> : Dovel::PlainFormatter {
  auto format(LoamAsicUtils::HwShadowKey key, fmt::format_context& context) const {
    return write(key.toString(), context);
  }
};
