// A small record for tests of maps and dummies, where what is in a record doesn't matter.
#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/Hash.h"
#include "runtime/Vault/Ops.h"

namespace VaultTest {

struct MapKey {
  std::uint32_t number = 0;

  std::uint32_t hash(unsigned seed) const {
    Orlo::Hash state(seed);
    state.hashMix(number);
    return state.result();
  }
  friend auto operator<=>(MapKey const&, MapKey const&) = default;
};

struct MapRecord {
  MapKey key_;
  std::uint32_t data = 0;

  MapKey const& key() const { return key_; }
  static std::string_view typeName() { return "VaultTest::MapRecord"; }
};

using MapValue = OrloVault::ValWrap<MapRecord, MapKey, &MapRecord::key, false>;
using MapOps = Vault::OpsOf<MapValue>;

inline MapValue mapValue(std::uint32_t number, std::uint32_t data) {
  return MapRecord{.key_ = {number}, .data = data};
}

}  // namespace VaultTest

template <>
struct fmt::formatter<VaultTest::MapKey> : Dovel::PlainFormatter {
  auto format(VaultTest::MapKey const& key, fmt::format_context& context) const {
    return fmt::format_to(context.out(), "{}", key.number);
  }
};
