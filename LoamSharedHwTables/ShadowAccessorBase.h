// What shadow accessors of all families do: mounts, traces, and the store. See ShadowAccessor.h.
#pragma once

#include <type_traits>

#include "OrloVault/EntityManager.h"
#include "platform/switch/LoamAsicUtils/Constants.h"
#include "platform/switch/LoamAsicUtils/HwShadowBase.h"
#include "platform/switch/Statebase/EntityManager.h"
#include "runtime/Asic/GracefulAssert.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {

template <class Shadow>
class ShadowAccessorBase {
 public:
  explicit ShadowAccessorBase(Shadow* shadow) : shadow_(*shadow) {}

  // Mounts the shadow's store and returns it; null where something else is mounted in its place.
  template <class EntryStorage>
  Dovel::Ptr<EntryStorage> mountVault() const {
    OrloVault::MountInfo info(OrloVault::OrloVaultType::writer);
    Dovel::String const path = vaultPath();
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", "shadowPath: {}", path);
    info.collectionInfoIs({"entryColl", kCollectionSize, false, path});
    auto& manager = entityManager();
    Dovel::String const entityName = Dovel::String(shadow_.tableTypeName()).append("::Shadow::EntryStorage");
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", "shadowPath: {} entityName {} hwTableName {}",
                path, entityName, shadow_.tableTypeName());
    manager.getMountGroup().mount(path, entityName, info);
    return Dovel::ptrDynamicCast<EntryStorage>(manager.getEntity(path));
  }

  template <class EntryStorage>
  void unmountVault() const {
    Dovel::String const path = vaultPath();
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", "shadowPath: {}  ", path);
    entityManager().doUnmount(path);
  }

 protected:
  static Orlo::TraceHandle const& _defaultTraceHandle() {
    static Orlo::TraceHandle const handle(channelName(), false);
    return handle;
  }

  bool isApplicable(Sluice::Fapmask const& applicable, Sluice::Fapmask const& fapmask) const {
    if (!isEq(applicable, Sluice::Fapmask())) return true;
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor",
                " hwShadowKey: {} not applicable for downloadFapmask: {}", shadow_.hwShadowKey(), fapmask);
    return false;
  }

  auto& storage() const {
    ASIC_GRACEFUL_ASSERT(shadow_.entryStorage() != nullptr, "entryStorage", "shadow {} has no store",
                         shadow_.name());
    return *shadow_.entryStorage();
  }

  Shadow& shadow_;

 private:
  // A soft maximum, the same for all tables: past it a store grows in smaller steps.
  static constexpr std::uint32_t kCollectionSize = 512;

  static Dovel::String channelName() {
    Dovel::String name(std::is_const_v<Shadow> ? "const " : "");
    return name.append(Shadow::typeName()).append("::Shadow");
  }
  Dovel::String vaultPath() const {
    return Constants::shadowTblVaultPath(shadow_.fapRevision().shortForm(), shadow_.tableTypeName(),
                                         shadow_.hwShadowKey().toString());
  }
  OrloSharedMem::EntityManager& entityManager() const {
    return OrloSharedMem::EntityManager::getEntityManager(shadow_.entityManager()->systemName(),
                                                          shadow_.entityManager()->readOnly());
  }
};

}  // namespace LoamAsicUtils
