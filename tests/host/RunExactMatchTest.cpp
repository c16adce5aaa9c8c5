// What a run does with exact-match tables, each of them in turn.
#include <gmock/gmock.h>

#include "tests/host/ExactMatchRows.h"

namespace {

using testing::HasSubstr;

constexpr char kVerify[] = R"({"op":"verify"})";
constexpr char kReset[] = R"({"op":"chip-reset"})";
constexpr char kRestart[] = R"({"op":"restart"})";

class RunExactMatch : public testing::TestWithParam<ExactMatchTable> {
 protected:
  ExactMatchTable const& table() const { return GetParam(); }
  std::string verify() const { return table().on("verify"); }

  RunPlace place_;
};

INSTANTIATE_TEST_SUITE_P(Tables, RunExactMatch, testing::ValuesIn(kExactMatchTables),
                         [](auto const& one) { return std::string(one.param.name); });

TEST_P(RunExactMatch, SetsGetsAndDeletesEntries) {
  RunEvents const events = place_.events({table().set(1, 11), table().set(2, 12), table().op("get", 2),
                                          verify(), table().op("delete", 1), table().op("get", 1), verify()});
  EXPECT_EQ(events.exitCode, 0) << events.err;
  auto const rows = events.of("get");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0]["stored"], true);
  EXPECT_EQ(rows[0]["key"][table().counted], 2);
  EXPECT_EQ(rows[0]["fields"][table().result], 12);
  EXPECT_EQ(rows[1]["stored"], false);
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["rows"], 2);
  EXPECT_EQ(verdicts[1]["rows"], 1);
  EXPECT_EQ(events.table(table().name)["set"], 2);
  EXPECT_EQ(events.table(table().name)["deleted"], 1);
  EXPECT_EQ(events.table(table().name)["commands"], 3);
}

TEST_P(RunExactMatch, WritesAWholeEntryPresetsFirst) {
  RunEvents const events = place_.events(
      {table().set(1, 11), table().op("set", 1), table().op("get", 1), table().op("get", 2), kVerify});
  EXPECT_EQ(events.exitCode, 0) << events.err;
  auto const rows = events.of("get");
  EXPECT_EQ(rows[0]["fields"][table().result], 0);
  for (auto const& row : rows) {
    EXPECT_EQ(row["fields"]["vmv"], 1);
    EXPECT_EQ(row["fields"][table().counted], row["key"][table().counted]);
  }
  // A key that isn't stored has what would be written without fields.
  RunJson other = rows[1]["fields"];
  for (char const* const name : {"key", "entry", table().counted}) other[name] = rows[0]["fields"][name];
  EXPECT_EQ(other, rows[0]["fields"]);
}

TEST_P(RunExactMatch, IsSharedByTheFapsOrHasEntriesOfEach) {
  RunEvents const events = place_.events({table().set(1, 11), verify()}, "--faps 2");
  EXPECT_EQ(events.one("verify")["rows"], 2);
  EXPECT_EQ(events.table(table().name)["set"], table().shared ? 1 : 2);
  Outcome const ofOne =
      place_.run({table().set(2, 12, R"(,"fap":1)"), table().op("get", 2), verify()}, "--faps 2");
  if (table().shared) {
    EXPECT_EQ(ofOne.exitCode, 1);
    EXPECT_THAT(ofOne.err, HasSubstr("in.jsonl:1: " + std::string(table().name) +
                                     ": fap 1: all FAPs share the table\n"));
  } else {
    EXPECT_EQ(ofOne.exitCode, 0);
    EXPECT_THAT(ofOne.out, HasSubstr(std::string(table().name) + " of FAP 0 "));
    EXPECT_THAT(ofOne.out, HasSubstr(", not stored: "));
    EXPECT_THAT(ofOne.out, HasSubstr("verify: clean: 1 row of FAPs {0,1} compared\n"));
  }
}

TEST_P(RunExactMatch, DownloadFillsAChipThatWasReset) {
  RunEvents const events = place_.events(joined(
      {table().rows(0, 300),
       {kReset, verify(), table().on("download"), verify(), kReset, R"({"op":"download"})", kVerify}}));
  EXPECT_EQ(events.exitCode, 4);
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["counts"]["missing"], 300);
  EXPECT_EQ(verdicts[0]["bad"][0]["class"], "missing");
  EXPECT_EQ(verdicts[0]["bad"][0]["found"], nullptr);
  EXPECT_EQ(verdicts[1]["clean"], true);
  EXPECT_EQ(verdicts[2]["clean"], true);
  // All at once, and not key by key.
  EXPECT_EQ(events.of("download")[0]["commands"], 1);
  EXPECT_EQ(events.of("download")[0]["bytes"], 300 * 24);
}

