// What a new shadow finds in the place of its store, looked at before the shadow empties it. Values; one
// thread.
#pragma once

#include <optional>
#include <string>

#include "Vault/StoreFiles.h"
#include "platform/switch/LoamAsicUtils/HwCommonTableBase.h"

namespace Host {

// Where a shadow of the table would keep its store, below the root of all stores.
Mem::RootPath shadowStorePath(std::string_view typeName, Hardware::Loam::FapRevision revision,
                              LoamAsicUtils::HwShadowKey key);

struct FormerStore {
  std::string table;
  LoamAsicUtils::HwShadowKey shadow;
  std::uint32_t entries = 0;
  // Why its files are thrown away; empty where they are used on.
  std::string wipedBecause;
};

// Nothing where there is no store, a sound one without entries, or one that somebody else writes.
std::optional<FormerStore> formerStore(std::string_view table, std::string_view typeName,
                                       Hardware::Loam::FapRevision revision, LoamAsicUtils::HwShadowKey key);

}  // namespace Host
