// What a run tells of exact-match entries that chips refuse, lose, or hold otherwise than they should.
#include <gmock/gmock.h>

#include "tests/host/ExactMatchRows.h"

namespace {

using testing::HasSubstr;

constexpr char kVerify[] = R"({"op":"verify","table":"MplsIsemHwEm"})";
constexpr char kReconcile[] = R"({"op":"reconcile","table":"MplsIsemHwEm"})";
constexpr char kDownload[] = R"({"op":"download","table":"MplsIsemHwEm"})";
constexpr char kNoFaults[] = R"({"op":"chip-fault","kind":"none"})";
constexpr char kFlush[] = R"({"op":"flush"})";
constexpr char kRestart[] = R"({"op":"restart"})";

std::string fault(std::string const& members) { return R"({"op":"chip-fault",)" + members + "}"; }
std::string refuseKey(unsigned label, std::string const& status = "bucketFull",
                      ExactMatchTable const& table = kMplsTable) {
  return table.op("chip-fault", label, R"(,"kind":"refuseKey","status":")" + status + "\"");
}

class RunExactMatchFaults : public testing::Test {
 protected:
  // With entries 0 to 9 of which 5 meets a fault on its way.
  RunEvents meeting(std::string const& members, std::vector<std::string> const& more = {kVerify}) const {
    return place_.events(joined({kMplsTable.rows(0, 5),
                                 kMplsTable.rows(6, 10),
                                 {kFlush, fault(members), kMplsTable.set(5, 5), kFlush},
                                 more}));
  }

  RunPlace place_;
};

TEST_F(RunExactMatchFaults, EntryThatIsNotThereIsMissing) {
  RunEvents const events = place_.events({kMplsTable.set(7, 9), R"({"op":"chip-reset"})", kVerify});
  EXPECT_EQ(events.exitCode, 4);
  RunJson const verdict = events.one("verify");
  EXPECT_EQ(verdict["counts"]["missing"], 1);
  RunJson const row = verdict["bad"][0];
  EXPECT_EQ(row["class"], "missing");
  EXPECT_EQ(row["memory"], "MDBK_ISEM");
  EXPECT_EQ(row["key"], RunJson::parse(R"({"mplsLabel":7,"mplsBos":1})"));
  EXPECT_EQ(row["wanted"]["inLif"], 9);
  EXPECT_EQ(row["found"], nullptr);
}

TEST_F(RunExactMatchFaults, EntryThatNobodyWroteAgainIsStale) {
  RunEvents const events = place_.events({kMplsTable.set(7, 9), kRestart, kVerify});
  EXPECT_EQ(events.exitCode, 4);
  RunJson const row = events.one("verify")["bad"][0];
  EXPECT_EQ(row["class"], "stale");
  EXPECT_EQ(row["wanted"], nullptr);
  EXPECT_EQ(row["found"]["inLif"], 9);
}

TEST_F(RunExactMatchFaults, EntryWithATurnedBitInItsResultIsDifferent) {
  RunEvents const events = meeting(R"("kind":"flipBit","bit":65)");
  EXPECT_EQ(events.exitCode, 4);
  RunJson const verdict = events.one("verify");
  EXPECT_EQ(verdict["counts"]["different"], 1);
  EXPECT_EQ(verdict["bad"].size(), 1U);
  EXPECT_EQ(verdict["bad"][0]["wanted"]["inLif"], 5);
  EXPECT_EQ(verdict["bad"][0]["found"]["inLif"], 7);
}

TEST_F(RunExactMatchFaults, EntryWithATurnedBitInItsKeyIsMissingAndStale) {
  RunEvents const events = meeting(R"("kind":"flipBit","bit":18)", {kVerify, kReconcile, kVerify});
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["counts"]["missing"], 1);
  EXPECT_EQ(verdicts[0]["counts"]["stale"], 1);
  EXPECT_EQ(verdicts[1]["clean"], true);
}

