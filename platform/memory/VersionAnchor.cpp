#include "platform/memory/VersionAnchor.h"

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Mem {

void VersionAnchor::assertNotDefaultConstructed() const {
  DOVEL_ASSERT(offset != kDefaultOffset, "VersionAnchor", "the anchor marks no value");
}

void throwVersionMismatch(VersionAnchor const& anchor) {
  DOVEL_THROW(Dovel::CorruptionDetectedException, "VersionAnchor",
              "the value at offset {} has changed since version {}", anchor.offset, anchor.version);
}

}  // namespace Mem
