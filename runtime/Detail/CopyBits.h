// Moves bit ranges between byte buffers. Bit 0 is the low bit of byte 0. Plain functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Detail {

// Copies nBits bits from bit srcBit of src to bit dstBit of dst and changes no other bit of dst. The byte
// counts are the sizes of the buffers; a range that does not fit them ends the process. The buffers must not
// overlap.
void copyBits(void* dst, std::size_t dstBytes, void const* src, std::size_t srcBytes, std::size_t nBits,
              std::size_t dstBit, std::size_t srcBit);

}  // namespace Detail
