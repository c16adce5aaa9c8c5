#include "Vault/VaultStrictDummy.h"

namespace Vault::Impl {

void refuseUse(VaultInterfaceBase const& dummy, char const* operation, Dovel::String const& name,
               Dovel::String const& tail) {
  Dovel::fmassert(dummy.debugHandler(), "VaultStrictDummy", __FILE__, operation, __LINE__,
                  "invoked, name:{} rootpath:{}{}", name, dummy.rootPath().dirName(), tail);
}

void refuseUse(VaultInterfaceBase const& dummy, char const* operation, Dovel::String const& name,
               Dovel::String const& key, Dovel::String const& tail) {
  Dovel::fmassert(dummy.debugHandler(), "VaultStrictDummy", __FILE__, operation, __LINE__,
                  "invoked, name:{} rootpath:{} key:{}{}", name, dummy.rootPath().dirName(), key, tail);
}

}  // namespace Vault::Impl
