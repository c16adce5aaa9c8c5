#include "runtime/Detail/CopyBits.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "runtime/Detail/BitRange.h"
#include "tests/support/Seed.h"

namespace {

using Buffer = std::array<std::uint8_t, 24>;

bool bitOf(Buffer const& buffer, std::size_t bit) { return (buffer[bit / 8] >> bit % 8 & 1) != 0; }

void setBit(Buffer& buffer, std::size_t bit, bool on) {
  auto const mask = static_cast<std::uint8_t>(1U << bit % 8);
  buffer[bit / 8] = static_cast<std::uint8_t>(on ? buffer[bit / 8] | mask : buffer[bit / 8] & ~mask);
}

Buffer randomBuffer(std::mt19937_64& random) {
  Buffer buffer{};
  for (auto& byte : buffer) byte = static_cast<std::uint8_t>(random());
  return buffer;
}

TEST(CopyBits, MovesEachBitOfTheRangeAndNoOther) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  for (int round = 0; round < 20000; ++round) {
    Buffer const source = randomBuffer(random);
    Buffer target = randomBuffer(random);
    std::size_t const count = random() % 193;
    std::size_t const from = random() % (193 - count);
    std::size_t const to = random() % (193 - count);
    Buffer expected = target;
    for (std::size_t i = 0; i < count; ++i) setBit(expected, to + i, bitOf(source, from + i));
    Detail::copyBits(target.data(), target.size(), source.data(), source.size(), count, to, from);
    ASSERT_EQ(target, expected) << count << " bits from " << from << " to " << to;
  }
}

TEST(CopyBits, EndsTheProcessWhereARangeLeavesItsBuffer) {
  Buffer source{};
  Buffer target{};
  EXPECT_DEATH(Detail::copyBits(target.data(), 24, source.data(), 24, 9, 184, 0), "affirm failed");
  EXPECT_DEATH(Detail::copyBits(target.data(), 24, source.data(), 24, 9, 0, 184), "affirm failed");
}

template <unsigned Low, unsigned High, std::size_t Size>
void expectLikeCopyBits() {
  std::mt19937_64 random(TestSupport::seed());
  using Range = Detail::BitRange<Low, High, Size>;
  for (int round = 0; round < 200; ++round) {
    Buffer bytes = randomBuffer(random);
    Buffer expected = bytes;
    std::uint64_t const value = random();
    Detail::copyBits(expected.data(), Size, &value, sizeof value, High - Low + 1, Low, 0);
    Range::set(bytes.data(), value);
    ASSERT_EQ(bytes, expected) << "set " << Low << ".." << High << " of " << Size;
    std::uint64_t read = 0;
    Detail::copyBits(&read, sizeof read, bytes.data(), Size, High - Low + 1, 0, Low);
    ASSERT_EQ(Range::get(bytes.data()), read) << "get " << Low << ".." << High << " of " << Size;
  }
}

template <unsigned Low, std::size_t Size, unsigned... Offsets>
void expectAllHighs(std::integer_sequence<unsigned, Offsets...>) {
  (
      [] {
        if constexpr ((Low + Offsets) / 8 < Size) expectLikeCopyBits<Low, Low + Offsets, Size>();
      }(),
      ...);
}

TEST(BitRange, EqualsCopyBitsForEveryWidthAndOffset) {
  PRINT_SEED_ON_FAILURE();
  auto const widths = std::make_integer_sequence<unsigned, 64>();
  expectAllHighs<0, 12>(widths);
  expectAllHighs<1, 12>(widths);
  expectAllHighs<3, 15>(widths);
  expectAllHighs<7, 12>(widths);
  expectAllHighs<29, 15>(widths);
  expectAllHighs<58, 15>(widths);
  expectAllHighs<21, 4>(widths);
}

}  // namespace
