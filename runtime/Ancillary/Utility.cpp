#include "runtime/Ancillary/Utility.h"

#include "runtime/Dovel/Format.h"

namespace Ancillary::Utility {

void affirmFailed(std::source_location const& where) {
  Dovel::fmassert(nullptr, where.file_name(), where.function_name(), static_cast<int>(where.line()),
                  "affirm failed at {}:{} in {}", where.file_name(), where.line(), where.function_name());
}

}  // namespace Ancillary::Utility
