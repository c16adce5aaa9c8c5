// What all tables are asked to do: records of 32 bytes with keys of 5 (a label of 20 bits and one bit more),
// in an order that is random but the same in every run. Plain values; one thread.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"

namespace StoreBench {

using Key = bcm88490_a0::MplsIsemHwEm::EntryKey;
using Row = std::array<std::uint32_t, 6>;

// Bytes as those of a table's record, so that they may be copied to one as they stand.
struct Record {
  Key key;
  Row row;
  friend bool operator==(Record const&, Record const&) = default;
};
static_assert(sizeof(Record) == 32 && sizeof(Record) == sizeof(bcm88490_a0::MplsIsemHwEm::Entry));

constexpr std::uint32_t kKeyBits = 21;

inline Key keyOf(std::uint32_t number) {
  return Key(Orlo::U20::fromBits(number >> 1), Orlo::U1::fromBits(static_cast<std::uint8_t>(number & 1)));
}

// Another record for the same key in each round, so that an overwrite can be told from none.
inline Record recordOf(std::uint32_t number, std::uint32_t round) {
  return {keyOf(number), {number, round, ~number, number ^ round, 0, 0}};
}

// The keys by their numbers.
struct Workload {
  std::vector<std::uint32_t> present;  // in the order in which they are put
  std::vector<std::uint32_t> visited;  // the same ones in another order
  std::vector<std::uint32_t> absent;   // as many others

  explicit Workload(std::uint32_t count) {
    std::vector<std::uint32_t> numbers(1u << kKeyBits);
    std::iota(numbers.begin(), numbers.end(), 0u);
    std::mt19937 random(1);
    std::shuffle(numbers.begin(), numbers.end(), random);
    present.assign(numbers.begin(), numbers.begin() + count);
    absent.assign(numbers.begin() + count, numbers.begin() + count + count);
    visited = present;
    std::shuffle(visited.begin(), visited.end(), random);
  }

  static Workload const& of(std::uint32_t count) {
    static std::map<std::uint32_t, Workload> made;
    return made.try_emplace(count, count).first->second;
  }
};

}  // namespace StoreBench
