#include "platform/memory/FileSize.h"

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Mem {

std::uint64_t multiplyOverflowCheck(std::uint64_t a, std::uint64_t b) {
  std::uint64_t product = 0;
  if (__builtin_mul_overflow(a, b, &product)) {
    DOVEL_THROW(Dovel::RuntimeException, nullptr, "{} times {} is more than 64 bits hold", a, b);
  }
  return product;
}

}  // namespace Mem

namespace Dovel::Util {

std::size_t fileSizeHelper(std::uint64_t count, std::uint64_t elementSize, std::uint64_t headerSize) {
  std::uint64_t const elements = Mem::multiplyOverflowCheck(count, elementSize);
  std::size_t size = 0;
  if (__builtin_add_overflow(elements, headerSize, &size)) {
    DOVEL_THROW(RuntimeException, nullptr, "{} bytes and a header of {} are more than 64 bits hold", elements,
                headerSize);
  }
  return size;
}

}  // namespace Dovel::Util
