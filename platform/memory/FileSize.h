// The sizes of files. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Mem {

// The product; throws Dovel::RuntimeException where 64 bits don't hold it.
std::uint64_t multiplyOverflowCheck(std::uint64_t a, std::uint64_t b);

}  // namespace Mem

namespace Dovel::Util {

// The bytes of a file of so many elements behind a header, rounded to nothing. Throws
// Dovel::RuntimeException on overflow.
std::size_t fileSizeHelper(std::uint64_t count, std::uint64_t elementSize, std::uint64_t headerSize);

}  // namespace Dovel::Util
