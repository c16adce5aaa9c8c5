// How a store is to be mounted as a collection of an entity. Plain values.
#pragma once

#include <cstdint>

#include "Vault/VaultType.h"
#include "runtime/Dovel/String.h"

namespace OrloVault {

using OrloVaultType = Vault::VaultType;

struct CollectionInfo {
  Dovel::String name;      // of the collection within its entity
  std::uint32_t size = 0;  // in records; a soft maximum, past which the table grows on
  bool isLocal = false;    // in private memory, for nobody else
  Dovel::String path;      // of the store, below the root of all stores
};

class MountInfo {
 public:
  explicit MountInfo(OrloVaultType type) : type_(type) {}

  OrloVaultType type() const { return type_; }
  CollectionInfo const& collectionInfo() const { return collectionInfo_; }
  void collectionInfoIs(CollectionInfo const& info) { collectionInfo_ = info; }

 private:
  OrloVaultType type_;
  CollectionInfo collectionInfo_;
};

}  // namespace OrloVault
