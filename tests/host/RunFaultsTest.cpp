#include <gmock/gmock.h>

#include "tests/host/Runs.h"

namespace {

using testing::HasSubstr;

constexpr char kVerify[] = R"({"op":"verify"})";
constexpr char kNoFaults[] = R"({"op":"chip-fault","kind":"none"})";
constexpr char kFlush[] = R"({"op":"flush"})";

std::string setRow(unsigned value, unsigned ecc = 9) {
  return R"({"op":"set","table":"SmallAdsHwDirect","key":{"value":)" + std::to_string(value) +
         R"(},"fields":{"ecc":)" + std::to_string(ecc) + "}}";
}

std::string getRow(unsigned value) {
  return R"({"op":"get","table":"SmallAdsHwDirect","key":{"value":)" + std::to_string(value) + "}}";
}

std::string fault(std::string const& members) { return R"({"op":"chip-fault",)" + members + "}"; }

class RunFaults : public testing::Test {
 protected:
  // Rows 1 and 2, with the fault in between: row 2 meets it.
  RunEvents meeting(std::string const& members, std::vector<std::string> more = {kVerify}) const {
    std::vector<std::string> operations{setRow(1), kFlush, fault(members), setRow(2), kFlush};
    operations.insert(operations.end(), more.begin(), more.end());
    return place_.events(operations);
  }

  RunPlace place_;
};

TEST_F(RunFaults, RefusedCommandIsCountedAndShownAndTheStoreKeepsTheEntry) {
  RunEvents const events = meeting(R"("kind":"refuse")", {kVerify, getRow(2)});
  EXPECT_EQ(events.exitCode, 0);
  EXPECT_EQ(events.table("SmallAdsHwDirect")["refused"], 1);
  RunJson const verdict = events.one("verify");
  EXPECT_EQ(verdict["clean"], true);
  EXPECT_EQ(verdict["counts"]["refused"], 1);
  EXPECT_EQ(verdict["bad"][0]["key"]["value"], 2);
  EXPECT_EQ(events.one("get")["stored"], true);
  EXPECT_EQ(events.one("get")["fields"]["ecc"], 9);
}

TEST_F(RunFaults, DownloadMendsWhatWasRefused) {
  RunEvents const events =
      meeting(R"("kind":"refuse","status":"bucketFull")", {R"({"op":"download"})", kVerify});
  EXPECT_EQ(events.one("verify")["counts"]["refused"], 0);
  EXPECT_EQ(events.one("verify")["clean"], true);
}

TEST_F(RunFaults, RefusalIsShownInTheSummary) {
  Outcome const outcome = place_.run({fault(R"("kind":"refuse")"), setRow(2)});
  EXPECT_THAT(outcome.out, testing::ContainsRegex("\nSmallAdsHwDirect +1 +0 +1 +1 "));
}

TEST_F(RunFaults, CommandWithoutAnAnswerIsCounted) {
  RunEvents const events = meeting(R"("kind":"loseAnswer")");
  EXPECT_EQ(events.table("SmallAdsHwDirect")["unanswered"], 1);
  // The chip has done what it didn't answer for.
  EXPECT_EQ(events.one("verify")["counts"]["pending"], 0);
  EXPECT_EQ(events.one("verify")["clean"], true);
}

TEST_F(RunFaults, LateAnswerIsNoOtherCommandsAnswer) {
  RunEvents const events =
      meeting(R"("kind":"lateAnswer","after":2)", {setRow(3), kFlush, setRow(4), kFlush, kVerify});
  EXPECT_EQ(events.table("SmallAdsHwDirect")["unanswered"], 1);
  EXPECT_EQ(events.table("SmallAdsHwDirect")["refused"], 0);
  EXPECT_EQ(events.one("verify")["clean"], true);
}

TEST_F(RunFaults, TurnedBitIsADifferentRow) {
  RunEvents const events = meeting(R"("kind":"flipBit","bit":3)");
  EXPECT_EQ(events.exitCode, 4);
  RunJson const verdict = events.one("verify");
  EXPECT_EQ(verdict["counts"]["different"], 1);
  EXPECT_EQ(verdict["bad"][0]["class"], "different");
  EXPECT_EQ(verdict["bad"][0]["found"]["rpbAdsBdata"], 8);
}

TEST_F(RunFaults, TurnedBitInARowThatNobodyWroteIsStale) {
  RunEvents const events = place_.events(
      {fault(R"("kind":"flipBit","bit":3)"), R"({"op":"download","table":"SmallAdsHwDirect"})", kVerify});
  EXPECT_EQ(events.exitCode, 4);
  EXPECT_EQ(events.one("verify")["counts"]["stale"], 1);
}

TEST_F(RunFaults, ChipThatResetsItselfInTheMiddleOfADownloadIsToldAndFoundBlank) {
  RunEvents const events = place_.events({setRow(1), fault(R"("kind":"resetInTransfer")"),
                                          R"({"op":"download","table":"SmallAdsHwDirect"})", kVerify,
                                          R"({"op":"download"})", kVerify});
  EXPECT_EQ(events.one("reset-itself")["fap"], 0);
  auto const verdicts = events.of("verify");
  EXPECT_GT(verdicts[0]["counts"]["missing"], 8192);
  EXPECT_EQ(verdicts[1]["clean"], true);
}

TEST_F(RunFaults, RowsThatTheChipRefusesAreNeitherWrittenNorRead) {
  RunEvents const events =
      place_.events({fault(R"("kind":"refuseRows","table":"SmallAdsHwDirect","key":{"value":2},"rows":2)"),
                     setRow(1), setRow(2), setRow(3), setRow(4), kVerify, kNoFaults, kVerify});
  EXPECT_EQ(events.exitCode, 4);
  EXPECT_EQ(events.table("SmallAdsHwDirect")["refused"], 2);
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["clean"], false);
  EXPECT_EQ(verdicts[0]["counts"]["unread"], 2);
  EXPECT_EQ(verdicts[0]["bad"].size(), 2U);
  EXPECT_EQ(verdicts[0]["bad"][0]["found"], nullptr);
  EXPECT_EQ(verdicts[1]["counts"]["refused"], 2);
}

