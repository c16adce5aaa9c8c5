#include "platform/memory/Crc32c.h"

#include <array>

namespace Mem {
namespace {

// Of the polynomial 0x1edc6f41, lowest bit first.
constexpr std::array<std::uint32_t, 256> kTable = [] {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t value = byte;
    for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ ((value & 1) != 0 ? 0x82f63b78U : 0U);
    table[byte] = value;
  }
  return table;
}();

}  // namespace

std::uint32_t crc32c(void const* bytes, std::size_t size) {
  auto const* at = static_cast<unsigned char const*>(bytes);
  std::uint32_t value = ~std::uint32_t{0};
  for (std::size_t i = 0; i < size; ++i) value = kTable[(value ^ at[i]) & 0xff] ^ value >> 8;
  return ~value;
}

}  // namespace Mem
