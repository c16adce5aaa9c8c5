// The checksum CRC-32C. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Mem {

std::uint32_t crc32c(void const* bytes, std::size_t size);

}  // namespace Mem
