// What the shadows of all families have in common that keep their entries in a store: the storage as it is
// mounted, and the shadow's life with it. See HwShadowBase.h for the thread rule.
#pragma once

#include "LoamSharedHwTables/ShadowAccessorBase.h"
#include "LoamSharedHwTables/StoredEntry.h"
#include "OrloVault/EntryStorage.h"
#include "runtime/FastLog/FastLog.h"

namespace LoamSharedHwTables {

// The collection `entryColl`, as it is mounted.
template <class Unit>
class ShadowEntryStorage final : public OrloVault::EntryStorage<ShadowEntryStorage<Unit>, StoredOps<Unit>> {
 public:
  explicit ShadowEntryStorage(Dovel::String const& name)
      : OrloVault::EntryStorage<ShadowEntryStorage<Unit>, StoredOps<Unit>>(name, typeName()) {}

  static Dovel::String typeName() {
    return Dovel::String(Unit::Traits::tableTypeName).append("::Shadow::EntryStorage");
  }
  static Dovel::Ptr<ShadowEntryStorage> EntryStorageIs(Dovel::String const& name) {
    return Dovel::ptrIsImpl<ShadowEntryStorage>(name);
  }
};

// Makes the storage known by its type's name to those that mount.
template <class Unit>
class StorageRegistration {
 public:
  StorageRegistration() {
    OrloSharedMem::EntityFactories::factoryIs(
        ShadowEntryStorage<Unit>::typeName(),
        [](Dovel::String const& name) { return ShadowEntryStorage<Unit>::EntryStorageIs(name); });
  }
};

// Shadow is the concrete class; Base its base of the platform, or what tracks it.
template <class Shadow, class Unit, class Base>
class StoredShadow : public Base {
  using Accessor = LoamAsicUtils::ShadowAccessorBase<Shadow>;

 public:
  using Entry = typename Unit::Entry;
  using EntryKey = typename Unit::EntryKey;
  using EntryStorage = ShadowEntryStorage<Unit>;

  static std::string_view typeName() { return Unit::Traits::tableTypeName; }
  Dovel::String const& tableTypeName() const { return tableTypeName_; }
  // Null where something else was mounted in its place.
  Dovel::Ptr<EntryStorage> const& entryStorage() const { return entryStorage_; }

  // Stores one entry, and counts it nowhere but in the store.
  void setEntry(Entry const& entry) {
    ASIC_GRACEFUL_ASSERT(entryStorage_ != nullptr, "entryStorage", "shadow {} has no store", this->name());
    entryStorage_->entryCollIs(entry);
  }

  void mountVault() { entryStorage_ = Accessor(self()).template mountVault<EntryStorage>(); }
  void unmountVault() { Accessor(self()).template unmountVault<EntryStorage>(); }

 protected:
  // The arguments after the first are those of the base.
  template <class... Args>
  explicit StoredShadow(Dovel::String const& tableTypeName, Args const&... args)
      : Base(args...), tableTypeName_(tableTypeName) {}

  // Removes all entries.
  void entriesDel() {
    Dovel::Ptr<EntryStorage> const storage = entryStorage_;
    if (storage != nullptr) storage->entryCollDelAll();
  }

 private:
  Shadow* self() { return static_cast<Shadow*>(this); }

  Dovel::String tableTypeName_;
  Dovel::Ptr<EntryStorage> entryStorage_;
};

}  // namespace LoamSharedHwTables
