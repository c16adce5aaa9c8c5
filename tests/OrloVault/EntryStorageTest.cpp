#include "OrloVault/EntryStorage.h"

#include <gtest/gtest.h>

#include "OrloVault/EntityManager.h"
#include "tests/support/Message.h"
#include "tests/support/TestStore.h"

namespace {

using TestSupport::messageOf;
using Record = TestSupport::TestRecord<TestSupport::CollidingKey<16>, 32>;
using Ops = TestSupport::OpsFor<Record>;

class Storage : public OrloVault::EntryStorage<Storage, Ops> {
 public:
  static constexpr char kType[] = "Test::Shadow::EntryStorage";
  explicit Storage(Dovel::String const& name) : OrloVault::EntryStorage<Storage, Ops>(name, kType) {}
  ~Storage() override { ++ended; }
  static inline unsigned ended = 0;
};

// Another class under the same path.
class OtherEntity : public Dovel::Tracked<OtherEntity, OrloVault::Entity> {
 public:
  explicit OtherEntity(Dovel::String const& name) : Dovel::Tracked<OtherEntity, OrloVault::Entity>(name) {}
  void mountIs(OrloVault::MountInfo const& /*info*/) override {}
};

class Listener : public Orlo::NotifieeConst {
 public:
  explicit Listener(Storage& storage) : Orlo::NotifieeConst(storage.publisher()) {}
  void onChange(std::uint32_t attribute, void const* key) override {
    attributes.push_back(attribute);
    if (attribute == Storage::kEntryColl) keys.push_back(static_cast<Record::Key const*>(key)->number);
  }
  std::vector<std::uint32_t> attributes;
  std::vector<std::uint32_t> keys;
};

Record record(std::uint32_t number, std::uint32_t content) { return Record::of({number}, content); }

class EntryStorageTest : public testing::Test {
 protected:
  EntryStorageTest() {
    OrloSharedMem::EntityFactories::factoryIs(
        Storage::kType, [](Dovel::String const& name) { return Dovel::ptrIsImpl<Storage>(name); });
    OrloSharedMem::EntityFactories::factoryIs(
        "Other", [](Dovel::String const& name) { return Dovel::ptrIsImpl<OtherEntity>(name); });
  }
  ~EntryStorageTest() override {
    while (manager_.doUnmount(directory_.path())) {
    }
  }

  OrloVault::MountInfo info(OrloVault::OrloVaultType type = OrloVault::OrloVaultType::writer) const {
    OrloVault::MountInfo made(type);
    made.collectionInfoIs({"entryColl", 512, false, directory_.path()});
    return made;
  }
  Dovel::Ptr<Storage> mount() {
    return Dovel::ptrDynamicCast<Storage>(
        manager_.getMountGroup().mount(directory_.path(), Storage::kType, info()));
  }

