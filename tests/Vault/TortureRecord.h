// The record of the torture: each word follows from its key and its version, so that any mix of two records
// shows. Plain values; any thread.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string_view>

#include "Vault/VaultReader.h"
#include "Vault/VaultWriter.h"
#include "runtime/Dovel/Format.h"
#include "tests/Vault/TortureHistory.h"

namespace Torture {

constexpr std::uint32_t mixed(std::uint64_t word) {
  word = (word ^ word >> 33) * 0xff51afd7ed558ccd;
  word = (word ^ word >> 33) * 0xc4ceb9fe1a85ec53;
  return static_cast<std::uint32_t>(word ^ word >> 33);
}

// Its hash is the same in every table, so that the order of records is known. Some keys share theirs.
struct Key {
  std::uint32_t number = 0;

  std::uint32_t hash(std::uint32_t /*seed*/) const { return mixed(number % kHashes); }
  static constexpr std::uint32_t kHashes = 1100;
  friend auto operator<=>(Key const&, Key const&) = default;
};

// Not a multiple of 8 bytes: the last word shares its cell with the hash.
struct Record {
  Key theKey{};
  std::array<std::uint32_t, 8> words{};  // the version first

  Key const& key() const { return theKey; }
  static std::string_view typeName() { return "Torture::Record"; }

  static Record of(Key key, Version version) {
    Record record{key, {version}};
    for (std::uint32_t at = 1; at < record.words.size(); ++at)
      record.words[at] = mixed(std::uint64_t{key.number} << 32 ^ std::uint64_t{version} << 4 ^ at);
    return record;
  }
  Version version() const { return words[0]; }
  bool isWhole() const { return words == of(theKey, version()).words; }
};
static_assert(sizeof(Record) == 36);

using Ops = Vault::OpsOf<OrloVault::ValWrap<Record, Key, &Record::key, false>>;
using Value = Ops::Value;
using Writer = Vault::VaultWriter<Ops>;
using Reader = Vault::VaultReader<Ops>;

// Where a key stands in the order of the table.
inline Walk::Place placeOf(Key key) {
  std::uint32_t const hash = key.hash(0);
  std::uint32_t reversed = 0;
  for (unsigned bit = 0; bit < 32; ++bit) reversed |= (hash >> bit & 1) << (31 - bit);
  return {reversed, key.number};
}

}  // namespace Torture

template <>
struct fmt::formatter<Torture::Key> : Dovel::PlainFormatter {
  auto format(Torture::Key const& key, fmt::format_context& context) const {
    return fmt::format_to(context.out(), "key{}", key.number);
  }
};
