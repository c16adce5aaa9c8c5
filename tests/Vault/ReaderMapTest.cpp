// The map over a reader: it waits for its table, attaches, and lets go when the table is replaced or removed.
#include <gtest/gtest.h>

#include <filesystem>

#include "Vault/VaultMap.h"
#include "runtime/TaskSchedulerRoot.h"
#include "tests/Vault/MapRecord.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/Message.h"
#include "tests/support/TestStore.h"

namespace VaultTest {
namespace {

using Map = Vault::VaultMap<MapOps>;
using Dovel::InvalidInitializeException;
using TestSupport::messageOf;

class ReaderMap : public testing::Test {
 protected:
  static Vault::MapDescriptor descriptor(unsigned size, Vault::VaultType type) {
    Vault::MapDescriptor made(size);
    made.localMem = false;
    made.vaultTypeIs(type);
    return made;
  }
  void initReader(unsigned size = 0) { reader.init(descriptor(size, Vault::VaultType::reader)); }
  void initWriter() { writer.init(descriptor(100, Vault::VaultType::writer)); }
  // What happened before is told when it returns: the kernel queues events at once.
  void turn() {
    for (int i = 0; i < 4; ++i) scheduler->runOnce(std::chrono::milliseconds(0));
  }
  // The record's data, or nothing.
  static std::optional<std::uint32_t> read(Map& map, std::uint32_t number) {
    bool found = false;
    MapValue const* const value = map->lookup({number}, found, nullptr);
    return found ? std::optional<std::uint32_t>(value->data) : std::nullopt;
  }
  // A writer that ends in the middle of an operation, and the next one, who wipes the table.
  void replaceTable() {
    writer.detach(true);
    std::uint16_t const flags = 1;
    TestSupport::poke(dir.file("slots"), 558, &flags, sizeof flags);
    initWriter();
  }

  TestSupport::TempDir dir;
  Dovel::Ptr<TaskSchedulerRoot> const scheduler = Dovel::schedulerRootDovel();
  std::vector<std::string> told;
  Map writer{"Vault", "written", dir.path()};
  Map reader{"Vault", "routes", dir.path(), notify()};

