// The typed collection `entryColl` of a table, kept in a store: what table code writes, reads and is told of.
// Every effective change is published under the attribute's number, with the key, in the middle of the call.
//
// One thread, that of the entity.
#pragma once

#include "OrloVault/Entity.h"
#include "OrloVault/MakeNotify.h"
#include "OrloVault/OrloVaultMap.h"
#include "runtime/Orlo/NotifieeConst.h"

namespace OrloVault {

// Derived is the concrete class. Ops is the bundle of the store's records.
//
// Each operation answers damage in the store by leaving the corruption marker. Reads then find nothing, and
// what would change the store ends the process: the change was neither made nor refused.
template <class Derived, class Ops>
class EntryStorage : public Dovel::Tracked<Derived, Entity> {
 public:
  using Val = typename Ops::Value;
  using Entry = typename Val::RecordType;
  using EntryKey = typename Ops::Key;
  using Map = OrloVaultMap<EntryStorage, Val, EntryKey, Ops>;

  using Entity::kEntryColl;
  using Entity::kEntryCollControl;

  // The record of the key, the default one where there is none; until the next call.
  Entry const& entryColl(EntryKey const& key) const {
    bool found = false;
    return entryColl(key, found);
  }
  Entry const& entryColl(EntryKey const& key, bool& found) const {
    try {
      return *map_.interface().lookup(key, found, nullptr);
    } catch (Dovel::CorruptionDetectedException const& corruption) {
      map_.doCorruptionDetected(corruption.msg());
      found = false;
      return Ops::ValueOps::type_default_;
    }
  }

  // Adds the record, or replaces the one of its key.
  void entryCollIs(Entry const& entry) {
    Val const value(entry);
    EntryKey const key = value.fwkKey();
    ++this->counters_.writes;
    guarded("safeWrite", [&] { map_.interface().write(value, true); });
    changed(key);
  }
  // Removes a record and returns it; the default one where there was none.
  Entry entryCollDel(EntryKey const& removed) {
    EntryKey const key = removed;
    ++this->counters_.deletes;
    if (!remove(key)) return Ops::ValueOps::type_default_;
    changed(key);
    return removed_;
  }
  // Without subscribers nothing is counted.
  void entryCollDelAll() {
    bool const told = this->publisher().hasSubscribers();
    entryCollForEach([&](Entry const& entry) {
      EntryKey const key = Val(entry).fwkKey();
      if (told) {
        entryCollDel(key);
      } else {
        remove(key);
      }
    });
  }
  // Calls visit(entry) for each, in the order of the store. Entries may come and go in the call.
  template <class Visit>
  void entryCollForEach(Visit&& visit) const {
    Val value;
    Vault::IterHint hint;
    bool found = walked([&] { return map_.interface().first(value, hint); });
    while (found) {
      EntryKey const key = value.fwkKey();
      visit(static_cast<Entry const&>(value));
      found = walked([&] { return map_.interface().next(key, value, hint); });
    }
  }
  // Ends what directWrite() of the map's store has begun. A change like any other.
  void entryCollCommit(Entry const* entry) {
    EntryKey const key = Val(*entry).fwkKey();
    ++this->counters_.writes;
    guarded("directCommit", [&] { map_.interface().directCommit(); });
    changed(key);
  }

  // The map tells that a record has changed, without a write of ours.
  void entryCollNotify(EntryKey const& key) { this->publisher().publishChange(kEntryColl, &key); }
  void entryCollNotifyQuiesced(bool quiesced) {
    if (map_.control() != nullptr) map_.control()->quiescedIs(quiesced);
  }
  void entryCollNotifyMountStatus() {
    DOVEL_TRACE(map_.debugHandler(), 5, "EntryStorage", "{}", map_.interface().rootPath().dirName());
    if (map_.control() != nullptr) map_.control()->mountStatusIs(map_.interface().mountStatus());
  }

  Dovel::Ptr<CollectionControl> const& entryCollControl() const { return entryCollControl_; }
  // Published with the former control.
  void entryCollControlIs(Dovel::Ptr<CollectionControl> const& control) {
    if (control == entryCollControl_) return;
    Dovel::Ptr<CollectionControl> const former = std::exchange(entryCollControl_, control);
    this->publisher().publishChange(kEntryCollControl, &former);
  }

  void mountIs(MountInfo const& info) override { map_.mountIs(info); }

  // For walks (Map::IteratorConst) and for what a table does with its store as a whole.
  Map& entryCollMap() { return map_; }
  Map const& entryCollMap() const { return map_; }

 protected:
  // The type's name is that of the trace channel, too.
  EntryStorage(Dovel::String const& name, Dovel::String const& typeName)
      : Dovel::Tracked<Derived, Entity>(name),
        map_(*this, typeName, "entryColl", makeNotify(*this)),
        entryCollControl_(Dovel::ptrIsImpl<CollectionControl>(&map_)),
        zeroReferences_(std::make_unique<EntryStorageZeroReferencesNotifiee>(*this)) {}
  ~EntryStorage() override { this->markBeingDestroyed(); }

  void handleParent(Dovel::Ptr<Orlo::Entity> const& /*parent*/) override { map_.handleParent(); }

 private:
  // Leaves the entity to its control when nobody else uses it any more.
  class EntryStorageZeroReferencesNotifiee : public Orlo::NotifieeConst {
   public:
    explicit EntryStorageZeroReferencesNotifiee(EntryStorage& storage)
        : Orlo::NotifieeConst(storage.publisher()), storage_(storage) {
      hasNotificationActiveIs(false);
    }
    void onZeroReferences() override {
      EntryStorage& storage = storage_;
      Dovel::Ptr<CollectionControl> const control = std::exchange(storage.entryCollControl_, nullptr);
      if (control != nullptr) control->entityRefIs(Dovel::Ptr<Orlo::Entity>(&storage));
      storage.zeroReferences_.reset();
    }

   private:
    EntryStorage& storage_;
  };

  void changed(EntryKey const& key) {
    this->publisher().publishChange(kEntryColl, &key);
    ++this->counters_.notifies;
  }

  bool remove(EntryKey const& key) {
    Val value;
    bool removed = false;
    guarded("safeRemove", [&] { removed = map_.interface().remove(key, value); });
    if (removed) removed_ = value;
    return removed;
  }

  template <class Change>
  void guarded(char const* function, Change&& change) {
    try {
      change();
    } catch (Dovel::CorruptionDetectedException const& corruption) {
      map_.doCorruptionDetected(corruption.msg());
      Dovel::fmassert(map_.debugHandler(), "EntryStorage", __FILE__, function, __LINE__, "in no man's land");
    }
  }
  template <class Walk>
  bool walked(Walk&& walk) const {
    try {
      return walk();
    } catch (Dovel::CorruptionDetectedException const& corruption) {
      map_.doCorruptionDetected(corruption.msg());
      return false;
    }
  }

  mutable Map map_;
  Entry removed_;
  Dovel::Ptr<CollectionControl> entryCollControl_;
  std::unique_ptr<EntryStorageZeroReferencesNotifiee> zeroReferences_;
};

}  // namespace OrloVault
