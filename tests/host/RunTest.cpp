#include <gmock/gmock.h>

#include "tests/host/Runs.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr char kVerify[] = R"({"op":"verify"})";
constexpr char kTcamKey[] = R"("key":{"arrayIndex":0,"entryIndex":5})";

std::string tcamSet(std::string const& fields) {
  return std::string(R"({"op":"set","table":"TcamHwDirect",)") + kTcamKey +
         R"(,"view":"MdbkKapsaRpbCommandEntry","fields":)" + fields + "}";
}

std::string setRow(std::string const& table, unsigned value, std::string const& fields,
                   std::string const& more = "") {
  return R"({"op":"set","table":")" + table + R"(","key":{"value":)" + std::to_string(value) +
         R"(},"fields":)" + fields + more + "}";
}

std::string rowOp(std::string const& op, std::string const& table, unsigned value,
                  std::string const& more = "") {
  return R"({"op":")" + op + R"(","table":")" + table + R"(","key":{"value":)" + std::to_string(value) + "}" +
         more + "}";
}

class Run : public testing::Test {
 protected:
  RunPlace place_;
};

TEST_F(Run, WritesAWholeRowPresetsFirst) {
  RunEvents const events = place_.events({
      tcamSet(R"({"cmdData":"0x1234","cmdValid":3,"cmdBlkSel":"0xabc"})"),
      tcamSet(R"({"cmdValid":1})"),
      std::string(R"({"op":"get","table":"TcamHwDirect",)") + kTcamKey + "}",
      kVerify,
  });
  EXPECT_EQ(events.exitCode, 0) << events.err;
  RunJson const row = events.one("get");
  EXPECT_EQ(row["stored"], true);
  EXPECT_EQ(row["view"], "MdbkKapsaRpbCommandEntry");
  EXPECT_EQ(row["fields"]["cmdData"], "0x" + std::string(40, '0'));
  EXPECT_EQ(row["fields"]["cmdValid"], 1);
  EXPECT_EQ(row["fields"]["cmdBankSel"], 15);
  EXPECT_EQ(row["fields"]["cmdBlkSel"], 0);
  EXPECT_EQ(events.one("verify")["clean"], true);
}

TEST_F(Run, SendsARowThatWasWrittenOftenOnce) {
  RunEvents const events = place_.events({tcamSet(R"({"cmdValid":1})"), tcamSet(R"({"cmdValid":2})"),
                                          tcamSet(R"({"cmdValid":3})"), R"({"op":"flush"})"});
  RunJson const table = events.table("TcamHwDirect");
  EXPECT_EQ(table["set"], 3);
  EXPECT_EQ(table["commands"], table["downloadCommands"].get<int>() + 1);
}

TEST_F(Run, GivesADeletedRowItsDefault) {
  RunEvents const events = place_.events({
      tcamSet(R"({"cmdValid":3})"),
      R"({"op":"flush"})",
      std::string(R"({"op":"delete","table":"TcamHwDirect",)") + kTcamKey + "}",
      std::string(R"({"op":"get","table":"TcamHwDirect",)") + kTcamKey + "}",
      kVerify,
  });
  EXPECT_EQ(events.exitCode, 0);
  EXPECT_EQ(events.one("get")["stored"], false);
  EXPECT_EQ(events.one("get")["fields"]["cmdValid"], 0);
  EXPECT_EQ(events.one("get")["fields"]["cmdBankSel"], 15);
  EXPECT_EQ(events.table("TcamHwDirect")["deleted"], 1);
}

TEST_F(Run, OverlappingFieldsMayAgree) {
  RunEvents const events = place_.events(
      {setRow("SrcAddrMapHwDirect", 1, R"({"sourceAddress":"0x0000000100000002","ipv4A":2,"ipv4B":1})"),
       rowOp("get", "SrcAddrMapHwDirect", 1)});
  EXPECT_EQ(events.exitCode, 0) << events.err;
  EXPECT_EQ(events.one("get")["fields"]["ipv4B"], 1);
}

TEST_F(Run, MeansEveryFapsRowWhereNoneIsNamed) {
  RunEvents const events = place_.events(
      {
          setRow("VttInPpPortConfig0HwDirect", 7, R"({"defaultPortLif":1})"),
          setRow("VttInPpPortConfig0HwDirect", 7, R"({"defaultPortLif":2})", R"(,"fap":1)"),
          rowOp("get", "VttInPpPortConfig0HwDirect", 7),
          rowOp("delete", "VttInPpPortConfig0HwDirect", 7, R"(,"fap":2)"),
          rowOp("get", "VttInPpPortConfig0HwDirect", 7, R"(,"fap":2)"),
          kVerify,
      },
      "--faps 3");
  EXPECT_EQ(events.exitCode, 0);
  auto const rows = events.of("get");
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(rows[0]["fields"]["defaultPortLif"], 1);
  EXPECT_EQ(rows[1]["fields"]["defaultPortLif"], 2);
  EXPECT_EQ(rows[2]["fap"], 2);
  EXPECT_EQ(rows[2]["stored"], true);
  EXPECT_EQ(rows[3]["stored"], false);
  EXPECT_EQ(events.table("VttInPpPortConfig0HwDirect")["set"], 4);
}

