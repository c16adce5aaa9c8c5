// Where entities whose collections are stores are mounted: by path, once for all who want the same.
//
// Threads: any; a manager's lock is held while it mounts and unmounts, so the entity's own thread has to be
// the one that mounts it.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "OrloVault/Entity.h"
#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/PtrIs.h"

namespace OrloSharedMem {

// Makes entities by the name of their type.
class EntityFactories {
 public:
  using Factory = std::function<Dovel::Ptr<OrloVault::Entity>(Dovel::String const& name)>;

  // A second registration of a type replaces the first. Any thread.
  static void factoryIs(Dovel::String const& typeName, Factory factory);
  // Empty where the type is unknown.
  static Factory factory(Dovel::String const& typeName);
};

class EntityManager;

// The entities that one manager has mounted.
class MountGroup {
 public:
  // The entity of that path. Where there is none it is made, given the manager's root as its parent, and its
  // collection its store. Where there is one it is that, whatever its type. Each mount needs an unmount.
  // Throws Dovel::InvalidInitializeException for an unknown type, and what the store throws; nothing is
  // mounted then.
  Dovel::Ptr<Orlo::Entity> mount(Dovel::String const& path, Dovel::String const& typeName,
                                 OrloVault::MountInfo const& info);

 private:
  friend class EntityManager;
  struct Mounted {
    Dovel::String typeName;
    Dovel::Ptr<OrloVault::Entity> entity;
    unsigned users = 0;
  };

  explicit MountGroup(EntityManager const& manager) : manager_(manager) {}

  EntityManager const& manager_;
  mutable std::recursive_mutex mutex_;
  std::map<std::string, Mounted, std::less<>> mounted_;
};

class EntityManager : public Dovel::Debuggable {
 public:
  // The process's manager of that system name and flag; lives as long as the process.
  static EntityManager& getEntityManager(Dovel::String const& systemName, bool flag);

  MountGroup& getMountGroup() { return mountGroup_; }
  // Null where nothing is mounted at the path.
  Dovel::Ptr<Orlo::Entity> getEntity(Dovel::String const& path) const;
  // Gives up one mount; with the last one the entity loses its parent and its collection its store, whose
  // files stay. False where nothing is mounted there.
  bool doUnmount(Dovel::String const& path);

  // The parent of all mounted entities.
  Dovel::Ptr<Orlo::Entity> const& root() const { return root_; }

 private:
  explicit EntityManager(Dovel::String const& systemName);

  Dovel::Ptr<Orlo::Entity> const root_;
  MountGroup mountGroup_;
};

}  // namespace OrloSharedMem
