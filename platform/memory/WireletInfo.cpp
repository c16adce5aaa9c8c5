#include "platform/memory/WireletInfo.h"

#include <fmt/format.h>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace SharedMem {

void WireletInfo::socketNameIs(Dovel::String const& name) {
  if (name.size() > kLongestName) {
    DOVEL_THROW(Dovel::RangeException, "WireletInfo", "a socket's name has at most {} bytes, not {}: {}",
                kLongestName, name.size(), name);
  }
  socketName_ = name;
}

Dovel::String WireletInfo::toString() const { return fmt::format("socketName:{}", socketName_); }

}  // namespace SharedMem