TEST_F(RunExactMatchFaults, DifferenceIsToldFieldByField) {
  Outcome const outcome = place_.run({fault(R"("kind":"flipBit","bit":65)"), kMplsTable.set(5, 5), kVerify});
  EXPECT_THAT(
      outcome.out,
      HasSubstr("verify: NOT CLEAN: 1 row of FAPs {0} compared, 1 different\n"
                "  different: FAP 0 MplsIsemHwEm MDBK_ISEM mplsLabel:5,mplsBos:1: inLif is 7, not 5\n"));
}

TEST_F(RunExactMatchFaults, EntryIsMarkedWhereAReconciliationFailedBeforeItsDownload) {
  RunEvents const events = place_.events(
      joined({kMplsTable.rows(0, 20),
              {kRestart},
              kMplsTable.rows(10, 20),
              {kFlush, refuseKey(15, "badDatabase"), kReconcile, kVerify, kNoFaults, kReconcile, kVerify}}));
  auto const reconciled = events.of("reconcile");
  EXPECT_EQ(reconciled[0]["done"], false);
  EXPECT_EQ(reconciled[0]["removed"], 0);
  EXPECT_GT(reconciled[0]["refused"], 0);
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["clean"], false);
  EXPECT_EQ(verdicts[0]["counts"]["marked"], 1);
  EXPECT_EQ(verdicts[0]["counts"]["stale"], 10);
  EXPECT_EQ(verdicts[0]["counts"]["missing"], 0);
  for (RunJson const& row : verdicts[0]["bad"])
    EXPECT_EQ(row["class"] == "marked", row["key"]["mplsLabel"] == 15) << row;
  EXPECT_EQ(reconciled[1]["done"], true);
  EXPECT_EQ(reconciled[1]["removed"], 10);
  EXPECT_EQ(verdicts[1]["clean"], true);
}

TEST_F(RunExactMatchFaults, FailedReconciliationIsTold) {
  Outcome const outcome = place_.run({kMplsTable.set(1, 1), kFlush, refuseKey(1, "badDatabase"), kReconcile});
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.out,
              HasSubstr("\nreconcile: 0 of 1 table is reconciled, 0 stale entries removed\n"
                        "  MplsIsemHwEm: the reconciliation FAILED (2 commands, 1 refused): stale "
                        "entries may be left, and good ones marked\n"));
}

TEST_F(RunExactMatchFaults, PassThatFailsOverAndOverLeavesStaleEntriesAndMissesNoGoodOne) {
  // Of the passes alone, the first marks.
  std::vector<std::string> const failing{fault(R"("kind":"failPass","nth":2)"),
                                         fault(R"("kind":"failPass","nth":3)"),
                                         fault(R"("kind":"failPass","nth":4)")};
  RunEvents const events = place_.events(joined({kMplsTable.rows(0, 100),
                                                 {kRestart},
                                                 kMplsTable.rows(90, 100),
                                                 {kFlush},
                                                 failing,
                                                 {kReconcile, kVerify, kReconcile, kVerify}}));
  EXPECT_EQ(events.of("reconcile")[0]["done"], false);
  RunJson const verdict = events.of("verify")[0];
  EXPECT_EQ(verdict["counts"]["missing"], 0);
  EXPECT_EQ(verdict["counts"]["marked"], 0);
  EXPECT_EQ(verdict["counts"]["stale"], verdict["bad"].size());
  EXPECT_GT(verdict["counts"]["stale"], 0);
  EXPECT_LT(verdict["counts"]["stale"], 90);
  EXPECT_EQ(events.of("verify")[1]["clean"], true);
}

