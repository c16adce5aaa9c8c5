// The bucket file: a header of three shared words and one head, a link, for each bucket. See
// docs/store-format.md. Constants and plain functions; any thread.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "platform/memory/SharedWord.h"

namespace VaultCore {

struct BucketTable {
  static constexpr char kFileName[] = "buckets";
  static constexpr std::uint32_t kMagic = 0x6b627468;  // "htbk"
  static constexpr std::uint32_t kElementSize = 8;
  static constexpr std::size_t kHeaderSize = 24;
  static constexpr std::uint32_t kMaxBuckets = 1u << 30;

  // The cells of the header.
  static constexpr std::size_t kMagicCell = 0;       // magic 0, element size 4
  static constexpr std::size_t kGenerationCell = 1;  // generation 8, reserved 12
  static constexpr std::size_t kNumBucketsCell = 2;  // version 16, count 20
  static constexpr std::size_t kFirstBucketCell = 3;

  static_assert(kFirstBucketCell * sizeof(Mem::Cell) == kHeaderSize);

  // Says that the bucket is the last in iteration order.
  static constexpr std::uint32_t kNoBucket = 0xffffffff;

  // The bucket after this one when numbers are counted with their bits reversed, among 2^bits buckets.
  static constexpr std::uint32_t nextBucket(std::uint32_t bucket, unsigned bits) {
    // From the highest bit down, ones turn to zeroes and the first zero to one: an addition that carries
    // downwards.
    std::uint32_t const clearHigh = bits == 0 ? 0 : ~bucket & ((1u << bits) - 1);
    if (clearHigh == 0) return kNoBucket;
    unsigned const first = std::bit_width(clearHigh) - 1;
    return (bucket & ((1u << first) - 1)) | 1u << first;
  }
};

// All 32 bits in the opposite order.
[[gnu::always_inline]] constexpr std::uint32_t reverseBits(std::uint32_t word) {
  word = (word & 0x55555555) << 1 | (word & 0xaaaaaaaa) >> 1;
  word = (word & 0x33333333) << 2 | (word & 0xcccccccc) >> 2;
  word = (word & 0x0f0f0f0f) << 4 | (word & 0xf0f0f0f0) >> 4;
  return __builtin_bswap32(word);
}

}  // namespace VaultCore
