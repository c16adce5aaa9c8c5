// The base of entities whose collection is a store. One thread, that of the entity.
#pragma once

#include <cstdint>

#include "OrloVault/MountInfo.h"
#include "runtime/Orlo/Entity.h"

namespace OrloVault {

class Entity : public Orlo::Entity {
 public:
  // The attributes that are published: the collection, with the key of the entry that has changed, and its
  // control, with the former one.
  static constexpr std::uint32_t kEntryColl = 258;
  static constexpr std::uint32_t kEntryCollControl = 259;

  // What was asked of the collection. Changes: before and after, the second also for what is committed.
  struct Counters {
    std::uint64_t writes = 0;
    std::uint64_t deletes = 0;
    std::uint64_t notifies = 0;
  };

  Counters const& counters() const { return counters_; }

  // Gives the collection its store. Throws what Vault::VaultMap::init does; the collection then has none.
  virtual void mountIs(MountInfo const& info) = 0;

 protected:
  using Orlo::Entity::Entity;

  Counters counters_;
};

}  // namespace OrloVault
