// The map of an entity's collection: named after its entity, and an orphan once that has lost its parent. One
// thread, that of the entity.
#pragma once

#include "OrloVault/CollectionControl.h"
#include "OrloVault/MountInfo.h"
#include "OrloVault/Util.h"
#include "Vault/VaultMap.h"

namespace OrloVault {

template <class Storage, class Val, class EntryKey, class Ops>
class OrloVaultMap : public Vault::VaultMap<Ops>, public Vault::ControlBase {
 public:
  using Map = Vault::VaultMap<Ops>;
  using Notify = typename Map::Notify;

  // The entity outlives the map. The collection's name is its name within the entity.
  OrloVaultMap(Storage& entity, Dovel::String const& typeName, Dovel::String const& collectionName,
               Notify notify)
      : Map(typeName, entity.name(), entity.name(), std::move(notify)),
        entity_(entity),
        collectionName_(collectionName) {}

  // The entity has got another parent, or lost it. Throws Dovel::InvalidInitializeException for an entity
  // whose collection is mounted already.
  void handleParent() {
    Dovel::Ptr<Orlo::Entity> const& parent = entity_.parent();
    if (parent == nullptr) return this->becomeOrphan();
    if (this->initialized()) {
      DOVEL_THROW(Dovel::InvalidInitializeException, "OrloVaultMap", "Entity {} already initialized",
                  this->name());
    }
    Dovel::String const name = OrloSharedMem::Util::fullName(*parent, entity_.name());
    DOVEL_TRACE(this->debugHandler(), 5, "OrloVaultMap", "old:{} new:{}", this->name(), name);
    this->placeIs(name, this->path());
  }

  // Attaches to the store that the mount describes.
  void mountIs(MountInfo const& info) {
    CollectionInfo const& collection = info.collectionInfo();
    Vault::MapDescriptor descriptor(collection.size);
    descriptor.localMem = collection.isLocal;
    descriptor.vaultTypeIs(info.type());
    this->placeIs(this->name(), collection.path);
    if (collection.isLocal) {
      DOVEL_TRACE(this->debugHandler(), 5, "OrloVaultMap", "creating local VaultWriter {}/{}", this->name(),
                  "VaultTemp");
    }
    this->init(descriptor);
  }

  // The table class of the collection, for people.
  Dovel::String classType() const { return Dovel::String(std::string(Ops::typeName())); }
  Dovel::String const& collectionName() const { return collectionName_; }

  void controlDetach() override { Map::controlDetach(); }

  // A walk over the collection in the order of the store. Records may come and go meanwhile: one that is
  // there all the time is seen exactly once. The map outlives it.
  class IteratorConst {
   public:
    // At the first record.
    explicit IteratorConst(OrloVaultMap const& map) : map_(&map) {
      valid_ = map.interface().first(value_, hint_);
    }
    // At the one after the key.
    IteratorConst(OrloVaultMap const& map, EntryKey const& after) : map_(&map) {
      valid_ = map.interface().next(after, value_, hint_);
    }

    explicit operator bool() const { return valid_; }
    EntryKey const& key() const { return key_ = value_.fwkKey(); }
    Val const& value() const { return value_; }
    void advance() { valid_ = map_->interface().next(key(), value_, hint_); }

   private:
    OrloVaultMap const* map_;
    Vault::IterHint hint_;
    mutable EntryKey key_{};
    Val value_;
    bool valid_ = false;
  };

 private:
  Storage& entity_;
  Dovel::String const collectionName_;
};

}  // namespace OrloVault