TEST_P(RunExactMatch, ClearEmptiesItsStoreAndChipAndNoOther) {
  RunEvents const events = place_.events(
      joined({rowsOfAllTables(0, 20),
              {table().on("clear"), table().op("get", 3), verify(), kVerify, R"({"op":"clear"})", kVerify}}));
  EXPECT_EQ(events.exitCode, 0) << events.err;
  EXPECT_EQ(events.one("get")["stored"], false);
  EXPECT_EQ(events.table(table().name)["removed"], 20);
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["rows"], 0);
  EXPECT_EQ(verdicts[1]["rows"].get<int>() - verdicts[2]["rows"].get<int>(), 6 * 20);
}

TEST_P(RunExactMatch, ReconcileRemovesWhatIsStaleAndKeepsTheRest) {
  RunEvents const events = place_.events(
      joined({rowsOfAllTables(0, 20),
              {kRestart},
              rowsOfAllTables(10, 20),
              {verify(), table().on("reconcile"), verify(), kVerify, R"({"op":"reconcile"})", kVerify}}),
      "--faps 2");
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["counts"]["stale"], 20);
  EXPECT_EQ(verdicts[0]["rows"], 40);
  EXPECT_EQ(verdicts[1]["clean"], true);
  EXPECT_EQ(verdicts[1]["rows"], 20);
  // The others wait for theirs.
  EXPECT_EQ(verdicts[2]["counts"]["stale"], 6 * 20);
  EXPECT_EQ(verdicts[3]["clean"], true);
  auto const reconciled = events.of("reconcile");
  ASSERT_EQ(reconciled.size(), 8U);
  EXPECT_EQ(reconciled[0]["table"], table().name);
  EXPECT_EQ(reconciled[0]["done"], true);
  EXPECT_EQ(reconciled[0]["removed"], 20);
  EXPECT_GT(reconciled[0]["passes"], 0);
  EXPECT_EQ(events.table(table().name)["removed"], 20);
}

TEST_P(RunExactMatch, FapThatGoesIsEmptyAndComesBackWithWhatIsStored) {
  RunEvents const events =
      place_.events(joined({table().rows(0, 5),
                            {R"({"op":"fap-del","fap":1})", verify(), R"({"op":"chip-reset","fap":0})",
                             R"({"op":"fap-add","fap":1})", verify(), R"({"op":"download"})",
                             R"({"op":"sync-done"})", kVerify}}),
                    "--faps 2");
  auto const verdicts = events.of("verify");
  EXPECT_EQ(verdicts[0]["rows"], 5);
  EXPECT_EQ(verdicts[0]["clean"], true);
  // FAP 0 was reset; FAP 1 shares the entries, or has none any more.
  EXPECT_EQ(verdicts[1]["counts"]["missing"], 5);
  EXPECT_EQ(verdicts[1]["counts"]["stale"], 0);
  EXPECT_EQ(verdicts[1]["rows"], table().shared ? 10 : 5);
  EXPECT_EQ(verdicts[2]["clean"], true);
}

TEST_P(RunExactMatch, OtherProcessesListGetAndDumpIt) {
  std::vector<std::string> operations{table().set(300, 2), table().set(7, 1)};
  EXPECT_EQ(place_.run(operations).exitCode, 0);
  std::string const name = table().name;
  EXPECT_THAT(place_.command("table list").out,
              testing::ContainsRegex("\n" + name + " +Qumran3aA0 +" + (table().shared ? "all" : "0") +
                                     " +2  free\n"));
  Outcome const dump = place_.command("table dump " + name + " --json");
  EXPECT_EQ(std::ranges::count(dump.out, '\n'), 2);
  RunJson const first = RunJson::parse(dump.out.substr(0, dump.out.find('\n')));
  // In whatever order.
  EXPECT_EQ(nlohmann::json::parse(first["key"].dump()), nlohmann::json::parse(table().key(7)));
  EXPECT_EQ(first["fields"][table().result], 1);
  std::string key;
  for (auto const& [member, value] : first["key"].items())
    key += (key.empty() ? "" : ",") + member + ":" + value.dump();
  Outcome const one = place_.command("table get " + name + " " + key);
  EXPECT_EQ(one.exitCode, 0);
  EXPECT_THAT(one.out, HasSubstr(key + " "));
  EXPECT_THAT(one.out, HasSubstr(std::string(" ") + table().result + ":1 "));
}

class RunExactMatchTables : public testing::Test {
 protected:
  RunPlace place_;
};

TEST_F(RunExactMatchTables, DumpsTellKeyAndResultOnce) {
  EXPECT_EQ(place_.run({kMplsTable.set(100, 5), kPortCvidTable.set(7, 6)}).exitCode, 0);
  EXPECT_EQ(place_.command("table dump MplsIsemHwEm").out,
            "mplsLabel:100,mplsBos:1 inLif:5 vmv:1 entryType:1\n");
  EXPECT_EQ(place_.command("table dump EsemFodoPortCvidEm").out,
            "FAP 0 cVid:7,esemNameSpace:2,fodo:70000 vlanEditVid1:6 resultType:9 vmv:1 appId:4\n");
}

