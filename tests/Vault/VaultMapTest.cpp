// The map over a writer's store.
#include "Vault/VaultMap.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "platform/memory/Tracked.h"
#include "tests/Vault/MapRecord.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/Message.h"

namespace VaultTest {
namespace {

using Map = Vault::VaultMap<MapOps>;
using Dovel::InvalidInitializeException;
using TestSupport::messageOf;

Vault::MapDescriptor shared(unsigned size) {
  Vault::MapDescriptor descriptor(size);
  descriptor.localMem = false;
  return descriptor;
}

bool exists(std::string const& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

class VaultMap : public testing::Test {
 protected:
  TestSupport::TempDir dir;
  Map map{"Vault", "routes", dir.path()};
};

TEST_F(VaultMap, IsADummyUntilItIsInitialized) {
  bool found = true;
  map->lookup({1}, found, nullptr);
  EXPECT_FALSE(found);
  EXPECT_EQ(map->mountStatus(), 0);
  EXPECT_FALSE(map.ready());
}

TEST_F(VaultMap, InitMakesACompleteTable) {
  map.init(shared(100));
  EXPECT_EQ(map->mountStatus(), 1);
  EXPECT_TRUE(map.ready());
  for (char const* file : {"slots", "buckets", "owner", "ember", "control"})
    EXPECT_TRUE(exists(dir.file(file))) << file;
  map->write(mapValue(1, 10), true);
  EXPECT_EQ(map->members(), 1u);
  EXPECT_TRUE(map.validate());
}

TEST_F(VaultMap, InitTwiceWithCompatibleDescriptorsIsANoOp) {
  map.init(shared(100));
  map->write(mapValue(1, 10), true);
  auto* const before = &map.interface();
  map.init(shared(100));
  EXPECT_EQ(&map.interface(), before);
  EXPECT_EQ(map->members(), 1u);
}

TEST_F(VaultMap, InitWithAnotherSizeIsRefusedAndChangesNothing) {
  map.init(shared(100));
  map->write(mapValue(1, 10), true);
  std::string const message = messageOf<InvalidInitializeException>([&] { map.init(shared(200)); });
  EXPECT_EQ(message.find("name:routes failed subsequent initialize; old "), 0u) << message;
  EXPECT_NE(message.find("; reason: "), std::string::npos) << message;
  EXPECT_NE(message.find("200"), std::string::npos) << message;
  EXPECT_EQ(map->members(), 1u);
  EXPECT_EQ(map.descriptor().maxSize, 100u);
}

TEST_F(VaultMap, AWriterOfSizeZeroIsRefused) {
  EXPECT_EQ(messageOf<InvalidInitializeException>([&] { map.init(shared(0)); }),
            "0 is not a valid initialization size for collection routes in writer mode");
  EXPECT_FALSE(map.initialized());
  map.init(shared(10));
  EXPECT_TRUE(map.initialized());
}

TEST_F(VaultMap, HeapMemoryIsForLocalTablesOnly) {
  Vault::MapDescriptor descriptor = shared(10);
  descriptor.useHeap = true;
  EXPECT_EQ(messageOf<InvalidInitializeException>([&] { map.init(descriptor); }),
            "cannot initialize collection routes heap allocation in non-local mode not allowed");
}

TEST_F(VaultMap, TheDummyHeraldIsRefusedWhereOthersCouldRead) {
  Vault::MapDescriptor descriptor = shared(10);
  descriptor.dummyHerald = true;
  EXPECT_EQ(messageOf<InvalidInitializeException>([&] { map.init(descriptor); }),
            "cannot initialize collection routes with DummyHeraldWriter not supported in shared mode");
}

TEST_F(VaultMap, AnotherKindOfDescriptorIsABadCast) {
  EXPECT_THROW(map.init(Mem::CollectionDescriptor(10)), std::bad_cast);
}

TEST_F(VaultMap, OptionsThatContradictEachOtherEndTheProcess) {
  Vault::MapDescriptor descriptor = shared(10);
  descriptor.prevValue = true;
  EXPECT_DEATH(map.init(descriptor),
               "prevValue mount-time option enabled without specifying `captureNotifyValues");
  descriptor = shared(10);
  descriptor.type = 9;
  EXPECT_DEATH(map.init(descriptor), "not a valid reader type:9");
  descriptor.vaultTypeIs(Vault::VaultType::shadow);
  descriptor.asynchronous = true;
  EXPECT_DEATH(map.init(descriptor), "notifications unexpectedly disabled prior to initialization");
  EXPECT_DEATH((map.init(shared(10)), map.attach("event")), "invoked for a writer");
}

TEST_F(VaultMap, DetachKeepsAllFilesAndCleanupRemovesThem) {
  map.init(shared(100));
  map->write(mapValue(1, 10), true);
  map.detach(false);
  EXPECT_EQ(map->mountStatus(), 0);
  for (char const* file : {"slots", "buckets", "owner", "ember", "control"})
    EXPECT_TRUE(exists(dir.file(file))) << file;
  map.init(shared(100));
  EXPECT_EQ(map->members(), 1u);
  map.cleanupAndDetach();
  for (char const* file : {"slots", "buckets", "owner", "ember", "control"})
    EXPECT_FALSE(exists(dir.file(file))) << file;
  map.cleanupAndDetach();
}

TEST_F(VaultMap, TellsItsClientWhenItsStateChanges) {
  int mounts = 0;
  std::vector<bool> quiesced;
  Map::Notify notify;
  notify.mountStatusChanged = [&] { ++mounts; };
  notify.quiescedChanged = [&](bool is) { quiesced.push_back(is); };
  Map told("Vault", "told", dir.path(), notify);
  EXPECT_EQ(mounts, 0);
  told.init(shared(100));
  EXPECT_EQ(mounts, 1);
  EXPECT_EQ(quiesced, std::vector<bool>{false});
  told.detach(false);
  EXPECT_EQ(mounts, 2);
}

TEST_F(VaultMap, AnOrphanReadsNothingAndRefusesWrites) {
  map.init(shared(100));
  map->write(mapValue(1, 10), true);
  map.becomeOrphan();
  bool found = true;
  map->lookup({1}, found, nullptr);
  EXPECT_FALSE(found);
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { map->write(mapValue(1, 1), true); }),
            "write to read-only Vault table");
}

TEST_F(VaultMap, AStrictOrphanEndsTheProcessAtEachUse) {
  map.assertOnOrphanAccessIs(true);
  map.init(shared(100));
  map.becomeOrphan();
  EXPECT_DEATH(map->members(), "invoked, name:routes rootpath:.*orphan vault entity");
  EXPECT_DEATH(map.init(shared(100)), "Re-initializing a collection that has already become an orphan");
}

TEST_F(VaultMap, AStrictOrphanCanBeDestroyed) {
  auto const orphan = std::make_unique<Map>("Vault", "gone", dir.path());
  orphan->assertOnOrphanAccessIs(true);
  orphan->init(shared(100));
  orphan->becomeOrphan();
}

TEST_F(VaultMap, OnlyAWriterWritesTheScratchpad) {
  EXPECT_EQ(messageOf<Dovel::NoPermissionException>([&] { map.scratchpadIs(5); }),
            "invalid attempt to write scratchpad as reader");
  map.init(shared(100));
  map.scratchpadIs(5);
  EXPECT_EQ(map->scratchpad(), 5u);
  map.detach(false);
  map.init(shared(100));
  EXPECT_EQ(map->scratchpad(), 5u);
}

TEST_F(VaultMap, KnowsThatItsTableWasWipedUntilToldOtherwise) {
  map.init(shared(100));
  map->write(mapValue(1, 10), true);
  EXPECT_FALSE(map.wiped());
  map.detach(false);
  TestSupport::writeFile(dir.file("buckets"), "not a bucket file");
  map.init(shared(100));
  EXPECT_TRUE(map.wiped());
  EXPECT_EQ(map->members(), 0u);
  map.detach(false);
  map.init(shared(100));
  EXPECT_TRUE(map.wiped());
  map.clearWiped();
  EXPECT_FALSE(map.wiped());
}

TEST_F(VaultMap, LeavesAMarkerWhereCorruptionWasFoundAndRemovesItWhenAllIsWell) {
  map.init(shared(100));
  map.doCorruptionDetected("a broken chain");
  EXPECT_EQ(TestSupport::contentOf(dir.file("corruption-detected")), "a broken chain");
  EXPECT_TRUE(map->validateFiles());
  EXPECT_FALSE(exists(dir.file("corruption-detected")));
}

TEST_F(VaultMap, PutsTheControlFileBackWhenItWasTaken) {
  map.init(shared(100));
  auto const scheduler = Dovel::schedulerRootDovel();
  for (int turn = 0; turn < 3; ++turn) scheduler->runOnce(std::chrono::milliseconds(1));
  ASSERT_EQ(::unlink(dir.file("control").c_str()), 0);
  for (int turn = 0; turn < 200 && !exists(dir.file("control")); ++turn)
    scheduler->runOnce(std::chrono::milliseconds(20));
  EXPECT_TRUE(exists(dir.file("control")));
}

TEST_F(VaultMap, ALocalTableHasNoFiles) {
  Map local("Vault", "local", "local/table");
  local.init(Vault::MapDescriptor(100));
  local->write(mapValue(1, 10), true);
  EXPECT_EQ(local->members(), 1u);
  EXPECT_FALSE(exists(local->rootPath().dirName().data()));
}

TEST_F(VaultMap, TheTemporaryWriterTakesRecordsAndIsNotMounted) {
  auto const writer = Map::createDefaultLocalWriter(Dovel::Platform::getDebugHandler("VaultMapTest", true));
  writer->write(mapValue(1, 10), true);
  EXPECT_EQ(writer->members(), 1u);
  EXPECT_EQ(writer->maxSize(), 100u);
  EXPECT_EQ(writer->mountStatus(), 0);
}

TEST_F(VaultMap, ATrackedTableCountsInTheProcesssMemory) {
  std::size_t const before = Mem::MemoryTracker::ofProcess().bytes();
  Vault::MapDescriptor descriptor = shared(100);
  map.init(descriptor);
  EXPECT_EQ(Mem::MemoryTracker::ofProcess().bytes(), before);
  map.detach(false);
  descriptor.trackMemory = true;
  map.init(descriptor);
  EXPECT_GT(Mem::MemoryTracker::ofProcess().bytes(), before + 3000);
  map.detach(false);
  EXPECT_EQ(Mem::MemoryTracker::ofProcess().bytes(), before);
}

TEST_F(VaultMap, CopiesTheCountersOfItsWriterWhenAsked) {
  map.init(shared(100));
  map->write(mapValue(1, 10), true);
  EXPECT_EQ(map.writerCounters().inserts, 0u);
  map.updateWriterCounters();
  EXPECT_EQ(map.writerCounters().inserts, 1u);
}

TestSupport::ChildRole const inABuildRoot("VaultMapInABuildRoot", [] {
  Map map("Vault", "routes", "/etc/tables/routes");
  map.init(shared(10));
  std::string const moved = std::string(std::getenv("Q7_CHROOT")) + "/etc/tables/routes";
  if (!exists(moved + "/slots") || exists("/etc/tables/routes")) std::_Exit(1);
  ::unlink((moved + "/control").c_str());
  static_cast<Mem::WriterSentry::Notifiee&>(map).handleFilesChanged(moved);
  std::_Exit(exists(moved + "/control") ? 0 : 2);
});

TEST_F(VaultMap, InABuildRootAnAbsolutePathMovesUnderIt) {
  EXPECT_EQ(TestSupport::runChild("VaultMapInABuildRoot", {{"Q7_CHROOT", dir.path()}}).exitCode, 0);
}

}  // namespace
}  // namespace VaultTest
