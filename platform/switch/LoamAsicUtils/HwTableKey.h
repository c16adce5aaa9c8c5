// Names a table of a chip revision: the key of factories and of live tables. A plain value; any thread.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

#include "platform/switch/Hardware/FapRevision.h"

namespace LoamAsicUtils {

class HwTableKey {
 public:
  // What the seed of the table manager's collection is mixed with.
  static constexpr std::uint32_t kCollectionConstant = 0xae8ef3e1;

  HwTableKey() = default;
  HwTableKey(Dovel::String tableName, Hardware::Loam::FapRevision fapRevision)
      : tableName_(std::move(tableName)), fapRevision_(fapRevision) {}

  Dovel::String const& tableName() const { return tableName_; }
  Hardware::Loam::FapRevision fapRevision() const { return fapRevision_; }

  std::uint32_t hash(unsigned int seed) const;
  // "TcamHwDirect/Qumran3aA0"
  Dovel::String toString() const;

  friend bool operator==(HwTableKey const& a, HwTableKey const& b) = default;
  friend std::strong_ordering operator<=>(HwTableKey const& a, HwTableKey const& b) = default;
  friend std::ostream& operator<<(std::ostream& out, HwTableKey const& key) { return out << key.toString(); }

 private:
  Dovel::String tableName_;
  Hardware::Loam::FapRevision fapRevision_;
};

// The hash of the table manager's collection, for the standard containers.
struct HwTableKeyHash {
  std::size_t operator()(HwTableKey const& key) const;
};

}  // namespace LoamAsicUtils

template <>
struct fmt::formatter<LoamAsicUtils::HwTableKey> : Dovel::PlainFormatter {
  auto format(LoamAsicUtils::HwTableKey const& key, fmt::format_context& context) const {
    return write(key.toString(), context);
  }
};