TEST_F(RunExactMatchTables, AreReadByOtherProcessesWhileTheyAreReconciled) {
  GoingRun run(place_, {"--chip", place_.chips(), "--serve"});
  for (std::string const& row : kMplsTable.rows(0, 300)) run.write(row);
  run.write(R"({"op":"flush"})");
  run.write(R"({"op":"chip-fault","kind":"slowPass","after":500000})");
  run.write(kMplsTable.op("get", 299));
  ASSERT_TRUE(run.waitFor("MplsIsemHwEm mplsLabel:299,mplsBos:1: "));
  run.write(kMplsTable.on("reconcile"));
  EXPECT_THAT(place_.command("table list").out,
              testing::ContainsRegex("\nMplsIsemHwEm +Qumran3aA0 +all +300  pid " +
                                     std::to_string(run.pid()) + "\n"));
  EXPECT_EQ(place_.command("table get MplsIsemHwEm mplsLabel:7,mplsBos:1").out,
            "mplsLabel:7,mplsBos:1 inLif:7 vmv:1 entryType:1\n");
  Outcome const dump = place_.command("table dump MplsIsemHwEm");
  EXPECT_EQ(std::ranges::count(dump.out, '\n'), 300);
  // What other processes read is the store, in which nothing is ever marked.
  EXPECT_THAT(dump.out, testing::Not(HasSubstr("sweepBit")));
  run.endInput();
  ASSERT_TRUE(run.waitFor("serving as pid"));
  EXPECT_THAT(run.out(), HasSubstr("\nreconcile: 1 table is reconciled, 0 stale entries removed\n"));
}

TEST_F(RunExactMatchTables, ReconcileTellsWhatItHasRemoved) {
  Outcome const outcome =
      place_.run(joined({rowsOfAllTables(0, 3),
                         {kRestart},
                         rowsOfAllTables(1, 3),
                         {kMplsTable.on("reconcile"), R"({"op":"sync-done"})", R"({"op":"reconcile"})"}}));
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\nreconcile: 1 table is reconciled, 1 stale entry removed\n"
                                     "  MplsIsemHwEm: 1 stale entry removed\n"
                                     "sync-done: direct tables are downloaded, 7 exact-match tables "
                                     "are reconciled, 6 stale entries removed\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\n  EsemFodoPortCvidEm: 1 stale entry removed\n"));
  EXPECT_THAT(outcome.out,
              HasSubstr("\nreconcile: 7 tables are reconciled, 0 stale entries removed\nTABLE "));
  // Passes and what they and single deletions have removed, in the summary.
  EXPECT_THAT(outcome.out, testing::ContainsRegex("\nMplsIsemHwEm +5 .* +6 +1 +0 +[0-9.]+ [mu]?s\n"));
  EXPECT_THAT(outcome.out, testing::ContainsRegex("\nEsemFodoPortCvidEm +5 .* +0 +1 +0 +[0-9.]+ [mu]?s\n"));
}

TEST_F(RunExactMatchTables, ReconcileOfOneFapLeavesTheOthersAlone) {
  RunEvents const events = place_.events(
      joined({rowsOfAllTables(0, 3), {kRestart, R"({"op":"reconcile","fap":1})", kVerify}}), "--faps 2");
  auto const verdict = events.one("verify");
  EXPECT_EQ(verdict["counts"]["stale"], 3 * 7);
  for (RunJson const& row : verdict["bad"]) EXPECT_EQ(row["fap"], 0);
}

TEST_F(RunExactMatchTables, WarmChipIsNeitherDownloadedToNorReconciledBeforeSyncDone) {
  EXPECT_EQ(place_.run(rowsOfAllTables(0, 20), place_.keepChips()).exitCode, 0);
  RunEvents const waiting = place_.events(joined({rowsOfAllTables(10, 20), {kVerify}}), place_.keepChips());
  EXPECT_EQ(waiting.one("fap-add")["downloaded"], false);
  EXPECT_EQ(waiting.one("verify")["counts"]["stale"], 7 * 10);
  for (ExactMatchTable const& table : kExactMatchTables) {
    RunJson const figures = waiting.table(table.name);
    EXPECT_EQ(figures["flushPasses"], 0) << table.name;
    EXPECT_EQ(figures["downloadCommands"], 0) << table.name;
    EXPECT_EQ(figures["removed"], 0) << table.name;
  }
  RunEvents const synced = place_.events(
      joined({rowsOfAllTables(10, 20), {R"({"op":"sync-done"})", kVerify}}), place_.keepChips());
  EXPECT_EQ(synced.exitCode, 0) << synced.err;
  ASSERT_EQ(synced.of("reconcile").size(), 7U);
  for (RunJson const& table : synced.of("reconcile")) EXPECT_EQ(table["removed"], 10) << table;
  EXPECT_EQ(synced.one("verify")["clean"], true);
}

}  // namespace
