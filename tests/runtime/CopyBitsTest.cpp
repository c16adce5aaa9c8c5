#include "runtime/Detail/CopyBits.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <system_error>
#include <vector>

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

// Bytes with nothing behind them: whoever touches the next one is killed.
class LastBytes {
 public:
  LastBytes() {
    void* const mapped =
        ::mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED || ::mprotect(static_cast<char*>(mapped) + kPage, kPage, PROT_NONE) != 0) {
      throw std::system_error(errno, std::generic_category(), "guard page");
    }
    pages_ = static_cast<std::uint8_t*>(mapped);
  }
  ~LastBytes() { ::munmap(pages_, 2 * kPage); }
  LastBytes(LastBytes const&) = delete;
  LastBytes& operator=(LastBytes const&) = delete;

  std::uint8_t* ofSize(std::size_t size) const { return pages_ + kPage - size; }

 private:
  static constexpr std::size_t kPage = 65536;
  std::uint8_t* pages_ = nullptr;
};

// A range without its type, so that the check is compiled once.
struct AnyRange {
  unsigned low;
  unsigned width;
  std::size_t size;
  std::uint64_t (*get)(std::uint8_t const*);
  void (*set)(std::uint8_t*, std::uint64_t);
};

void expectLikeCopyBits(AnyRange const& range, std::uint8_t* bytes, std::mt19937_64& random) {
  for (int round = 0; round < 200; ++round) {
    Buffer expected = randomBuffer(random);
    std::copy_n(expected.begin(), range.size, bytes);
    std::uint64_t const value = random();
    Detail::copyBits(expected.data(), range.size, &value, sizeof value, range.width, range.low, 0);
    range.set(bytes, value);
    ASSERT_TRUE(std::equal(bytes, bytes + range.size, expected.begin()))
        << "set " << range.width << " bits from " << range.low << " of " << range.size;
    std::uint64_t read = 0;
    Detail::copyBits(&read, sizeof read, bytes, range.size, range.width, 0, range.low);
    ASSERT_EQ(range.get(bytes), read) << range.width << " bits from " << range.low << " of " << range.size;
  }
}

// The ranges of every width from 1 to 64 that start at Low and lie within Size bytes.
template <unsigned Low, std::size_t Size, unsigned... Offsets>
void addRanges(std::vector<AnyRange>& ranges, std::integer_sequence<unsigned, Offsets...>) {
  auto const add = [&ranges]<unsigned Offset>() {
    if constexpr ((Low + Offset) / 8 < Size) {
      using Range = Detail::BitRange<Low, Low + Offset, Size>;
      ranges.push_back({Low, Offset + 1, Size, Range::get, Range::set});
    }
  };
  (add.template operator()<Offsets>(), ...);
}

TEST(BitRange, EqualsCopyBitsForEveryWidthAndOffsetAndTouchesNothingPastTheBuffer) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  auto const offsets = std::make_integer_sequence<unsigned, 64>();
  std::vector<AnyRange> ranges;
  addRanges<0, 12>(ranges, offsets);
  addRanges<1, 12>(ranges, offsets);
  addRanges<3, 15>(ranges, offsets);
  addRanges<7, 12>(ranges, offsets);
  addRanges<29, 15>(ranges, offsets);
  addRanges<58, 15>(ranges, offsets);
  addRanges<21, 4>(ranges, offsets);
  // Ranges whose word would reach past the end.
  addRanges<97, 15>(ranges, offsets);
  addRanges<58, 14>(ranges, offsets);
  LastBytes const memory;
  for (AnyRange const& range : ranges) expectLikeCopyBits(range, memory.ofSize(range.size), random);
}

}  // namespace
