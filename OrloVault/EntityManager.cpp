#include "OrloVault/EntityManager.h"

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace OrloSharedMem {
namespace {

class Root : public Dovel::Tracked<Root, Orlo::Entity> {
 public:
  explicit Root(Dovel::String const& name) : Dovel::Tracked<Root, Orlo::Entity>(name) {}
};

struct Registry {
  std::mutex mutex;
  std::map<std::string, EntityFactories::Factory, std::less<>> factories;
  // Never destroyed: what they have mounted may be used until the very end.
  std::map<std::pair<std::string, bool>, EntityManager*> managers;
};
Registry& registry() {
  static auto& made = *new Registry;
  return made;
}

}  // namespace

void EntityFactories::factoryIs(Dovel::String const& typeName, Factory factory) {
  std::lock_guard const lock(registry().mutex);
  registry().factories[std::string(typeName.view())] = std::move(factory);
}

EntityFactories::Factory EntityFactories::factory(Dovel::String const& typeName) {
  std::lock_guard const lock(registry().mutex);
  auto const found = registry().factories.find(typeName.view());
  return found == registry().factories.end() ? Factory() : found->second;
}

EntityManager::EntityManager(Dovel::String const& systemName)
    : Dovel::Debuggable("EntityManager", false),
      root_(Dovel::ptrIsImpl<Root>(systemName)),
      mountGroup_(*this) {}

EntityManager& EntityManager::getEntityManager(Dovel::String const& systemName, bool flag) {
  std::lock_guard const lock(registry().mutex);
  EntityManager*& manager = registry().managers[{std::string(systemName.view()), flag}];
  if (manager == nullptr) manager = new EntityManager(systemName);
  return *manager;
}

Dovel::Ptr<Orlo::Entity> MountGroup::mount(Dovel::String const& path, Dovel::String const& typeName,
                                           OrloVault::MountInfo const& info) {
  std::lock_guard const lock(mutex_);
  auto const found = mounted_.find(path.view());
  if (found != mounted_.end()) {
    ++found->second.users;
    if (found->second.typeName != typeName) {
      DOVEL_TRACE(manager_.debugHandler(), 0, "MountGroup", "{} is mounted as {}, and wanted as {}", path,
                  found->second.typeName, typeName);
    }
    return found->second.entity;
  }
  EntityFactories::Factory const factory = EntityFactories::factory(typeName);
  if (!factory) {
    DOVEL_THROW(Dovel::InvalidInitializeException, "MountGroup", "cannot mount {}: no type {} is known", path,
                typeName);
  }
  Dovel::Ptr<OrloVault::Entity> const entity = factory(path);
  entity->parentIs(manager_.root());
  entity->mountIs(info);
  mounted_.emplace(std::string(path.view()), Mounted{typeName, entity, 1});
  DOVEL_TRACE(manager_.debugHandler(), 5, "MountGroup", "mounted {} as {}", path, typeName);
  return entity;
}

Dovel::Ptr<Orlo::Entity> EntityManager::getEntity(Dovel::String const& path) const {
  std::lock_guard const lock(mountGroup_.mutex_);
  auto const found = mountGroup_.mounted_.find(path.view());
  return found == mountGroup_.mounted_.end() ? Dovel::Ptr<Orlo::Entity>() : found->second.entity;
}

bool EntityManager::doUnmount(Dovel::String const& path) {
  Dovel::Ptr<OrloVault::Entity> last;
  {
    std::lock_guard const lock(mountGroup_.mutex_);
    auto const found = mountGroup_.mounted_.find(path.view());
    if (found == mountGroup_.mounted_.end()) return false;
    if (--found->second.users > 0) return true;
    last = std::move(found->second.entity);
    mountGroup_.mounted_.erase(found);
  }
  DOVEL_TRACE(debugHandler(), 5, "EntityManager", "unmounted {}", path);
  last->parentIs(nullptr);
  return true;
}

}  // namespace OrloSharedMem
