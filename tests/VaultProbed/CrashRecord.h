// The records of the crash tests: long enough that a page holds two, with few words that differ, and keys
// whose hashes are chosen so that they collide. Plain values.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string_view>

#include "runtime/Dovel/Format.h"
#include "runtime/OrloVault/ValWrap.h"
#include "runtime/Vault/Ops.h"

namespace CrashTests {

struct CrashKey {
  std::uint32_t id = 0;

  // Keys 0 and 1 can't be told apart by their hash, 2 shares their bucket until there are four, and 3 is in
  // another one as soon as there are two. The seed, which differs from run to run, has no say.
  std::uint32_t hash(std::uint32_t /*seed*/) const {
    constexpr std::array<std::uint32_t, 4> kHashes{8, 8, 10, 5};
    return id < kHashes.size() ? kHashes[id] : id * 0x9e3779b1U;
  }
  friend auto operator<=>(CrashKey const&, CrashKey const&) = default;
};

template <std::uint32_t Bytes>
class CrashRecord {
 public:
  CrashRecord() = default;
  CrashRecord(CrashKey key, std::uint32_t version) : key_(key) { words_[kMiddle] = words_[kLast] = version; }

  static std::string_view typeName() { return "CrashRecord"; }
  CrashKey const& entryKey() const { return key_; }
  std::uint32_t version() const { return words_[kMiddle]; }
  friend bool operator==(CrashRecord const&, CrashRecord const&) = default;

 private:
  static constexpr std::size_t kLast = Bytes / 4 - 2;
  static constexpr std::size_t kMiddle = kLast / 2;

  CrashKey key_;
  std::array<std::uint32_t, kLast + 1> words_{};
};

template <std::uint32_t Bytes>
using CrashOps =
    Vault::OpsOf<OrloVault::ValWrap<CrashRecord<Bytes>, CrashKey, &CrashRecord<Bytes>::entryKey, false>>;

}  // namespace CrashTests

template <>
struct fmt::formatter<CrashTests::CrashKey> : Dovel::PlainFormatter {
  auto format(CrashTests::CrashKey key, fmt::format_context& context) const {
    return fmt::format_to(context.out(), "{}", key.id);
  }
};
