#include "Vault/VaultType.h"

namespace Vault {

Dovel::String toString(VaultType type) {
  switch (type) {
    case VaultType::writer:
      return "writer";
    case VaultType::shadow:
      return "shadow";
    case VaultType::reader:
      return "reader";
    case VaultType::keyShadow:
      return "keyShadow";
  }
  return fmt::format("{}", static_cast<unsigned>(type));
}

}  // namespace Vault