TEST_F(Run, DownloadsToBlankChipsAtOnce) {
  RunEvents const events = place_.events({kVerify}, "--faps 2");
  EXPECT_EQ(events.exitCode, 0);
  auto const starts = events.of("fap-add");
  ASSERT_EQ(starts.size(), 2U);
  EXPECT_EQ(starts[1]["start"], "cold");
  EXPECT_EQ(starts[1]["downloaded"], true);
  // The default of these rows is not zero.
  EXPECT_GT(events.table("TcamHwDirect")["downloadBytes"], 0);
}

TEST_F(Run, FindsEverythingMissingOnAChipThatWasReset) {
  RunEvents const events = place_.events(
      {
          setRow("SmallAdsHwDirect", 3, R"({"ecc":9})"),
          R"({"op":"chip-reset","fap":1})",
          R"({"op":"verify","table":"TcamHwDirect"})",
          R"({"op":"verify","table":"SmallAdsHwDirect"})",
          R"({"op":"verify","table":"TcamHwDirect","fap":0})",
          R"({"op":"download","fap":1})",
          kVerify,
      },
      "--faps 2");
  EXPECT_EQ(events.exitCode, 4);
  auto const verdicts = events.of("verify");
  ASSERT_EQ(verdicts.size(), 4U);
  EXPECT_EQ(verdicts[0]["clean"], false);
  EXPECT_EQ(verdicts[0]["rows"], 2 * 8192);
  EXPECT_EQ(verdicts[0]["counts"]["missing"], 8192);
  EXPECT_EQ(verdicts[0]["bad"].size(), 8192U);
  EXPECT_EQ(verdicts[0]["bad"][0]["fap"], 1);
  EXPECT_EQ(verdicts[1]["counts"]["missing"], 1);
  EXPECT_EQ(verdicts[1]["bad"][0]["key"]["value"], 3);
  EXPECT_EQ(verdicts[1]["bad"][0]["wanted"]["ecc"], 9);
  EXPECT_EQ(verdicts[1]["bad"][0]["found"]["ecc"], 0);
  EXPECT_EQ(verdicts[2]["clean"], true);
  EXPECT_EQ(verdicts[3]["clean"], true);
}

TEST_F(Run, NamesTheFirstBadRowsFieldByField) {
  Outcome const outcome = place_.run(
      {tcamSet(R"({"cmdValid":3})"), R"({"op":"chip-reset"})", R"({"op":"verify","table":"TcamHwDirect"})"});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.out,
              HasSubstr("verify: NOT CLEAN: 8192 rows of FAPs {0} compared, 8192 missing\n"
                        "  missing: FAP 0 TcamHwDirect mdbkKapsaRpbCommand arrayIndex:0,entryIndex:0: "
                        "cmdBankSel is 0, not 15\n"));
  EXPECT_THAT(outcome.out, HasSubstr("entryIndex:5: cmdValid is 0, not 3; cmdBankSel is 0, not 15\n"));
  EXPECT_THAT(outcome.out, HasSubstr("  and 8182 more, which --json tells\n"));
}

TEST_F(Run, ComparesEachMemoryOfATableThatSpansSeveral) {
  RunEvents const events =
      place_.events({setRow("SrcAddrMapHwDirect", 1, R"({"ipv4A":2})"), R"({"op":"chip-reset"})",
                     R"({"op":"verify","table":"SrcAddrMapHwDirect"})"});
  RunJson const verdict = events.one("verify");
  EXPECT_EQ(verdict["rows"], 4 * 256);
  EXPECT_EQ(verdict["counts"]["missing"], 4);
}

TEST_F(Run, LooksOnlyAtItsOwnRowsOfTablesThatAreWrittenInPart) {
  RunEvents const events = place_.events({
      setRow("MainHdrProfMapHwDirect", 20, R"({"startCurrentNextProtocol":1})"),
      setRow("MainHdrProfMapHwDirect", 21, R"({"startCurrentNextProtocol":1})"),
      R"({"op":"flush"})",
      rowOp("delete", "MainHdrProfMapHwDirect", 20),
      R"({"op":"verify","table":"MainHdrProfMapHwDirect"})",
  });
  EXPECT_EQ(events.exitCode, 0);
  // Six rows that the table itself writes, the two of above, in two memories.
  EXPECT_EQ(events.one("verify")["rows"], 16);
}

