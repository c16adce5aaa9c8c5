#include "Vault/MapDescriptor.h"

#include "platform/memory/DescriptorField.h"

namespace Vault {

MapDescriptor::MapDescriptor(unsigned int size) : CollectionDescriptor(size) { localMem = true; }

bool MapDescriptor::supportsReinitWith(Mem::CollectionDescriptor const& other, Dovel::String& reason) const {
  auto const* const map = dynamic_cast<MapDescriptor const*>(&other);
  if (map == nullptr) {
    reason = "the incoming descriptor is not one of a map";
    return false;
  }
  // The type comes by its name here; the base would tell its number.
  return Mem::Impl::sameField("type", vaultType(), map->vaultType(), reason) &&
         CollectionDescriptor::supportsReinitWith(other, reason) &&
         Mem::Impl::sameField("fixedSize", fixedSize, map->fixedSize, reason) &&
         Mem::Impl::sameField("dummyHerald", dummyHerald, map->dummyHerald, reason);
}

Dovel::String MapDescriptor::toString() const {
  struct Flag {
    char const* name;
    bool set;
  };
  Flag const flags[] = {
      {"localMem", localMem},
      {"useHeap", useHeap},
      {"fixedSize", fixedSize},
      {"shrink", shrink},
      {"shrinkBuckets", shrinkBuckets},
      {"noPrune", noPrune},
      {"dummyHerald", dummyHerald},
      {"trackMemory", trackMemory},
      {"criticalTaskCheck", criticalTaskCheck},
      {"keyNotifications", keyNotifications},
      {"captureNotifyValues", captureNotifyValues},
      {"prevValue", prevValue},
      {"asynchronous", asynchronous},
  };
  Dovel::String text =
      fmt::format("type:{} maxSize:{} coreDump:{}", vaultType(), maxSize, static_cast<unsigned>(coreDump));
  for (Flag const& flag : flags) {
    if (flag.set) text.append(" ").append(flag.name);
  }
  return text;
}

}  // namespace Vault