 private:
  Map::Notify notify() {
    Map::Notify made;
    made.mountStatusChanged = [this] { told.push_back("mount " + std::to_string(reader->mountStatus())); };
    made.quiescedChanged = [this](bool quiesced) { told.push_back(quiesced ? "quiesced" : "busy"); };
    return made;
  }
};

TEST_F(ReaderMap, IsEmptyUntilTheTableIsComplete) {
  initReader();
  turn();
  EXPECT_FALSE(read(reader, 1));
  EXPECT_FALSE(reader.ready());
  EXPECT_EQ(reader->mountStatus(), 0);
  initWriter();
  writer->write(mapValue(1, 10), true);
  EXPECT_FALSE(read(reader, 1));
  turn();
  EXPECT_EQ(read(reader, 1), 10u);
  EXPECT_TRUE(reader.ready());
  EXPECT_EQ(told, (std::vector<std::string>{"quiesced", "mount 1"}));
}

TEST_F(ReaderMap, AttachesAtOnceToATableThatIsThere) {
  initWriter();
  writer->write(mapValue(1, 10), true);
  initReader();
  turn();
  EXPECT_EQ(read(reader, 1), 10u);
}

TEST_F(ReaderMap, ASizeOfZeroIsNoMatterToAReader) {
  EXPECT_NO_THROW(initReader(0));
  EXPECT_TRUE(reader.initialized());
}

TEST_F(ReaderMap, AReplacedTableIsNoticedByTheNextOperationAndAttachedAgain) {
  initWriter();
  writer->write(mapValue(1, 10), true);
  initReader();
  turn();
  ASSERT_EQ(read(reader, 1), 10u);
  told.clear();
  replaceTable();
  writer->write(mapValue(2, 20), true);
  EXPECT_FALSE(read(reader, 1));
  EXPECT_EQ(told, (std::vector<std::string>{"busy", "mount 0"}));
  EXPECT_FALSE(reader.ready());
  turn();
  EXPECT_FALSE(read(reader, 1));
  EXPECT_EQ(read(reader, 2), 20u);
  EXPECT_EQ(told, (std::vector<std::string>{"busy", "mount 0", "quiesced", "mount 1"}));
}

TEST_F(ReaderMap, AReplacedTableIsAttachedAgainThoughNobodyReadMeanwhile) {
  initWriter();
  initReader();
  turn();
  replaceTable();
  writer->write(mapValue(2, 20), true);
  turn();
  EXPECT_EQ(read(reader, 2), 20u);
}

TEST_F(ReaderMap, WhatWasHandedOutLastsUntilTheNextUseThoughTheTableIsGone) {
  initWriter();
  writer->write(mapValue(1, 10), true);
  initReader();
  turn();
  bool found = false;
  MapValue const* const value = reader->lookup({1}, found, nullptr);
  ASSERT_TRUE(found);
  writer.cleanup();
  turn();
  EXPECT_EQ(value->data, 10u);
  EXPECT_FALSE(read(reader, 1));
}

TEST_F(ReaderMap, ARemovedTableIsWaitedForAgain) {
  initWriter();
  writer->write(mapValue(1, 10), true);
  initReader();
  turn();
  ASSERT_EQ(read(reader, 1), 10u);
  writer.cleanupAndDetach();
  turn();
  EXPECT_FALSE(read(reader, 1));
  EXPECT_EQ(reader->mountStatus(), 0);
  initWriter();
  writer->write(mapValue(3, 30), true);
  turn();
  EXPECT_EQ(read(reader, 3), 30u);
}

TEST_F(ReaderMap, AClientThatReadsWhenItIsToldIsSafe) {
  Map::Notify notify;
  Map* self = nullptr;
  unsigned reads = 0;
  notify.mountStatusChanged = [&] {
    read(*self, 1);
    ++reads;
  };
  Map map("Vault", "curious", dir.path(), notify);
  self = &map;
  initWriter();
  writer->write(mapValue(1, 10), true);
  map.init(descriptor(0, Vault::VaultType::reader));
  turn();
  ASSERT_EQ(read(map, 1), 10u);
  replaceTable();
  EXPECT_FALSE(read(map, 1));
  EXPECT_EQ(reads, 2u);
}

TEST_F(ReaderMap, AnAttachedOneIsLeftAlone) {
  initWriter();
  initReader();
  turn();
  auto* const before = &reader.interface();
  reader.tryAttach();
  EXPECT_EQ(&reader.interface(), before);
}

TEST_F(ReaderMap, AFailedAttachLeavesTheMapEmptyAndIsTold) {
  initWriter();
  initReader();
  std::filesystem::remove(dir.file("buckets"));
  turn();
  EXPECT_EQ(reader->mountStatus(), 0);
  EXPECT_FALSE(read(reader, 1));
}

TEST_F(ReaderMap, AWriterIsNotAttached) {
  initWriter();
  EXPECT_DEATH(writer.attach("test"), "invoked for a writer");
  EXPECT_DEATH(writer.handleDisconnect(), "wrong type:");
}

TEST_F(ReaderMap, ReadersOfPrivateMemoryAndShadowsAreRefused) {
  Vault::MapDescriptor local(100);
  local.vaultTypeIs(Vault::VaultType::reader);
  std::string message = messageOf<InvalidInitializeException>([&] { reader.init(local); });
  EXPECT_NE(message.find("a table in private memory has no readers"), std::string::npos) << message;
  for (auto const type : {Vault::VaultType::shadow, Vault::VaultType::keyShadow}) {
    message = messageOf<InvalidInitializeException>([&] { reader.init(descriptor(100, type)); });
    EXPECT_EQ(message.find("cannot initialize collection routes with "), 0u) << message;
    EXPECT_NE(message.find("this library has no shadows of tables"), std::string::npos) << message;
  }
  EXPECT_FALSE(reader.initialized());
}

TEST_F(ReaderMap, DamageThatIsNoReplacementLeavesTheMarkerAndAReplacementDoesNot) {
  initWriter();
  initReader();
  turn();
  reader.doCorruptionDetected("seen by a reader");
  EXPECT_TRUE(std::filesystem::exists(dir.file("corruption-detected")));
  std::filesystem::remove(dir.file("corruption-detected"));
  std::uint32_t const none = 0;
  TestSupport::poke(dir.file("ember"), 0, &none, sizeof none);
  reader.doCorruptionDetected("seen by a reader in the middle of a re-format");
  EXPECT_FALSE(std::filesystem::exists(dir.file("corruption-detected")));
}

TestSupport::ChildRole const inABuildRoot("ReaderMapInABuildRoot", [] {
  std::string const path = std::getenv("HWTABLES_TEST_TABLE");
  Vault::MapDescriptor descriptor(100);
  descriptor.localMem = false;
  auto const handler = Dovel::Platform::getDebugHandler("ReaderMapTest", true);
  Vault::VaultWriter<MapOps> writer(handler, Mem::RootPath(handler, path, true), descriptor);
  writer.initialize("none");
  Map reader("Vault", "routes", path);
  descriptor.vaultTypeIs(Vault::VaultType::reader);
  reader.init(descriptor);
  reader.tryAttach();
  if (!reader.ready()) std::_Exit(1);
  reader.doCorruptionDetected("seen by a reader");
  std::_Exit(std::filesystem::exists(path + "/corruption-detected") ? 0 : 2);
});

TEST_F(ReaderMap, LeavesTheMarkerBesideTheFilesThatItReadsInABuildRootToo) {
  TestSupport::TempDir const root;
  std::string const table = dir.file("table");
  int const exitCode = TestSupport::runChild("ReaderMapInABuildRoot",
                                             {{"Q7_CHROOT", root.path()}, {"HWTABLES_TEST_TABLE", table}})
                           .exitCode;
  EXPECT_EQ(exitCode, 0);
  EXPECT_TRUE(std::filesystem::is_empty(root.path()));
}

TEST_F(ReaderMap, LetsGoOfAReplacedTableThoughItsClientThrewWhenItWasTold) {
  initWriter();
  Map::Notify notify;
  bool throws = false;
  notify.quiescedChanged = [&](bool) {
    if (throws) throw std::runtime_error("not now");
  };
  Map throwing("Vault", "throwing", dir.path(), std::move(notify));
  throwing.init(descriptor(0, Vault::VaultType::reader));
  throwing.tryAttach();
  ASSERT_TRUE(throwing.ready());
  auto const isMapped = [this] {
    return TestSupport::contentOf("/proc/self/maps").find(dir.file("slots") + " (deleted)") !=
           std::string::npos;
  };
  replaceTable();
  throws = true;
  EXPECT_THROW(read(throwing, 1), std::runtime_error);
  EXPECT_TRUE(isMapped());
  EXPECT_FALSE(read(throwing, 1));
  EXPECT_FALSE(isMapped());
}

TEST_F(ReaderMap, AnOrphanNoLongerReads) {
  initWriter();
  writer->write(mapValue(1, 10), true);
  initReader();
  turn();
  ASSERT_EQ(read(reader, 1), 10u);
  reader.becomeOrphan();
  EXPECT_FALSE(read(reader, 1));
  turn();
  EXPECT_FALSE(read(reader, 1));
}

TEST_F(ReaderMap, ADetachedReaderLeavesTheFilesAndMayBeInitializedAgain) {
  initWriter();
  writer->write(mapValue(1, 10), true);
  initReader();
  turn();
  reader.detach(false);
  EXPECT_FALSE(reader.initialized());
  EXPECT_FALSE(read(reader, 1));
  EXPECT_TRUE(std::filesystem::exists(dir.file("slots")));
  initReader();
  turn();
  EXPECT_EQ(read(reader, 1), 10u);
}

}  // namespace
}  // namespace VaultTest
