// The handle on the process's central state database. Immutable; any thread.
#pragma once

#include "runtime/Dovel/PtrIs.h"
#include "runtime/Dovel/String.h"

namespace Statebase {

class EntityManager : public Dovel::Tracked<EntityManager> {
 public:
  // The pair by which the shared-memory mounts of this process are found.
  EntityManager(Dovel::String systemName, bool readOnly)
      : systemName_(std::move(systemName)), readOnly_(readOnly) {}
  ~EntityManager() override;

  Dovel::String const& systemName() const { return systemName_; }
  bool readOnly() const { return readOnly_; }

 private:
  Dovel::String systemName_;
  bool readOnly_;
};

}  // namespace Statebase
