#include "Vault/VaultInterface.h"

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Vault {

void throwNoPermissionException(Dovel::Platform::DebugHandler const& handler, char const* className,
                                char const* function, char const* text) {
  Dovel::fmthrow<Dovel::NoPermissionException>(handler, 0, className, __FILE__, function, __LINE__, "{}",
                                               text);
}

void throwUnimplemented(Dovel::Platform::DebugHandler const& handler, char const* function) {
  Dovel::fmthrow<Dovel::NoPermissionException>(handler, 0, "VaultInterface", __FILE__, function, __LINE__,
                                               "{} is not possible on this kind of Vault table", function);
}

VaultInterfaceBase::~VaultInterfaceBase() = default;

void VaultInterfaceBase::scratchpadIs(std::uint64_t /*value*/) {
  throwNoPermissionException(debugHandler(), "VaultMap", "scratchpadIs",
                             "invalid attempt to write scratchpad as reader");
}

}  // namespace Vault
