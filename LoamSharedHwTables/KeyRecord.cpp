#include "LoamSharedHwTables/KeyRecord.h"

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace LoamSharedHwTables {

void KeyBounds::throwOutOfRange(std::string_view typeName) const {
  DOVEL_THROW(Dovel::RangeException, "EntryKey", "{0}::{1} < {0}::{2} or > {0}::{3} not allowed", typeName,
              member, minName, maxName);
}

namespace Impl {

void appendMember(Dovel::String& text, std::string_view separator, std::string_view name,
                  std::uint64_t value) {
  text.append(separator).append(name).append(":").append(std::to_string(value));
}

}  // namespace Impl
}  // namespace LoamSharedHwTables
