#include "platform/memory/Validation.h"

#include "runtime/Dovel/Format.h"

namespace Mem {

bool failValidation(Dovel::Platform::DebugHandler const& handler, char const* className,
                    Dovel::String const& text, Dovel::String& error) {
  error = text;
  if (handler.isOn(0)) Dovel::fmtrace(handler, 0, __FILE__, "validate", __LINE__, className, "{}", error);
  return false;
}

}  // namespace Mem