TEST_F(Run, ClearEmptiesStoreAndChip) {
  RunEvents const events = place_.events({
      tcamSet(R"({"cmdValid":3})"),
      setRow("SmallAdsHwDirect", 3, R"({"ecc":9})"),
      R"({"op":"clear","table":"TcamHwDirect"})",
      std::string(R"({"op":"get","table":"TcamHwDirect",)") + kTcamKey + "}",
      rowOp("get", "SmallAdsHwDirect", 3),
      kVerify,
      R"({"op":"clear"})",
      rowOp("get", "SmallAdsHwDirect", 3),
      kVerify,
  });
  EXPECT_EQ(events.exitCode, 0);
  auto const rows = events.of("get");
  EXPECT_EQ(rows[0]["stored"], false);
  EXPECT_EQ(rows[1]["stored"], true);
  EXPECT_EQ(rows[2]["stored"], false);
}

TEST_F(Run, ClearOfAFapIsThatOfItsOwnTables) {
  RunEvents const events = place_.events(
      {
          setRow("VttInPpPortConfig0HwDirect", 7, R"({"defaultPortLif":1})"),
          setRow("SmallAdsHwDirect", 7, R"({"ecc":1})"),
          R"({"op":"clear","fap":0})",
          rowOp("get", "VttInPpPortConfig0HwDirect", 7),
          rowOp("get", "SmallAdsHwDirect", 7),
          kVerify,
      },
      "--faps 2");
  EXPECT_EQ(events.exitCode, 0);
  auto const rows = events.of("get");
  EXPECT_EQ(rows[0]["stored"], false);
  EXPECT_EQ(rows[1]["stored"], true);
  EXPECT_EQ(rows[2]["stored"], true);
}

TEST_F(Run, ClearsTheChipOfAFapThatGoes) {
  RunEvents const events = place_.events(
      {
          setRow("SmallAdsHwDirect", 7, R"({"ecc":1})"),
          R"({"op":"fap-del","fap":1})",
          setRow("SmallAdsHwDirect", 8, R"({"ecc":1})"),
          kVerify,
          R"({"op":"chip-reset","fap":0})",
          R"({"op":"fap-add","fap":1})",
          R"({"op":"verify","fap":1,"table":"SmallAdsHwDirect"})",
          R"({"op":"download","fap":0})",
          R"({"op":"sync-done"})",
          kVerify,
      },
      "--faps 2");
  auto const verdicts = events.of("verify");
  ASSERT_EQ(verdicts.size(), 3U);
  EXPECT_EQ(verdicts[0]["faps"], RunJson::array({0}));
  EXPECT_EQ(verdicts[0]["clean"], true);
  // The shadow that the FAPs share was in service: it is downloaded to the one that comes, and to no other.
  EXPECT_EQ(verdicts[1]["clean"], true);
  EXPECT_EQ(verdicts[2]["clean"], true);
  EXPECT_EQ(events.exitCode, 0);
}

TEST_F(Run, OperationsOnAFapThatIsNotUpAreRefused) {
  Outcome const outcome =
      place_.run({R"({"op":"fap-del","fap":1})", R"({"op":"download","fap":1})"}, "--faps 2");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_THAT(outcome.err, HasSubstr(":2: fap 1: not up\n"));
  Outcome const none = place_.run({R"({"op":"fap-del"})", setRow("SmallAdsHwDirect", 8, "{}")});
  EXPECT_THAT(none.err, HasSubstr(":2: no FAP is up\n"));
}

TEST_F(Run, FapAddOfOneThatIsUpDoesNothing) {
  RunEvents const events = place_.events({R"({"op":"fap-add","fap":0})", R"({"op":"fap-add"})"});
  EXPECT_EQ(events.exitCode, 0);
  EXPECT_EQ(events.of("fap-add").size(), 1U);
}

TEST_F(Run, RestartKeepsTheChipsAndWaitsForTheReplay) {
  std::string const set = setRow("SmallAdsHwDirect", 7, R"({"ecc":1})");
  RunEvents const events = place_.events({
      set,
      setRow("SmallAdsHwDirect", 8, R"({"ecc":1})"),
      R"({"op":"restart"})",
      R"({"op":"verify","table":"SmallAdsHwDirect"})",
      set,
      R"({"op":"sync-done"})",
      kVerify,
  });
  EXPECT_EQ(events.exitCode, 4);
  auto const starts = events.of("fap-add");
  ASSERT_EQ(starts.size(), 2U);
  EXPECT_EQ(starts[1]["start"], "warm");
  EXPECT_EQ(starts[1]["downloaded"], false);
  bool told = false;
  for (RunJson const& store : events.of("former-store"))
    told |= store["table"] == "SmallAdsHwDirect" && store["entries"] == 2;
  EXPECT_TRUE(told);
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["counts"]["stale"], 2);
  // The row that nobody has written again is gone.
  EXPECT_EQ(verdicts[1]["clean"], true);
  EXPECT_EQ(events.table("SmallAdsHwDirect")["set"], 3);
}