  TestSupport::StoreDir directory_;
  OrloSharedMem::EntityManager& manager_ =
      OrloSharedMem::EntityManager::getEntityManager("EntryStorageTest", false);
};

TEST_F(EntryStorageTest, WhatIsWrittenIsReadCountedAndPublishedWithItsKey) {
  auto const storage = mount();
  Listener listener(*storage);
  storage->entryCollIs(record(3, 1));
  storage->entryCollIs(record(4, 2));
  storage->entryCollIs(record(3, 9));
  EXPECT_EQ(storage->entryColl({3}).payload, record(3, 9).payload);
  EXPECT_EQ(listener.keys, (std::vector<std::uint32_t>{3, 4, 3}));
  EXPECT_EQ(listener.attributes, std::vector<std::uint32_t>(3, 258));
  EXPECT_EQ(storage->counters().writes, 3u);
  EXPECT_EQ(storage->counters().notifies, 3u);
}

TEST_F(EntryStorageTest, ReadingAnAbsentKeyGivesTheDefaultRecord) {
  auto const storage = mount();
  bool found = true;
  EXPECT_EQ(storage->entryColl({7}, found).payload, Record{}.payload);
  EXPECT_FALSE(found);
}

TEST_F(EntryStorageTest, DeletingGivesTheRemovedRecordAndPublishesItsKey) {
  auto const storage = mount();
  storage->entryCollIs(record(3, 5));
  Listener listener(*storage);
  EXPECT_EQ(storage->entryCollDel({3}).payload, record(3, 5).payload);
  EXPECT_EQ(listener.keys, std::vector<std::uint32_t>{3});
}

TEST_F(EntryStorageTest, DeletingAnAbsentKeyPublishesNothingAndGivesTheDefaultRecord) {
  auto const storage = mount();
  Listener listener(*storage);
  EXPECT_EQ(storage->entryCollDel({3}).payload, Record{}.payload);
  EXPECT_TRUE(listener.keys.empty());
  EXPECT_EQ(storage->counters().deletes, 1u);
  EXPECT_EQ(storage->counters().notifies, 0u);
}

TEST_F(EntryStorageTest, DeletingAllOfAnEmptyStoreDoesNothing) {
  auto const storage = mount();
  Listener listener(*storage);
  storage->entryCollDelAll();
  EXPECT_TRUE(listener.keys.empty());
}

TEST_F(EntryStorageTest, DeletingAllPublishesEachKeyWhereAnybodyListens) {
  auto const storage = mount();
  for (std::uint32_t number = 0; number < 300; ++number) storage->entryCollIs(record(number, number));
  Listener listener(*storage);
  storage->entryCollDelAll();
  std::sort(listener.keys.begin(), listener.keys.end());
  ASSERT_EQ(listener.keys.size(), 300u);
  for (std::uint32_t number = 0; number < 300; ++number) EXPECT_EQ(listener.keys[number], number);
  EXPECT_EQ(storage->counters().deletes, 300u);
  EXPECT_EQ(storage->entryCollMap().interface().members(), 0u);
}

TEST_F(EntryStorageTest, DeletingAllCountsAndPublishesNothingWhereNobodyListens) {
  auto const storage = mount();
  for (std::uint32_t number = 0; number < 300; ++number) storage->entryCollIs(record(number, number));
  storage->entryCollDelAll();
  EXPECT_EQ(storage->counters().deletes, 0u);
  EXPECT_EQ(storage->counters().notifies, 300u);
  EXPECT_EQ(storage->entryCollMap().interface().members(), 0u);
}

TEST_F(EntryStorageTest, ACommitCountsAndPublishesLikeAWrite) {
  auto const storage = mount();
  Listener listener(*storage);
  Record const written = record(8, 1);
  storage->entryCollMap().interface().directWrite(written);
  EXPECT_TRUE(listener.keys.empty());
  storage->entryCollCommit(&written);
  EXPECT_EQ(storage->entryColl({8}).payload, written.payload);
  EXPECT_EQ(listener.keys, std::vector<std::uint32_t>{8});
  EXPECT_EQ(storage->counters().writes, 1u);
  EXPECT_EQ(storage->counters().notifies, 1u);
}

TEST_F(EntryStorageTest, WhatTheMapTellsCarriesTheKeyAndNeverASlot) {
  auto const storage = mount();
  Listener listener(*storage);
  storage->entryCollNotify({1000000});
  EXPECT_EQ(listener.keys, std::vector<std::uint32_t>{1000000});
}

TEST_F(EntryStorageTest, AnIteratorSeesEachRecordOnce) {
  auto const storage = mount();
  for (std::uint32_t number = 0; number < 100; ++number) storage->entryCollIs(record(number, number));
  std::vector<std::uint32_t> seen;
  for (Storage::Map::IteratorConst at(storage->entryCollMap()); at; at.advance())
    seen.push_back(at.key().number);
  std::sort(seen.begin(), seen.end());
  ASSERT_EQ(seen.size(), 100u);
  EXPECT_EQ(seen.back(), 99u);
  Storage::Map::IteratorConst first(storage->entryCollMap());
  Storage::Map::IteratorConst second(storage->entryCollMap(), first.key());
  first.advance();
  EXPECT_EQ(first.key(), second.key());
}

TEST_F(EntryStorageTest, TheSamePathAndTypeIsOneEntityUntilItsLastUnmount) {
  auto const first = mount();
  EXPECT_EQ(mount(), first);
  EXPECT_TRUE(manager_.doUnmount(directory_.path()));
  EXPECT_EQ(manager_.getEntity(directory_.path()), first);
  EXPECT_TRUE(manager_.doUnmount(directory_.path()));
  EXPECT_EQ(manager_.getEntity(directory_.path()), nullptr);
  EXPECT_FALSE(manager_.doUnmount(directory_.path()));
}

TEST_F(EntryStorageTest, APathThatIsMountedAsAnotherClassGivesThatOne) {
  manager_.getMountGroup().mount(directory_.path(), "Other", info());
  EXPECT_EQ(mount(), nullptr);
}

TEST_F(EntryStorageTest, AnUnknownTypeIsToldAndNothingIsMounted) {
  EXPECT_EQ(messageOf<Dovel::InvalidInitializeException>(
                [&] { manager_.getMountGroup().mount(directory_.path(), "Nobody", info()); }),
            "cannot mount " + std::string(directory_.path()) + ": no type Nobody is known");
  EXPECT_EQ(manager_.getEntity(directory_.path()), nullptr);
}

TEST_F(EntryStorageTest, TheRecordsAreThereAgainAfterAnUnmount) {
  mount()->entryCollIs(record(3, 5));
  manager_.doUnmount(directory_.path());
  EXPECT_EQ(mount()->entryColl({3}).payload, record(3, 5).payload);
}

TEST_F(EntryStorageTest, AnOrphanFindsNothingAndRefusesWrites) {
  auto const storage = mount();
  storage->entryCollIs(record(3, 5));
  manager_.doUnmount(directory_.path());
  bool found = true;
  storage->entryColl({3}, found);
  EXPECT_FALSE(found);
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { storage->entryCollIs(record(3, 6)); }),
            "write to read-only Vault table");
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { storage->entryCollDel({3}); }),
            "remove to read-only Vault table");
}