TEST_F(RunExactMatchFaults, FapThatComesBackWithRowsIsReconciledAtOnceAndItsFailureTold) {
  std::vector<std::string> const leaving =
      joined({kMplsTable.rows(0, 20),
              {kFlush, fault(R"("kind":"failPass","fap":1)"), R"({"op":"fap-del","fap":1})"}});
  std::string const kAdd = R"({"op":"fap-add","fap":1})";
  Outcome const good = place_.run(joined({leaving, {kAdd, kVerify}}), "--faps 2");
  EXPECT_EQ(good.exitCode, 0) << good.out;
  EXPECT_THAT(good.out,
              HasSubstr("\nFAP 1 is up: the chip was in use and keeps its rows until sync-done, but "
                        "for the shared tables: direct ones are downloaded, 3 exact-match tables "
                        "are reconciled, 0 stale entries removed\n"));
  Outcome const bad = place_.run(joined({leaving, {refuseKey(1, "badDatabase"), kAdd}}), "--faps 2");
  EXPECT_THAT(bad.out, HasSubstr("downloaded, 2 of 3 exact-match tables are reconciled, 0 stale entries "
                                 "removed\n  MplsIsemHwEm: the reconciliation FAILED ("));
}

TEST_F(RunExactMatchFaults, PassThatFailsOnceIsTriedAgain) {
  RunEvents const events =
      place_.events(joined({kMplsTable.rows(0, 20),
                            {kRestart},
                            kMplsTable.rows(10, 20),
                            {kFlush, fault(R"("kind":"failPass")"), kReconcile, kVerify}}));
  EXPECT_EQ(events.exitCode, 0);
  EXPECT_EQ(events.one("reconcile")["done"], true);
  EXPECT_EQ(events.one("reconcile")["refused"], 1);
  EXPECT_EQ(events.one("reconcile")["removed"], 10);
}

TEST_F(RunExactMatchFaults, EntryIsPendingWhereTheChipHasNotAnswered) {
  RunEvents const events = meeting(R"("kind":"refuse","status":"noResponse")");
  EXPECT_EQ(events.exitCode, 0);
  RunJson const verdict = events.one("verify");
  EXPECT_EQ(verdict["clean"], true);
  EXPECT_EQ(verdict["counts"]["pending"], 1);
  EXPECT_EQ(verdict["bad"][0]["class"], "pending");
  EXPECT_EQ(events.table("MplsIsemHwEm")["unanswered"], 1);
  RunJson const refusals = events.one("summary")["refusals"];
  ASSERT_EQ(refusals.size(), 1U);
  EXPECT_EQ(refusals[0]["reason"], "no answer");
}

TEST_F(RunExactMatchFaults, EntryOfWhichOnlyTheAnswerWasLostIsRight) {
  RunEvents const events = meeting(R"("kind":"loseAnswer")");
  EXPECT_EQ(events.one("verify")["counts"]["pending"], 0);
  EXPECT_EQ(events.one("verify")["clean"], true);
  EXPECT_EQ(events.table("MplsIsemHwEm")["unanswered"], 1);
}

TEST_F(RunExactMatchFaults, DeletionThatWasNotAnsweredIsPendingAndEndsWithTheNextReconciliation) {
  RunEvents const events =
      place_.events({kMplsTable.set(1, 1), kFlush, fault(R"("kind":"refuse","status":"noResponse")"),
                     kMplsTable.op("delete", 1), kFlush, kVerify, kReconcile, kVerify});
  EXPECT_EQ(events.exitCode, 0);
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["counts"]["pending"], 1);
  EXPECT_EQ(verdicts[0]["counts"]["stale"], 0);
  EXPECT_EQ(verdicts[1]["rows"], 0);
  EXPECT_EQ(events.one("summary")["refusals"].size(), 0U);
}

