#include <fmt/format.h>
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <thread>

#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "LoamSharedHwTables/StoredEntry.h"
#include "Vault/VaultMap.h"
#include "tests/host/Stores.h"

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;
using TestSupport::StoreBytes;

using Table = bcm88490_a0::MplsIsemHwEm;
using Map = Vault::VaultMap<LoamSharedHwTables::StoredOps<Table>>;

// A table that this process goes on writing.
class LiveTable {
 public:
  explicit LiveTable(std::string const& directory) : map_("Vault", "live", directory) {
    Vault::MapDescriptor descriptor(1000);
    descriptor.localMem = false;
    map_.init(descriptor);
  }
  void put(std::uint32_t label, std::uint32_t inLif) {
    Table::Entry entry(Table::EntryKey(label, 1));
    entry.inLifIs(inLif);
    map_->write(entry, true);
  }

 private:
  Map map_;
};

TEST(StoreGet, FindsRecordsByTheirKeysAndPrintsTheirFields) {
  StoreRoot const root;
  root.put(storeOf({10, 11, 12}), "a");
  Outcome const outcome =
      root.run("get a mplsLabel:11,mplsBos:1 'bcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:10,mplsBos:1)'");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              StartsWith("bcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:11,mplsBos:1) mplsLabel:11 "));
  EXPECT_THAT(outcome.out,
              HasSubstr("\nbcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:10,mplsBos:1) mplsLabel:10 "));
}

TEST(StoreGet, PrintsAJsonObjectARecord) {
  StoreRoot const root;
  root.put(storeOf({10}), "a");
  Json const record = Json::parse(root.run("get a --json mplsLabel:10,mplsBos:1").out);
  EXPECT_EQ(record["key"], "bcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:10,mplsBos:1)");
  EXPECT_EQ(record["fields"]["mplsLabel"], 10);
  EXPECT_EQ(record["fields"]["hits"], 0);
}

TEST(StoreGet, ReadsATableWhileItsWriterIsAtWork) {
  StoreRoot const root;
  LiveTable table(root.path() + "/a");
  for (std::uint32_t label = 0; label < 500; ++label) table.put(label, label);
  EXPECT_THAT(root.run("get a mplsLabel:499,mplsBos:1").out, HasSubstr(" inLif:499 "));
  table.put(499, 7);
  EXPECT_THAT(root.run("get a mplsLabel:499,mplsBos:1").out, HasSubstr(" inLif:7 "));
  EXPECT_THAT(root.run("show a").out, HasSubstr("500"));
}

TEST(StoreGet, TellsAKeyThatIsNotThere) {
  StoreRoot const root;
  root.put(storeOf({10}), "a");
  Outcome const outcome = root.run("get a mplsLabel:99,mplsBos:1 mplsLabel:10,mplsBos:1");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err, "hwtables: there is no record of mplsLabel:99,mplsBos:1\n");
  EXPECT_THAT(outcome.out, HasSubstr("mplsLabel:10"));
}

TEST(StoreGet, TellsATextThatIsNoKey) {
  StoreRoot const root;
  root.put(storeOf({10}), "a");
  for (auto const& [key, why] :
       {std::pair{"mplsLabel:9999999,mplsBos:1", "0x000fffff"}, std::pair{"label:9", "expected mplsLabel"},
        std::pair{"9", "expected bcm88490_a0::MplsIsemHwEm::EntryKey("}}) {
    Outcome const outcome = root.run(fmt::format("get a {}", key));
    EXPECT_EQ(outcome.exitCode, 2) << key;
    EXPECT_THAT(outcome.err,
                StartsWith(fmt::format("hwtables: no key of bcm88490_a0::MplsIsemHwEm::Entry: {}: ", key)));
    EXPECT_THAT(outcome.err, HasSubstr(why));
  }
}

TEST(StoreGet, TellsATableThatItCannotRead) {
  StoreRoot const root;
  root.put(storeOf({10}, "Unheard"), "unknown");
  Outcome outcome = root.run("get unknown 1");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, HasSubstr("the bundle knows no type"));
  std::string const path = root.put(storeOf({10}), "incomplete");
  std::filesystem::remove(path + "/ember");
  outcome = root.run("get incomplete mplsLabel:10,mplsBos:1");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, HasSubstr("is not complete, or damaged"));
}

TEST(StoreGet, TellsDamageAndNoSignal) {
  StoreRoot const root;
  StoreBytes store = storeOf({10});
  // The record's slot says that it is free.
  TestSupport::put32(store.slots, store.slotAt(0), TestSupport::get32(store.slots, store.slotAt(0)) & ~1u);
  root.put(store, "a");
  Outcome const outcome = root.run("get a mplsLabel:10,mplsBos:1");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, HasSubstr("the store is damaged: "));
}

TEST(StoreWatch, PrintsTheListAgainWhenAStoreAppearsAndGrows) {
  StoreRoot const root;
  Outcome outcome;
  std::thread watcher(
      [&] { outcome = runShell("HWTABLES_ROOT=" + root.path() + " timeout 5 HWTABLES store list --watch"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(800));
  LiveTable table(root.path() + "/late");
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  for (std::uint32_t label = 0; label < 100; ++label) table.put(label, label);
  watcher.join();
  EXPECT_EQ(outcome.exitCode, 124);
  EXPECT_THAT(outcome.out, HasSubstr("there are no stores below"));
  std::size_t const empty = outcome.out.find("late  bcm88490_a0::MplsIsemHwEm::Entry        0 ");
  EXPECT_NE(empty, std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("late  bcm88490_a0::MplsIsemHwEm::Entry      100 ", empty), std::string::npos)
      << outcome.out;
}

}  // namespace
