#include "OrloVault/Util.h"

#include <fmt/format.h>

#include "runtime/Dovel/Format.h"

namespace OrloSharedMem::Util {

Dovel::String fullName(Orlo::Entity const& parent, Dovel::String const& name) {
  Dovel::String const before =
      parent.parent() == nullptr ? parent.name() : fullName(*parent.parent(), parent.name());
  return fmt::format("{}/{}", before, name);
}

}  // namespace OrloSharedMem::Util
