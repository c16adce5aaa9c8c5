#include "runtime/Detail/CopyBits.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "runtime/Ancillary/Utility.h"

namespace Detail {
namespace {

static_assert(std::endian::native == std::endian::little, "the low byte of a word is its first");

// At most 57 bits, which with any bit offset lie within eight bytes.
constexpr std::size_t kStep = 57;

std::uint64_t loadBytes(std::uint8_t const* from, std::size_t count) {
  std::uint64_t word = 0;
  std::memcpy(&word, from, count);
  return word;
}

std::size_t bytesSpanned(std::size_t bit, std::size_t nBits) { return (bit % 8 + nBits + 7) / 8; }

}  // namespace

void copyBits(void* dst, std::size_t dstBytes, void const* src, std::size_t srcBytes, std::size_t nBits,
              std::size_t dstBit, std::size_t srcBit) {
  Ancillary::Utility::affirm(dstBit <= dstBytes * 8 && nBits <= dstBytes * 8 - dstBit);
  Ancillary::Utility::affirm(srcBit <= srcBytes * 8 && nBits <= srcBytes * 8 - srcBit);
  auto* const to = static_cast<std::uint8_t*>(dst);
  auto const* const from = static_cast<std::uint8_t const*>(src);
  while (nBits > 0) {
    std::size_t const step = std::min(nBits, kStep);
    std::uint64_t const mask = ~std::uint64_t{0} >> (64 - step);
    std::uint64_t const bits = loadBytes(from + srcBit / 8, bytesSpanned(srcBit, step)) >> srcBit % 8 & mask;

    std::size_t const toBytes = bytesSpanned(dstBit, step);
    std::uint64_t word = loadBytes(to + dstBit / 8, toBytes);
    word = (word & ~(mask << dstBit % 8)) | bits << dstBit % 8;
    std::memcpy(to + dstBit / 8, &word, toBytes);

    srcBit += step;
    dstBit += step;
    nBits -= step;
  }
}

}  // namespace Detail
