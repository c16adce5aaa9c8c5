#include <gmock/gmock.h>

#include "tests/host/Runs.h"

namespace {

using testing::HasSubstr;

class TableCommand : public testing::Test {
 protected:
  // Leaves a few rows in stores.
  TableCommand() {
    Outcome const outcome = place_.run(
        {R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":300},"fields":{"ecc":1}})",
         R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":7},"fields":{"ecc":2}})",
         R"({"op":"set","table":"VttInPpPortConfig0HwDirect","fap":1,"key":{"value":7},"fields":{"ecc":3}})",
         R"({"op":"set","table":"TcamHwDirect","key":{"arrayIndex":1,"entryIndex":4},)"
         R"("view":"MdbkKapsaRpbReadReplyEntry","fields":{"rdValid":2}})"},
        "--faps 2");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  }

  RunPlace place_;
};

TEST_F(TableCommand, ListsTheTablesWithTheirRows) {
  Outcome const outcome = place_.command("table list");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.out, testing::ContainsRegex("\nSmallAdsHwDirect +Qumran3aA0 +all +2  free\n"));
  EXPECT_THAT(outcome.out, testing::ContainsRegex("\nVttInPpPortConfig0HwDirect +Qumran3aA0 +0 +0  free\n"));
  EXPECT_THAT(outcome.out, testing::ContainsRegex("\nVttInPpPortConfig0HwDirect +Qumran3aA0 +1 +1  free\n"));
  EXPECT_THAT(
      place_.command("table list --json").out,
      HasSubstr(
          R"({"table":"SmallAdsHwDirect","revision":"Qumran3aA0","fap":"all","rows":2,"writer":null})"));
}

TEST_F(TableCommand, ListsNothingWhereThereIsNothing) {
  RunPlace const empty;
  Outcome const outcome = empty.command("table list");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(std::ranges::count(outcome.out, '\n'), 1);
}

TEST_F(TableCommand, DumpsRowsInTheOrderOfTheirKeys) {
  EXPECT_EQ(place_.command("table dump SmallAdsHwDirect").out, "value:7 ecc:2\nvalue:300 ecc:1\n");
  EXPECT_EQ(place_.command("table dump TcamHwDirect").out, "arrayIndex:1,entryIndex:4 rdValid:2\n");
  EXPECT_EQ(
      place_.command("table dump TcamHwDirect --json").out,
      R"({"table":"TcamHwDirect","fap":"all","key":{"arrayIndex":1,"entryIndex":4},"fields":{"rdData":"0x)" +
          std::string(40, '0') + R"(","rdValid":2}})" + "\n");
}

TEST_F(TableCommand, GetsRowsByKey) {
  Outcome const outcome = place_.command("table get SmallAdsHwDirect 300 value:7");
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.out, "value:300 ecc:1\nvalue:7 ecc:2\n");
}

TEST_F(TableCommand, TellsOfWhichFapARowIs) {
  Outcome const both = place_.command("table get VttInPpPortConfig0HwDirect 7");
  EXPECT_EQ(both.exitCode, 1);
  EXPECT_EQ(both.out, "FAP 1 value:7 ecc:3\n");
  EXPECT_EQ(both.err, "hwtables: VttInPpPortConfig0HwDirect of FAP 0 holds no row of 7\n");
  EXPECT_EQ(place_.command("table get VttInPpPortConfig0HwDirect 7 --fap 1").exitCode, 0);
  EXPECT_EQ(place_.command("table dump VttInPpPortConfig0HwDirect --fap 0").out, "");
}

TEST_F(TableCommand, UnknownNamesAndKeysExitWithTwo) {
  Outcome const name = place_.command("table dump SmallAdHwDirect");
  EXPECT_EQ(name.exitCode, 2);
  EXPECT_THAT(name.err,
              HasSubstr("hwtables: there is no table SmallAdHwDirect; the nearest: SmallAdsHwDirect"));
  Outcome const key = place_.command("table get SmallAdsHwDirect x");
  EXPECT_EQ(key.exitCode, 2);
  EXPECT_THAT(key.err, HasSubstr("hwtables: no key of SmallAdsHwDirect: x: "));
}

TEST_F(TableCommand, TableWithoutAStoreExitsWithOne) {
  Outcome const outcome = place_.command("table dump IppeRecycFwdProfileMappingHwReg");
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(outcome.err, "hwtables: IppeRecycFwdProfileMappingHwReg has no store\n");
}

}  // namespace
