#include "platform/switch/LoamAsicUtils/Constants.h"

#include <fmt/format.h>

namespace LoamAsicUtils::Constants {

Dovel::String shadowTblVaultPath(Dovel::String const& revision, Dovel::String const& typeName,
                                 Dovel::String const& shadowKey) {
  std::string_view const type = typeName;
  auto const colons = type.rfind("::");
  return fmt::format("shadow/{}/{}/{}", revision,
                     colons == std::string_view::npos ? type : type.substr(colons + 2), shadowKey);
}

}  // namespace LoamAsicUtils::Constants