TEST_F(Run, StartsWarmOverChipsThatOutliveIt) {
  std::string const set = setRow("SmallAdsHwDirect", 7, R"({"ecc":1})");
  EXPECT_EQ(place_.run({set, kVerify}, place_.keepChips()).exitCode, 0);
  RunEvents const warm = place_.events(
      {R"({"op":"verify","table":"SmallAdsHwDirect"})", set, kVerify, R"({"op":"sync-done"})", kVerify},
      place_.keepChips());
  EXPECT_EQ(warm.one("fap-add")["start"], "warm");
  auto const verdicts = warm.of("verify");
  EXPECT_EQ(verdicts[0]["counts"]["stale"], 1);
  EXPECT_EQ(verdicts[1]["clean"], true);
  EXPECT_EQ(verdicts[2]["clean"], true);
  EXPECT_EQ(warm.table("TcamHwDirect")["downloadCommands"], 4);
}

// Row 178 is one that the table writes by itself.
TEST_F(Run, LeavesChipsThatAreInUseAloneUntilTheReplayIsDone) {
  std::string const set = setRow("IpkgvHwDirect", 178, R"({"programSelectionProfile":5})");
  EXPECT_EQ(place_.run({set, kVerify}, place_.keepChips()).exitCode, 0);
  RunEvents const warm =
      place_.events({kVerify, set, kVerify, R"({"op":"sync-done"})", kVerify}, place_.keepChips());
  auto const verdicts = warm.of("verify");
  ASSERT_EQ(verdicts.size(), 3U);
  EXPECT_EQ(verdicts[0]["counts"]["different"], 1);
  EXPECT_EQ(verdicts[0]["bad"][0]["found"]["programSelectionProfile"], 5);
  EXPECT_EQ(verdicts[1]["clean"], true);
  EXPECT_EQ(verdicts[2]["clean"], true);
}

TEST_F(Run, LeavesTheEntriesInTheirStoresAtItsEnd) {
  EXPECT_EQ(place_.run({setRow("SmallAdsHwDirect", 7, R"({"ecc":1})")}).exitCode, 0);
  EXPECT_EQ(place_.command("table get SmallAdsHwDirect 7").out, "value:7 ecc:1\n");
}

TEST_F(Run, SaysWhyAnOldStoreIsWiped) {
  EXPECT_EQ(place_.run({setRow("SmallAdsHwDirect", 7, R"({"ecc":1})")}).exitCode, 0);
  std::string const slots = place_.root() + "/shadow/Qumran3aA0/SmallAdsHwDirect/128-0/slots";
  std::string bytes = TestSupport::contentOf(slots);
  bytes[0] = static_cast<char>(~bytes[0]);
  TestSupport::writeFile(slots, bytes);
  RunEvents const events = place_.events({kVerify});
  EXPECT_EQ(events.exitCode, 0);
  std::string why;
  for (RunJson const& store : events.of("former-store"))
    if (store.contains("wiped"))
      why += store["table"].get<std::string>() + ": " + store["wiped"].get<std::string>();
  EXPECT_THAT(why, StartsWith("SmallAdsHwDirect: "));
}

TEST_F(Run, RunsTheTablesOfTheRevisionThatIsAskedFor) {
  EXPECT_EQ(place_.run({kVerify}, "--revision B0Ai").exitCode, 0);
  EXPECT_THAT(place_.command("table list").out, HasSubstr("Qumran3aB0Ai"));
}

TEST_F(Run, SummaryListsTheTablesForWhichAnythingWasDone) {
  Outcome const outcome = place_.run({setRow("SmallAdsHwDirect", 7, R"({"ecc":1})")});
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.out, HasSubstr("TABLE  "));
  EXPECT_THAT(outcome.out,
              testing::ContainsRegex("\nSmallAdsHwDirect +1 +0 +1 +0 +1 +32 KiB +0 +0 +0 +[0-9.]+ [mu]?s\n"));
  EXPECT_THAT(outcome.out, testing::ContainsRegex("\nall +1 +0 +[0-9]+ +0 "));
}

}  // namespace