TEST_F(RunExactMatchFaults, FullBucketIsNoErrorOfTheRunAndShownWithKeyAndReason) {
  std::vector<std::string> const operations{refuseKey(5), kMplsTable.set(5, 5), kMplsTable.set(6, 6),
                                            kMplsTable.op("get", 5), kVerify};
  RunEvents const events = place_.events(operations);
  EXPECT_EQ(events.exitCode, 0);
  RunJson const verdict = events.one("verify");
  EXPECT_EQ(verdict["clean"], true);
  EXPECT_EQ(verdict["counts"]["refused"], 1);
  EXPECT_EQ(verdict["bad"][0]["class"], "refused");
  EXPECT_EQ(events.one("get")["stored"], true);
  EXPECT_EQ(events.table("MplsIsemHwEm")["refused"], 1);
  EXPECT_EQ(events.one("summary")["refusals"],
            RunJson::parse(R"([{"table":"MplsIsemHwEm","key":{"mplsLabel":5,"mplsBos":1},"faps":[0],)"
                           R"("reason":"bucket full"}])"));
  Outcome const outcome = place_.run(operations);
  EXPECT_THAT(outcome.out, HasSubstr("verify: clean: 2 rows of FAPs {0} compared, 1 refused\n"));
  EXPECT_THAT(outcome.out,
              testing::EndsWith("\nrefused: MplsIsemHwEm mplsLabel:5,mplsBos:1 by FAPs {0}: bucket full\n"));
}

TEST_F(RunExactMatchFaults, EveryReasonIsShown) {
  Outcome const outcome =
      place_.run({refuseKey(1, "badAddress"), refuseKey(2, "badDatabase"), refuseKey(3, "noResponse"),
                  kMplsTable.set(1, 1), kMplsTable.set(2, 2), kMplsTable.set(3, 3)});
  EXPECT_THAT(outcome.out,
              testing::EndsWith("\nrefused: MplsIsemHwEm mplsLabel:1,mplsBos:1 by FAPs {0}: bad address"
                                "\nrefused: MplsIsemHwEm mplsLabel:2,mplsBos:1 by FAPs {0}: bad database"
                                "\nunanswered: MplsIsemHwEm mplsLabel:3,mplsBos:1 by FAPs {0}\n"));
}

TEST_F(RunExactMatchFaults, RefusalsPastTheFirstTenAreCounted) {
  std::vector<std::string> operations;
  for (unsigned label = 0; label < 13; ++label) operations.push_back(refuseKey(label));
  operations = joined({operations, kMplsTable.rows(0, 13)});
  Outcome const outcome = place_.run(operations);
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_THAT(outcome.out,
              HasSubstr("\nrefused: MplsIsemHwEm mplsLabel:9,mplsBos:1 by FAPs {0}: bucket full\n"));
  EXPECT_THAT(outcome.out, testing::EndsWith("\nand 3 more, which --json tells\n"));
  EXPECT_EQ(place_.events(operations).one("summary")["refusals"].size(), 13U);
}

TEST_F(RunExactMatchFaults, FullBucketIsTriedAgainByTheNextDownload) {
  RunEvents const events = place_.events(
      {refuseKey(5), kMplsTable.set(5, 5), kFlush, kDownload, kVerify, kNoFaults, kDownload, kVerify});
  EXPECT_EQ(events.exitCode, 0);
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["counts"]["refused"], 1);
  EXPECT_EQ(verdicts[1]["counts"]["refused"], 0);
  EXPECT_EQ(verdicts[1]["bad"].size(), 0U);
  EXPECT_EQ(events.one("summary")["refusals"].size(), 0U);
}

TEST_F(RunExactMatchFaults, FullBucketDoesntKeepAReconciliationFromItsEnd) {
  RunEvents const events = place_.events(joined({kMplsTable.rows(0, 5),
                                                 {kRestart, refuseKey(5)},
                                                 kMplsTable.rows(3, 6),
                                                 {R"({"op":"sync-done"})", kVerify}}));
  EXPECT_EQ(events.exitCode, 0);
  EXPECT_EQ(events.of("reconcile")[0]["done"], true);
  EXPECT_EQ(events.of("reconcile")[0]["removed"], 3);
  EXPECT_EQ(events.one("verify")["counts"]["refused"], 1);
}

TEST_F(RunExactMatchFaults, RefusedKeyThatIsDeletedIsNoLongerShown) {
  RunEvents const events = place_.events(
      {refuseKey(5), kMplsTable.set(5, 5), kFlush, kNoFaults, kMplsTable.op("delete", 5), kVerify});
  EXPECT_EQ(events.one("verify")["rows"], 0);
  EXPECT_EQ(events.one("summary")["refusals"].size(), 0U);
}

