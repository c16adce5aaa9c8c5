#include <gmock/gmock.h>

#include "tests/host/Runs.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

struct Refusal {
  char const* name;
  char const* line;
  char const* why;
};

void PrintTo(Refusal const& refusal, std::ostream* out) { *out << refusal.line; }

class RefusedInput : public testing::TestWithParam<Refusal> {
 protected:
  RunPlace place_;
};

TEST_P(RefusedInput, IsToldByFileLineAndLegalRangeAndStopsTheRun) {
  Outcome const outcome = place_.run({"", GetParam().line, R"({"op":"verify"})"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err, "hwtables: " + place_.file("in.jsonl") + ":2: " + GetParam().why + "\n");
  EXPECT_THAT(outcome.out, testing::Not(HasSubstr("verify")));
}

constexpr Refusal kRefusals[] = {
    {"noJson", "{\"op\":", "not JSON: wrong at column 7"},
    {"noObject", "[1]", "not a JSON object: [1]"},
    {"sameNameTwice", R"({"op":"flush","op":"verify"})", R"("op" stands twice)"},
    {"sameFieldTwice",
     R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":1},"fields":{"ecc":1,"ecc":1}})",
     R"("ecc" stands twice)"},
    {"noOperation", R"({"table":"TcamHwDirect"})",
     R"(no operation: {"table":"TcamHwDirect"}: op is to name one)"},
    {"unknownOperation", R"({"op":"delet"})", "there is no operation delet; the nearest: delete, set, get"},
    {"unknownMember", R"({"op":"verify","tabel":"TcamHwDirect"})",
     "verify: there is no member tabel; the nearest: table, fap"},
    {"missingMember", R"({"op":"set","table":"TcamHwDirect"})", "set: key is missing"},
    {"unknownTable", R"({"op":"delete","table":"TcanHwDirect","key":{}})",
     "there is no table TcanHwDirect; the nearest: TcamHwDirect, TcamBHwDirect"},
    {"tableOfAFamilyThatIsNotRun", R"({"op":"download","table":"IppeRecycFwdProfileMappingHwReg"})",
     "IppeRecycFwdProfileMappingHwReg: tables of the family register are not run"},
    {"noKey", R"({"op":"get","table":"SmallAdsHwDirect","key":5})",
     "SmallAdsHwDirect: key 5: not an object of value"},
    {"unknownKeyMember", R"({"op":"get","table":"SmallAdsHwDirect","key":{"vale":5}})",
     "SmallAdsHwDirect: there is no key member vale; the nearest: value"},
    {"missingKeyMember", R"({"op":"get","table":"TcamHwDirect","key":{"arrayIndex":0}})",
     "TcamHwDirect: key entryIndex is missing"},
    {"keyPastTheEnd", R"({"op":"get","table":"TcamHwDirect","key":{"arrayIndex":0,"entryIndex":4096}})",
     "TcamHwDirect: key entryIndex: 4096 is not 0 to 4095"},
    {"nullKey", R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":2048}})",
     "SmallAdsHwDirect: key value: 2048 is not 0 to 2047: it names no row"},
    {"negativeKey", R"({"op":"get","table":"SmallAdsHwDirect","key":{"value":-1}})",
     "SmallAdsHwDirect: key value: -1 is not 0 to 2047"},
    {"unknownField", R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":1},"fields":{"ecd":1}})",
     "SmallAdsHwDirect: there is no field ecd; the nearest: ecc"},
    {"fieldOutOfRange",
     R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":1},"fields":{"rpbAdsRofs":16}})",
     "SmallAdsHwDirect: field rpbAdsRofs: 16 is not 0 to 15"},
    {"hexFieldOutOfRange",
     R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":1},"fields":{"rpbAdsRofs":"0x10"}})",
     R"(SmallAdsHwDirect: field rpbAdsRofs: "0x10" is not 0 to 15)"},
    {"noNumber", R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":1},"fields":{"ecc":"12"}})",
     R"(SmallAdsHwDirect: field ecc: "12" is not 0 to 255)"},
    {"fraction", R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":1},"fields":{"ecc":1.5}})",
     "SmallAdsHwDirect: field ecc: 1.5 is not 0 to 255"},
    {"numberForAWideField",
     R"({"op":"set","table":"SrcAddrMapHwDirect","key":{"value":1},"fields":{"sourceAddress":1}})",
     "SrcAddrMapHwDirect: field sourceAddress: 1 is not 0x0 to 0xffffffffffffffffffffffffffffffff, in hex as "
     "a "
     "text"},
    {"wideFieldOutOfRange",
     R"({"op":"set","table":"EsemDefaultResultHwDirect","key":{"value":1},)"
     R"("fields":{"esemDefaultResult":"0x40000000000000000000000"}})",
     R"(EsemDefaultResultHwDirect: field esemDefaultResult: "0x40000000000000000000000" is not 0x0 to )"
     "0x3ffffffffffffffffffffff, in hex as a text"},
    {"contradiction",
     R"({"op":"set","table":"SrcAddrMapHwDirect","key":{"value":1},)"
     R"("fields":{"ipv4B":4,"sourceAddress":"0x5"}})",
     "SrcAddrMapHwDirect: fields ipv4B and sourceAddress contradict each other: they share bits 32 to 63"},
    {"noView", R"({"op":"set","table":"TcamHwDirect","key":{"arrayIndex":0,"entryIndex":4}})",
     "TcamHwDirect: view null: a row is one of MdbkKapsaRpbCommandEntry, MdbkKapsaRpbEntry, "
     "MdbkKapsaRpbCompareReplyEntry, MdbkKapsaRpbReadReplyEntry"},
    {"unknownView", R"({"op":"set","table":"TcamHwDirect","key":{"arrayIndex":0,"entryIndex":4},"view":"X"})",
     "TcamHwDirect: there is no view X; the nearest: MdbkKapsaRpbEntry"},
    {"viewOfATableWithout", R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":1},"view":"X"})",
     R"(SmallAdsHwDirect: view "X": the table has no views)"},
    {"fieldOfAnotherView",
     R"({"op":"set","table":"TcamHwDirect","key":{"arrayIndex":0,"entryIndex":4},)"
     R"("view":"MdbkKapsaRpbEntry","fields":{"cmdValid":1}})",
     "MdbkKapsaRpbEntry: there is no field cmdValid; the nearest: data"},
    {"fapOutOfRange", R"({"op":"download","fap":1})", "fap: 1 is not 0 to 0"},
    {"fapOfASharedTable", R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":1},"fap":0})",
     "SmallAdsHwDirect: fap 0: all FAPs share the table"},
    {"unknownFault", R"({"op":"chip-fault","kind":"refus"})",
     "chip-fault: there is no kind refus; the nearest: refuse, refuseRows, refuseKey"},
    {"faultWithoutRows", R"({"op":"chip-fault","kind":"refuseRows","table":"SmallAdsHwDirect"})",
     "chip-fault: table or key is missing"},
    {"refusedKeyWithoutKey", R"({"op":"chip-fault","kind":"refuseKey","table":"MplsIsemHwEm"})",
     "chip-fault: table or key is missing"},
    {"refusedKeyOfADirectTable",
     R"({"op":"chip-fault","kind":"refuseKey","table":"SmallAdsHwDirect","key":{"value":1}})",
     "chip-fault: SmallAdsHwDirect: only keys of exact-match tables are refused; refuseRows does it for "
     "others"},
    {"reconciledDirectTable", R"({"op":"reconcile","table":"SmallAdsHwDirect"})",
     "reconcile: SmallAdsHwDirect: only exact-match tables are reconciled; download does it for others"},
    {"fapOfASharedExactMatchTable",
     R"({"op":"set","table":"MplsIsemHwEm","key":{"mplsLabel":1,"mplsBos":1},"fap":0})",
     "MplsIsemHwEm: fap 0: all FAPs share the table"},
    {"probabilityOutOfRange", R"({"op":"chip-fault","kind":"refuseByChance","probability":2})",
     "probability: 2 is not 0 to 1"},
    {"unknownStatus", R"({"op":"chip-fault","kind":"refuse","status":"bad"})",
     "chip-fault: there is no status bad; the nearest: badAddress, badDatabase"},
};

INSTANTIATE_TEST_SUITE_P(Kinds, RefusedInput, testing::ValuesIn(kRefusals),
                         [](auto const& one) { return one.param.name; });

class RunInput : public testing::Test {
 protected:
  RunPlace place_;
};

constexpr char kSet[] = R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":1},"fields":{"ecc":7}})";
constexpr char kGet[] = R"({"op":"get","table":"SmallAdsHwDirect","key":{"value":1}})";

TEST_F(RunInput, StopsBeforeTheLineThatIsWrong) {
  RunEvents const events = place_.events(
      {kSet, R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":9999}})", R"({"op":"verify"})"});
  EXPECT_EQ(events.exitCode, 1);
  EXPECT_EQ(events.of("verify").size(), 0U);
  EXPECT_EQ(events.table("SmallAdsHwDirect")["set"], 1);
  EXPECT_EQ(events.table("SmallAdsHwDirect")["commands"], 2);
}

TEST_F(RunInput, KeepGoingPassesOverWrongLinesAndExitsWithOneAllTheSame) {
  RunEvents const events =
      place_.events({"nonsense", kSet, R"({"op":"x"})", kGet, R"({"op":"verify"})"}, "--keep-going");
  EXPECT_EQ(events.exitCode, 1);
  EXPECT_THAT(events.err, HasSubstr("in.jsonl:1: not JSON"));
  EXPECT_THAT(events.err, HasSubstr("in.jsonl:3: there is no operation x"));
  EXPECT_EQ(events.one("get")["fields"]["ecc"], 7);
  EXPECT_EQ(events.one("verify")["clean"], true);
}

TEST_F(RunInput, ComesFromStandardInputWhereNoFileIsNamed) {
  Outcome const piped = place_.command(std::string("run <<< '") + kSet + "\n" + kGet + "'");
  EXPECT_EQ(piped.exitCode, 0) << piped.err;
  EXPECT_THAT(piped.out, HasSubstr("SmallAdsHwDirect value:1: ecc:7\n"));
  EXPECT_EQ(place_.command("run - <<< nonsense").err,
            "hwtables: standard input:1: not JSON: wrong at column 2\n");
}

TEST_F(RunInput, GoesThroughFilesInTheirOrder) {
  TestSupport::writeFile(place_.file("a"), std::string(kSet) + "\n");
  TestSupport::writeFile(place_.file("b"), kGet);
  Outcome const outcome = place_.command("run " + place_.file("a") + " " + place_.file("b"));
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.out, HasSubstr("SmallAdsHwDirect value:1: ecc:7\n"));
}

