// The stores of maps that have none.
#include <gtest/gtest.h>

#include "Vault/VaultDummy.h"
#include "Vault/VaultStrictDummy.h"
#include "Vault/VaultWriter.h"
#include "runtime/Dovel/Exception.h"
#include "tests/Vault/MapRecord.h"
#include "tests/support/Files.h"
#include "tests/support/Message.h"

namespace VaultTest {
namespace {

using Dummy = Vault::VaultDummy<MapOps>;
using Strict = Vault::VaultStrictDummy<MapOps>;

constexpr char kTail[] = ". If you're seeing this, you're trying to operate on an orphan vault entity";

Dovel::Platform::DebugHandler handler() { return Dovel::Platform::getDebugHandler("DummyTest", true); }
Mem::RootPath rootPath() { return {handler(), "some/table", true}; }
Dummy dummy() { return {handler(), "routes", rootPath(), nullptr, false}; }
Strict strict() { return {handler(), "routes", rootPath(), kTail}; }

TEST(VaultDummy, LookupFindsNothingAndGivesTheDefaultRecord) {
  Dummy const none = dummy();
  bool found = true;
  MapValue out = mapValue(7, 7);
  MapValue const* const answer = none.lookup({7}, found, &out);
  EXPECT_FALSE(found);
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->key().number, 0u);
  EXPECT_EQ(answer->data, 0u);
  EXPECT_EQ(out.data, 0u);
}

TEST(VaultDummy, RefusesToBeWritten) {
  Dummy none = dummy();
  MapValue value = mapValue(1, 1);
  constexpr char kRefusal[] = "write to read-only Vault table";
  using Refused = Dovel::NoPermissionException;
  EXPECT_EQ(TestSupport::messageOf<Refused>([&] { none.write(value, true); }), kRefusal);
  EXPECT_EQ(TestSupport::messageOf<Refused>([&] { none.directWrite(value); }), kRefusal);
  EXPECT_EQ(TestSupport::messageOf<Refused>([&] { none.directCommit(); }), kRefusal);
  EXPECT_EQ(TestSupport::messageOf<Refused>([&] { none.remove({1}, value); }),
            "remove to read-only Vault table");
  EXPECT_EQ(TestSupport::messageOf<Refused>([&] { none.scratchpadIs(1); }),
            "invalid attempt to write scratchpad as reader");
  EXPECT_THROW(none.markAndSweepFlag({1}, Vault::MarkAndSweepOperation::set), Refused);
}

TEST(VaultDummy, IterationYieldsNothing) {
  Dummy const none = dummy();
  MapValue value = mapValue(3, 3);
  Vault::IterHint hint;
  EXPECT_FALSE(none.first(value, hint));
  EXPECT_EQ(value.data, 0u);
}

TEST(VaultDummy, AnIteratorOfALostStoreEnds) {
  Dummy const none = dummy();
  MapValue value = mapValue(3, 3);
  Vault::IterHint hint{.sequence = 5, .slot = 0, .bucket = 0};
  EXPECT_FALSE(none.next({3}, value, hint));
  EXPECT_EQ(value.data, 0u);
}

TEST(VaultDummy, AnswersAsAnEmptyReader) {
  Dummy none = dummy();
  EXPECT_TRUE(none.initialize("event"));
  EXPECT_TRUE(none.validate());
  EXPECT_TRUE(none.validateFiles());
  EXPECT_EQ(none.members() + none.buckets() + none.minSize() + none.maxSize() + none.capacity(), 0u);
  EXPECT_EQ(none.type(), Vault::VaultType::reader);
  EXPECT_EQ(none.mountStatus(), 0);
  EXPECT_EQ(none.scratchpad(), 0u);
  EXPECT_EQ(none.readerCounters().lookups, 0u);
  EXPECT_EQ(none.vaultName(), rootPath().dirName());
  EXPECT_EQ(none.rootPath().path(), "some/table");
  none.detach(true);
  none.cleanup();
}

TEST(VaultDummy, CleanupGoesOnToTheStoreBefore) {
  TestSupport::TempDir const dir;
  Mem::RootPath const path(handler(), dir.path(), true);
  Vault::MapDescriptor descriptor(10);
  descriptor.localMem = false;
  Vault::VaultWriter<MapOps> writer(handler(), path, descriptor);
  writer.initialize("none");
  writer.write(mapValue(1, 1), true);
  Dummy none(handler(), "routes", path, &writer, false);
  ASSERT_NE(TestSupport::contentOf(dir.file("slots")), "");
  none.cleanup();
  EXPECT_EQ(TestSupport::contentOf(dir.file("slots")), "");
}

TEST(VaultDummyDeathTest, AnAnchorThatWasKeptAcrossTheChangeEndsTheProcess) {
  EXPECT_DEATH(dummy().validateVersionAnchor(),
               "should never be called since it's impossible for a lookup to succeed");
}

TEST(VaultStrictDummyDeathTest, TheFirstAccessNamesCollectionPathAndKey) {
  std::string const tail = "rootpath:[^ ]*/some/table.*orphan vault entity";
  bool found = false;
  MapValue value;
  Vault::IterHint hint;
  EXPECT_DEATH(strict().members(), "members.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().buckets(), "buckets.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().minSize(), "minSize.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().maxSize(), "maxSize.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().capacity(), "capacity.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().type(), "type.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().readerCounters(), "readerCounters.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().scratchpad(), "scratchpad.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().validateVersionAnchor(), "validateVersionAnchor.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().first(value, hint), "first.*invoked, name:routes " + tail);
  EXPECT_DEATH(strict().lookup({42}, found, nullptr),
               "name:routes rootpath:[^ ]* key:42\\. If you're seeing");
  EXPECT_DEATH(strict().next({42}, value, hint), "name:routes rootpath:[^ ]* key:42\\. If you're seeing");
  EXPECT_DEATH(strict().initialize("late"), "routes rootPath:[^ ]*some/table event:late\\. If you're seeing");
}

TEST(VaultStrictDummy, ToleratesWhatRunsWhileItsMapIsDestroyed) {
  Strict refusing = strict();
  refusing.detach(true);
  refusing.cleanup();
  EXPECT_TRUE(refusing.validate());
  EXPECT_TRUE(refusing.validateFiles());
  EXPECT_EQ(refusing.mountStatus(), 0);
}

TEST(VaultStrictDummy, RefusesWritesAsAReaderDoes) {
  Strict refusing = strict();
  EXPECT_EQ(
      TestSupport::messageOf<Dovel::NoPermissionException>([&] { refusing.write(mapValue(1, 1), true); }),
      "write to read-only Vault table");
}

}  // namespace
}  // namespace VaultTest
