#include <fmt/format.h>
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/host/Stores.h"

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using TestSupport::put32;
using TestSupport::StoreBytes;

TEST(StoreDump, DumpsSlotsDecodedAndRaw) {
  StoreRoot const root;
  StoreBytes store = storeOf({0x12345});
  put32(store.slots, store.linkAt(1), 0x40000002);
  root.put(store, "a");
  Outcome const outcome = root.run("dump a --first 2");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "");
  std::string const hash = fmt::format("{:08x}", TestSupport::get32(store.slots, store.hashAt(0)));
  std::string const link = fmt::format("{:08x}", TestSupport::get32(store.slots, store.linkAt(0)));
  auto const swapped = [](std::string const& word) {
    return word.substr(6, 2) + word.substr(4, 2) + word.substr(2, 2) + word.substr(0, 2);
  };
  std::string const next = link == "bfffffff" ? "nil" : fmt::format("bucket {}", link.substr(7));
  std::string const zeroes(32, '0');
  EXPECT_EQ(outcome.out,
            fmt::format("slot 0  occupied  sequence 0x5  next {}  hash 0x{}\n"
                        "  00000290  05000000{}4523010001000000008a4602{}\n"
                        "  000002b0  0000000000000000{}00000000\n"
                        "  bcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:74565,mplsBos:1) mplsLabel:74565 "
                        "key:74565 entry:0x0000000000000000000000000000012345\n"
                        "slot 1  free  sequence 0x4  next slot 2  flag  hash 0x00000000\n"
                        "  000002c0  0400000002000040{}{}\n"
                        "  000002e0  {}\n",
                        next, hash, swapped(link), zeroes.substr(0, 24), swapped(hash), zeroes,
                        zeroes.substr(0, 16), zeroes));
}

TEST(StoreDump, DumpsJsonForPrograms) {
  StoreRoot const root;
  StoreBytes const store = storeOf({10, 11, 12});
  std::string const path = root.put(store, "a");
  Json const dump = Json::parse(root.run("dump a --json").out);
  EXPECT_EQ(dump["path"], path);
  EXPECT_EQ(dump["type"], "bcm88490_a0::MplsIsemHwEm::Entry");
  EXPECT_EQ(dump["generation"], 0x00050006);
  EXPECT_EQ(dump["numSlots"], 8);
  EXPECT_EQ(dump["live"], false);
  ASSERT_EQ(dump["slots"].size(), 8U);
  Json const& second = dump["slots"][1];
  EXPECT_EQ(second["id"], 1);
  EXPECT_EQ(second["occupied"], true);
  EXPECT_EQ(second["sequence"], 5);
  EXPECT_EQ(second["hash"], TestSupport::get32(store.slots, store.hashAt(1)));
  EXPECT_EQ(second["key"], "bcm88490_a0::MplsIsemHwEm::EntryKey(mplsLabel:11,mplsBos:1)");
  EXPECT_EQ(second["fields"]["mplsLabel"], 11);
  EXPECT_EQ(second["fields"]["hits"], 0);
  EXPECT_EQ(second["bytes"].get<std::string>().size(), 96U);
  Json const& last = dump["slots"][7];
  EXPECT_EQ(last["occupied"], false);
  EXPECT_EQ(last["next"], nullptr);
  EXPECT_FALSE(last.contains("fields"));
  EXPECT_EQ(dump["slots"][6]["next"], Json({{"slot", 7}}));
  Json const one = Json::parse(root.run("dump a --json --slot 2").out);
  ASSERT_EQ(one["slots"].size(), 1U);
  EXPECT_EQ(one["slots"][0]["id"], 2);
}

TEST(StoreDump, DumpsBytesAloneOfATypeThatItDoesNotKnow) {
  StoreRoot const root;
  root.put(storeOf({1}, "Other"), "a");
  std::string const out = root.run("dump a --slot 0").out;
  EXPECT_THAT(out, StartsWith("slot 0  occupied  sequence 0x5  "));
  EXPECT_THAT(out, Not(HasSubstr("EntryKey")));
  EXPECT_FALSE(Json::parse(root.run("dump a --slot 0 --json").out)["slots"][0].contains("key"));
}

TEST(StoreDump, SaysThatADumpOfAStoreAtWorkIsOfDifferentMoments) {
  StoreRoot const root;
  HeldLock const lock(root.put(storeOf({1}), "a"));
  Outcome const outcome = root.run("dump a");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err, "hwtables: a writer is at work: the slots are of different moments\n");
}

TEST(StoreDump, ExitsWithTwoForASlotThatThereIsNot) {
  StoreRoot const root;
  std::string const path = root.put(storeOf({1}), "a");
  Outcome const outcome = root.run("dump a --slot 8");
  EXPECT_EQ(outcome.exitCode, 2);
  EXPECT_EQ(outcome.err, "hwtables: there is no slot 8: " + path + " has 8\n");
  EXPECT_EQ(root.run("dump a --slot 1 --first 2").exitCode, 2);
}

TEST(StoreDump, SaysWhyNoSlotsCanBeDumped) {
  StoreRoot const root;
  TestSupport::writeFile(root.make("a") + "/control", "");
  EXPECT_EQ(root.run("dump a").err, "hwtables: no slots can be read in " + root.path() + "/a: absent\n");
  StoreBytes store = storeOf({1});
  put32(store.slots, 12, 40);
  root.put(store, "b");
  Outcome const outcome = root.run("dump b");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err,
            "hwtables: no slots can be read in " + root.path() + "/b: the header's sizes make no sense\n");
}

}  // namespace
