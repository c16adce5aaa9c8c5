#include "platform/memory/Crc32c.h"

#include <array>
#include <cstring>

namespace Mem {
namespace {

using Table = std::array<std::uint32_t, 256>;

constexpr std::size_t kStride = 8;

// Of the polynomial 0x1edc6f41, lowest bit first. Table n is for a byte that n zeroes follow.
constexpr std::array<Table, kStride> kTables = [] {
  std::array<Table, kStride> tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t value = byte;
    for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ ((value & 1) != 0 ? 0x82f63b78U : 0U);
    tables[0][byte] = value;
  }
  for (std::size_t n = 1; n < kStride; ++n)
    for (std::size_t byte = 0; byte < 256; ++byte)
      tables[n][byte] = tables[0][tables[n - 1][byte] & 0xff] ^ tables[n - 1][byte] >> 8;
  return tables;
}();

// Eight bytes at a time: one at a time, checksums would take a good part of an attach.
std::uint32_t ofStride(std::uint32_t value, unsigned char const* at) {
  std::uint64_t word = 0;
  std::memcpy(&word, at, sizeof word);
  word ^= value;
  value = 0;
  for (std::size_t n = kStride; n-- > 0; word >>= 8) value ^= kTables[n][word & 0xff];
  return value;
}

}  // namespace

std::uint32_t crc32c(void const* bytes, std::size_t size) {
  auto const* at = static_cast<unsigned char const*>(bytes);
  std::uint32_t value = ~std::uint32_t{0};
  for (; size >= kStride; size -= kStride, at += kStride) value = ofStride(value, at);
  for (; size > 0; --size, ++at) value = kTables[0][(value ^ *at) & 0xff] ^ value >> 8;
  return ~value;
}

}  // namespace Mem
