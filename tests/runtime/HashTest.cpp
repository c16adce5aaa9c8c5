#include "runtime/Orlo/Hash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr unsigned kKeys = 65536;

template <class... Members>
std::uint32_t hashOf(std::uint32_t seed, Members... members) {
  Orlo::Hash state(seed);
  (state.hashMix(members), ...);
  return state.result();
}

// How far the bucket counts are from those of random hashes, in standard deviations of the chi-square
// statistic.
template <class HashOfIndex>
double excessOfBuckets(unsigned bits, bool highBits, HashOfIndex hashOfIndex) {
  std::vector<unsigned> buckets(std::size_t{1} << bits);
  for (std::uint32_t i = 0; i < kKeys; ++i) {
    std::uint32_t const hash = hashOfIndex(i);
    ++buckets[highBits ? hash >> (32 - bits) : hash & (buckets.size() - 1)];
  }
  double const expected = double(kKeys) / double(buckets.size());
  double chiSquare = 0;
  for (unsigned const count : buckets) chiSquare += (count - expected) * (count - expected) / expected;
  auto const freedom = double(buckets.size() - 1);
  return (chiSquare - freedom) / std::sqrt(2 * freedom);
}

template <class HashOfIndex>
void expectGoodSpread(char const* shape, HashOfIndex hashOfIndex) {
  for (std::uint32_t const seed : {0U, 1U, 0x12345678U}) {
    for (unsigned const bits : {8U, 10U, 14U, 16U}) {
      for (bool const high : {false, true}) {
        EXPECT_LT(excessOfBuckets(bits, high, [&](std::uint32_t i) { return hashOfIndex(seed, i); }), 4.5)
            << shape << ", " << bits << (high ? " high" : " low") << " bits, seed " << seed;
      }
    }
  }
}

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;

TEST(Hash, SpreadsSequentialKeysOfEveryShapeOverBuckets) {
  expectGoodSpread("label and bottom of stack", [](U32 seed, U32 i) { return hashOf(seed, i, U8{1}); });
  expectGoodSpread("labels in steps of 16", [](U32 seed, U32 i) { return hashOf(seed, i * 16, U8{0}); });
  expectGoodSpread("value", [](U32 seed, U32 i) { return hashOf(seed, i); });
  expectGoodSpread("array and row",
                   [](U32 seed, U32 i) { return hashOf(seed, static_cast<U8>(i >> 12), i & 4095); });
  expectGoodSpread("domain and VLAN", [](U32 seed, U32 i) {
    return hashOf(seed, static_cast<U16>(i >> 12), static_cast<U16>(i & 4095));
  });
  expectGoodSpread("VLAN, name space, forwarding domain",
                   [](U32 seed, U32 i) { return hashOf(seed, static_cast<U16>(i & 4095), U16{3}, i >> 4); });
  expectGoodSpread("tunnel, /24 addresses, VRF",
                   [](U32 seed, U32 i) { return hashOf(seed, U8{3}, 0x0a000000 + (i << 8), U16{7}); });
}

TEST(Hash, FlipsHalfOfAllOutputBitsForEachBitOfAKey) {
  constexpr int kRounds = 20000;
  std::mt19937_64 random(1);
  std::vector<std::vector<int>> flips(21, std::vector<int>(32));
  for (int round = 0; round < kRounds; ++round) {
    auto const label = static_cast<U32>(random() & 0xfffff);
    auto const bottom = static_cast<U8>(random() & 1);
    for (unsigned bit = 0; bit < 21; ++bit) {
      U32 const other =
          bit < 20 ? hashOf(5U, label ^ 1U << bit, bottom) : hashOf(5U, label, static_cast<U8>(bottom ^ 1));
      U32 const changed = hashOf(5U, label, bottom) ^ other;
      for (unsigned out = 0; out < 32; ++out) flips[bit][out] += static_cast<int>(changed >> out & 1);
    }
  }
  double worst = 0;
  for (auto const& outputs : flips) {
    for (int const count : outputs) worst = std::max(worst, std::abs(double(count) / kRounds - 0.5));
  }
  EXPECT_LT(worst, 0.02);
}

TEST(Hash, IsThatOfTheStoreFormat) {
  EXPECT_EQ(Orlo::Hash(0).result(), 0xa1178254U);
  EXPECT_EQ(hashOf(0, U32{0}), 0xe95d6699U);
  EXPECT_EQ(hashOf(0, U32{1}), 0xdc6c07ffU);
  EXPECT_EQ(hashOf(7, U32{100}, U8{1}), 0x8d285fd3U);
  EXPECT_EQ(hashOf(0x12345678, U8{4}, U32{0x0a000001}, U16{500}), 0x7a422969U);
  EXPECT_EQ(hashOf(0, ~std::uint64_t{0}), 0x016ec4d1U);
  Orlo::Hash words(1, 2, 3);
  words.hashMix(U16{4});
  EXPECT_EQ(words.result(), 0x836447d6U);
}

TEST(Hash, DependsOnTheValueOfAMemberAndNotOnItsWidth) {
  EXPECT_EQ(hashOf(9, U8{200}), hashOf(9, std::uint64_t{200}));
  EXPECT_NE(hashOf(9, U8{1}, U8{2}), hashOf(9, U8{2}, U8{1}));
  EXPECT_NE(hashOf(9, U8{0}), hashOf(9, U8{0}, U8{0}));
}

}  // namespace
