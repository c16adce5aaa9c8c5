// The hash of keys. Its results are part of the store's file format: every process that shares a store
// computes the same, on every machine, so the constants and steps below never change without a new format
// version. Plain values without shared state; any thread.
#pragma once

#include <cstdint>
#include <type_traits>

namespace Orlo {

class Hash {
 public:
  // A state from a seed and two further words.
  constexpr explicit Hash(std::uint32_t seed, std::uint32_t second = 0, std::uint32_t third = 0)
      : state_(fold((std::uint64_t{third} << 32 | seed) ^ kStart, kMultiplier + second)) {}

  // Mixes one member in, by its value whatever its width.
  template <class Integer>
    requires std::is_unsigned_v<Integer>
  constexpr void hashMix(Integer member) {
    state_ = fold(state_ ^ member, kMultiplier);
  }

  // 32 bits of which the low ones choose buckets and the high ones tell keys apart: both ends are mixed.
  constexpr std::uint32_t result() const {
    std::uint64_t const mixed = (state_ ^ state_ >> 29) * kFinish;
    return static_cast<std::uint32_t>(mixed >> 32);
  }

 private:
  static constexpr std::uint64_t kStart = 0x9e3779b97f4a7c15;
  static constexpr std::uint64_t kMultiplier = 0xd6e8feb86659fd93;
  static constexpr std::uint64_t kFinish = 0xff51afd7ed558ccd;

  __extension__ using Wide = unsigned __int128;

  // The multiplier is odd and never 0, so no member value can wipe the state out.
  static constexpr std::uint64_t fold(std::uint64_t a, std::uint64_t b) {
    Wide const product = Wide{a} * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  }

  std::uint64_t state_;
};

// The form in which a bounded integer enters the hash: its bare number.
template <class Bounded>
constexpr auto hashSingleAttr(Bounded const& member) {
  if constexpr (std::is_unsigned_v<Bounded>) {
    return member;
  } else {
    return member.value();
  }
}

namespace HashHelper {

// The seed that local (not stored) hash maps start from; each map type mixes in a constant of its own.
constexpr std::uint32_t hashSeed32() { return 0x5bd1e995; }

}  // namespace HashHelper
}  // namespace Orlo