TEST_F(RunExactMatchFaults, KeyIsRefusedInItsTableAloneAndOnEveryFap) {
  for (ExactMatchTable const& table : kExactMatchTables) {
    RunEvents const events = place_.events(
        joined({{refuseKey(2, "bucketFull", table)}, rowsOfAllTables(1, 4), {R"({"op":"verify"})"}}),
        "--faps 2");
    EXPECT_EQ(events.exitCode, 0) << events.err;
    RunJson const verdict = events.one("verify");
    EXPECT_EQ(verdict["counts"]["refused"], 2) << table.name;
    for (RunJson const& row : verdict["bad"]) {
      EXPECT_EQ(row["table"], table.name);
      EXPECT_EQ(row["key"][table.counted], 2);
    }
  }
}

TEST_F(RunExactMatchFaults, TableThatCantBeReadIsUnread) {
  RunEvents const events = place_.events({kMplsTable.set(1, 1), kMplsTable.set(2, 2), kFlush,
                                          fault(R"("kind":"loseAnswer")"), kVerify, kVerify});
  EXPECT_EQ(events.exitCode, 4);
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["clean"], false);
  EXPECT_EQ(verdicts[0]["counts"]["unread"], 2);
  EXPECT_EQ(verdicts[0]["bad"][0]["found"], nullptr);
  EXPECT_EQ(verdicts[1]["clean"], true);
}

TEST_F(RunExactMatchFaults, EmptyTableThatCantBeReadIsOneUnreadRowWithoutAKey) {
  std::vector<std::string> const operations{fault(R"("kind":"loseAnswer")"), kVerify};
  RunEvents const events = place_.events(operations);
  EXPECT_EQ(events.exitCode, 4);
  EXPECT_EQ(events.one("verify")["counts"]["unread"], 1);
  EXPECT_EQ(events.one("verify")["bad"][0]["key"], RunJson::object());
  EXPECT_THAT(place_.run(operations).out, HasSubstr("\n  unread: FAP 0 MplsIsemHwEm MDBK_ISEM\n"));
}

TEST_F(RunExactMatchFaults, DifferenceInBitsOfNoFieldIsToldAsSuch) {
  Outcome const outcome = place_.run({fault(R"("kind":"flipBit","bit":40)"), kMplsTable.set(5, 5), kVerify});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(
      outcome.out,
      HasSubstr(
          "\n  different: FAP 0 MplsIsemHwEm MDBK_ISEM mplsLabel:5,mplsBos:1: in bits that no field has\n"));
}

TEST_F(RunExactMatchFaults, DownloadGoesKeyByKeyWhereThereIsNoBuffer) {
  RunEvents const events =
      place_.events(joined({kMplsTable.rows(0, 5),
                            {R"({"op":"chip-reset"})", fault(R"("kind":"noBuffer")"), kDownload, kVerify}}));
  EXPECT_EQ(events.exitCode, 0);
  EXPECT_EQ(events.one("verify")["clean"], true);
  EXPECT_GT(events.one("download")["commands"], 1);
}

TEST_F(RunExactMatchFaults, ChipThatResetsItselfDuringAReconciliationIsToldAndMadeGoodByADownload) {
  RunEvents const events =
      place_.events(joined({kMplsTable.rows(0, 20),
                            {kFlush, fault(R"("kind":"resetInTransfer")"), kReconcile, kVerify,
                             R"({"op":"download"})", kReconcile, R"({"op":"verify"})"}}));
  EXPECT_EQ(events.of("reset-itself").size(), 1U);
  EXPECT_EQ(events.of("reconcile")[0]["done"], false);
  EXPECT_EQ(events.of("reconcile")[1]["done"], true);
  EXPECT_EQ(events.of("verify")[1]["clean"], true);
}

}  // namespace