TEST_F(RunFaults, RefusalsByChanceDependOnTheSeedAlone) {
  std::vector<std::string> operations{fault(R"("kind":"refuseByChance","seed":5,"probability":0.1)")};
  for (unsigned row = 0; row < 500; ++row) operations.push_back(setRow(row));
  operations.insert(operations.end(), {kFlush, kNoFaults, kVerify});
  RunEvents const first = place_.events(operations);
  RunJson const refused = first.table("SmallAdsHwDirect")["refused"];
  EXPECT_GT(refused, 20);
  EXPECT_LT(refused, 100);
  EXPECT_EQ(first.one("verify")["counts"]["refused"], refused);
  EXPECT_EQ(place_.events(operations).table("SmallAdsHwDirect")["refused"], refused);
}

TEST_F(RunFaults, LossesAndDelaysByChanceDependOnTheSeedAlone) {
  for (std::string const kind : {"loseByChance", "lateByChance"}) {
    std::vector<std::string> operations{
        fault(R"("kind":")" + kind + R"(","seed":5,"probability":0.1,"after":3)")};
    for (unsigned row = 0; row < 500; ++row) operations.push_back(setRow(row));
    operations.insert(operations.end(), {kFlush, kNoFaults, kVerify});
    RunEvents const first = place_.events(operations);
    RunJson const unanswered = first.table("SmallAdsHwDirect")["unanswered"];
    EXPECT_GT(unanswered, 20) << kind;
    EXPECT_LT(unanswered, 100) << kind;
    EXPECT_EQ(first.one("verify")["clean"], true) << kind;
    EXPECT_EQ(place_.events(operations).table("SmallAdsHwDirect")["unanswered"], unanswered) << kind;
  }
}

TEST_F(RunFaults, CommandThatNeverArrivedIsPending) {
  RunEvents const events = meeting(R"("kind":"refuse","status":"noResponse")");
  EXPECT_EQ(events.table("SmallAdsHwDirect")["unanswered"], 1);
  EXPECT_EQ(events.table("SmallAdsHwDirect")["refused"], 0);
  EXPECT_EQ(events.one("verify")["counts"]["pending"], 1);
}

TEST_F(RunFaults, DownloadGoesRowByRowWhereThereIsNoBuffer) {
  RunEvents const events = place_.events(
      {setRow(1), R"({"op":"chip-reset"})", fault(R"("kind":"noBuffer")"), R"({"op":"download"})", kVerify});
  EXPECT_EQ(events.exitCode, 0);
  EXPECT_EQ(events.one("verify")["clean"], true);
}

TEST_F(RunFaults, FaultsAreOfTheFapThatIsNamed) {
  RunEvents const events =
      place_.events({fault(R"("kind":"refuse","fap":1)"), setRow(2), kVerify}, "--faps 2");
  EXPECT_EQ(events.one("verify")["counts"]["refused"], 1);
  EXPECT_EQ(events.one("verify")["bad"][0]["fap"], 1);
}

}  // namespace
