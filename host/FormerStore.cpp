#include "host/FormerStore.h"

#include "Vault/StoreCheck.h"
#include "platform/switch/LoamAsicUtils/Constants.h"

namespace Host {

using Vault::StoreFiles;

Mem::RootPath shadowStorePath(std::string_view typeName, Hardware::Loam::FapRevision revision,
                              LoamAsicUtils::HwShadowKey key) {
  return {Dovel::Platform::getDebugHandler("FormerStore", true),
          LoamAsicUtils::Constants::shadowTblVaultPath(revision.shortForm(), Dovel::String(typeName),
                                                       key.toString()),
          true};
}

std::optional<FormerStore> formerStore(std::string_view table, std::string_view typeName,
                                       Hardware::Loam::FapRevision revision, LoamAsicUtils::HwShadowKey key) {
  Mem::RootPath const path = shadowStorePath(typeName, revision, key);
  if (!StoreFiles::standsIn(path)) return std::nullopt;
  StoreFiles const store(path, StoreFiles::Extent::whole);
  if (store.isLocked()) return std::nullopt;
  FormerStore former{std::string(table), key, 0, std::string(store.ownerProblem())};
  auto const report = checkStore(store.slots(), store.buckets(), store.generation(),
                                 Vault::StoredType::find(store.slots().typeName()));
  if (!report.sound()) {
    if (former.wipedBecause.empty()) former.wipedBecause = std::string(report.problems.front());
    return former;
  }
  former.entries = store.slots().occupiedSlots();
  if (former.entries == 0 && former.wipedBecause.empty()) return std::nullopt;
  return former;
}

}  // namespace Host