TEST_F(RunInput, FileThatCannotBeReadIsToldBeforeAnythingIsDone) {
  Outcome const missing = place_.command("run " + place_.fileOf({kSet}) + " /nonexistent");
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "hwtables: cannot read /nonexistent: No such file or directory\n");
  EXPECT_EQ(missing.out, "");
  EXPECT_THAT(place_.command("run /").err, EndsWith("cannot read /: Is a directory\n"));
}

TEST_F(RunInput, UsageErrorsExitWithTwo) {
  EXPECT_EQ(place_.command("run --faps 0").exitCode, 2);
  EXPECT_EQ(place_.command("run --faps 129").exitCode, 2);
  EXPECT_EQ(place_.command("run --revision C7").exitCode, 2);
  EXPECT_EQ(place_.command("run --no-such-option").exitCode, 2);
}

TEST_F(RunInput, ShowsItsProgressOnATerminal) {
  std::vector<std::string> const operations(60, R"({"op":"verify"})");
  Outcome const outcome = runShell("export HWTABLES_ROOT=" + place_.root() + "; script -qec 'HWTABLES run " +
                                   place_.fileOf(operations) + "' /dev/null");
  EXPECT_THAT(outcome.out, testing::ContainsRegex("\r\\[#+ +\\] +[0-9]+% "));
}

TEST_F(RunInput, ShowsNoProgressWhereStandardErrorIsNoTerminal) {
  EXPECT_EQ(place_.run({kSet, R"({"op":"verify"})"}).err, "");
}

}  // namespace
