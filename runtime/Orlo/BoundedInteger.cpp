#include "runtime/Orlo/BoundedInteger.h"

#include "runtime/Dovel/Format.h"

namespace Orlo::Impl {

void throwOutOfRange(unsigned width) {
  int const digits = width < 8 ? 2 : width < 16 ? 4 : width < 32 ? 8 : 16;
  std::uint64_t const max = (std::uint64_t{1} << width) - 1;
  DOVEL_THROW(Dovel::RangeException, "U", "U{}::value < 0 or > 0x{:0{}x} not allowed", width, max, digits);
}

}  // namespace Orlo::Impl