TEST_F(EntryStorageTest, AnOrphanThatMustNotBeUsedEndsTheProcess) {
  auto const storage = mount();
  storage->entryCollMap().assertOnOrphanAccessIs(true);
  manager_.doUnmount(directory_.path());
  EXPECT_DEATH(storage->entryColl({3}), "trying to operate on an orphan vault entity");
  EXPECT_DEATH(storage->mountIs(info()), "already become an orphan and has assertOnOrphanAccess set");
}

TEST_F(EntryStorageTest, AMountedEntityTakesNoOtherParent) {
  auto const storage = mount();
  auto const other = Dovel::ptrIsImpl<OtherEntity>("other");
  EXPECT_EQ(messageOf<Dovel::InvalidInitializeException>([&] { storage->parentIs(other); }),
            "Entity EntryStorageTest/" + std::string(directory_.path()) + " already initialized");
}

TEST_F(EntryStorageTest, TheControlTellsWhetherTheCollectionIsMounted) {
  auto const storage = mount();
  auto const control = storage->entryCollControl();
  EXPECT_EQ(control->mountStatus(), 1);
  manager_.doUnmount(directory_.path());
  EXPECT_EQ(control->mountStatus(), 0);
}

TEST_F(EntryStorageTest, AnotherControlIsPublishedOnce) {
  auto const storage = mount();
  Listener listener(*storage);
  auto const control = Dovel::ptrIsImpl<OrloVault::CollectionControl>(&storage->entryCollMap());
  storage->entryCollControlIs(control);
  storage->entryCollControlIs(control);
  EXPECT_EQ(listener.attributes, std::vector<std::uint32_t>{259});
}

TEST_F(EntryStorageTest, TheControlKeepsAnUnusedEntityUntilItLetsGo) {
  unsigned const before = Storage::ended;
  auto storage = mount();
  auto const control = storage->entryCollControl();
  manager_.doUnmount(directory_.path());
  storage = nullptr;
  EXPECT_EQ(Storage::ended, before);
  ASSERT_NE(control->entityRef(), nullptr);
  EXPECT_EQ(control->entityRef()->useCount(), 1u);
  control->entityRefIs(nullptr);
  EXPECT_EQ(Storage::ended, before + 1);
  EXPECT_EQ(control->map(), nullptr);
}

TEST_F(EntryStorageTest, AnEntityThatNobodyControlsEndsWithItsLastUser) {
  unsigned const before = Storage::ended;
  { auto const storage = Dovel::ptrIsImpl<Storage>("alone"); }
  EXPECT_EQ(Storage::ended, before + 1);
}

TEST_F(EntryStorageTest, AControlClientDropsTheStore) {
  auto const storage = mount();
  storage->entryCollIs(record(3, 5));
  storage->entryCollControl()->map()->controlDetach();
  bool found = true;
  storage->entryColl({3}, found);
  EXPECT_FALSE(found);
}

TEST_F(EntryStorageTest, ALocalCollectionIsThereWithoutFiles) {
  auto const storage = Dovel::ptrIsImpl<Storage>("local");
  OrloVault::MountInfo local(OrloVault::OrloVaultType::writer);
  local.collectionInfoIs({"entryColl", 512, true, "nowhere"});
  storage->mountIs(local);
  storage->entryCollIs(record(3, 5));
  EXPECT_EQ(storage->entryColl({3}).payload, record(3, 5).payload);
}

}  // namespace
