// Runs beside other processes, and runs that end in other ways than by their input's end.
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <sstream>
#include <thread>

#include "Vault/StoredType.h"
#include "platform/chip/ChipMemoryMap.h"
#include "platform/chip/ChipState.h"
#include "tests/host/ChipFileWatch.h"
#include "tests/host/Runs.h"
#include "tests/support/ChildProcess.h"

namespace {

using testing::HasSubstr;

constexpr char kVerify[] = R"({"op":"verify"})";
constexpr char kSyncDone[] = R"({"op":"sync-done"})";
constexpr unsigned kRows = 600;

// Rows of which each tells its number twice.
std::string setRow(unsigned value) {
  return R"({"op":"set","table":"SmallAdsA1HwDirect","key":{"value":)" + std::to_string(value) +
         R"(},"fields":{"rpbAdsBdata":)" + std::to_string(value + 1) + R"(,"rbpAdsFmField":)" +
         std::to_string(value + 1) + "}}";
}

std::vector<std::string> setRows() {
  std::vector<std::string> operations;
  for (unsigned row = 0; row < kRows; ++row) operations.push_back(setRow(row));
  return operations;
}

class RunLives : public testing::Test {
 protected:
  std::vector<std::string> serving() const { return {"--chip", place_.chips(), "--serve"}; }

  RunPlace place_;
};

// What the first chip holds, seen from outside of the process that has it.
class ChipWatch final : public ChipFileWatch {
 public:
  explicit ChipWatch(RunPlace const& place) : ChipFileWatch(place) {
    auto const* const memory = Chip::ChipMemoryMap::find(282, 0x3130000);
    rows_ = start() + Chip::ChipState::kHeaderBytes + memory->storedAt;
    rowBytes_ = memory->rowBytes;
  }
  ~ChipWatch() { end(); }

  unsigned missingNow() const override {
    unsigned missing = 0;
    for (unsigned row = 0; row < kRows; ++row) {
      std::uint32_t word = 0;
      std::memcpy(&word, rows_ + row * rowBytes_, sizeof word);
      missing += (word & 0xfffff) == row + 1 ? 0 : 1;
    }
    return missing;
  }

 private:
  std::byte const* rows_ = nullptr;
  std::size_t rowBytes_ = 0;
};

TEST_F(RunLives, SecondWriterIsRefusedWithThree) {
  GoingRun first(place_, {"--serve"});
  first.write(setRow(1));
  first.endInput();
  ASSERT_TRUE(first.waitFor("serving as pid"));
  Outcome const second = place_.run({kVerify});
  EXPECT_EQ(second.exitCode, 3);
  EXPECT_THAT(second.err,
              testing::EndsWith("\nhwtables: Duplicate Writer Detected, vault path not cleaned up\n"));
  // The first one is as it was.
  EXPECT_EQ(place_.command("table get SmallAdsA1HwDirect 1").out,
            "value:1 rpbAdsBdata:2 rpbAdsFm0:2 rbpAdsFmField:2\n");
  first.signal(SIGTERM);
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(place_.run({kVerify}).exitCode, 0);
}

TEST_F(RunLives, SecondRunOverTheSameChipsIsRefusedWithThree) {
  GoingRun first(place_, serving());
  first.endInput();
  ASSERT_TRUE(first.waitFor("serving as pid"));
  Outcome const second = runShell("HWTABLES_ROOT=" + place_.file("other") + " HWTABLES run --chip " +
                                  place_.chips() + " </dev/null");
  EXPECT_EQ(second.exitCode, 3);
  EXPECT_THAT(second.err, HasSubstr(place_.chips()));
}

TEST_F(RunLives, ServesUntilASignalAndDetachesInOrder) {
  for (int const signal : {SIGINT, SIGTERM}) {
    GoingRun run(place_, {"--serve"});
    run.write(setRow(1));
    run.endInput();
    ASSERT_TRUE(run.waitFor("serving as pid " + std::to_string(run.pid()) + " until SIGINT or SIGTERM\n"));
    EXPECT_THAT(place_.command("table list").out, HasSubstr("pid " + std::to_string(run.pid())));
    run.signal(signal);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_THAT(place_.command("table list").out, testing::Not(HasSubstr("pid ")));
    EXPECT_EQ(place_.command("store check shadow/Qumran3aA0/SmallAdsA1HwDirect/128-0").exitCode, 0);
    EXPECT_EQ(place_.command("table get SmallAdsA1HwDirect 1").exitCode, 0);
  }
}

TEST_F(RunLives, SignalBeforeTheInputHasEndedIsAnOrderlyEndToo) {
  GoingRun run(place_, {"--chip", place_.chips()});
  run.write(setRow(1));
  run.write(R"({"op":"get","table":"SmallAdsA1HwDirect","key":{"value":1}})");
  ASSERT_TRUE(run.waitFor("SmallAdsA1HwDirect value:1: "));
  run.signal(SIGINT);
  EXPECT_EQ(run.wait(), 1);
  EXPECT_THAT(run.out(), HasSubstr("hwtables: interrupted; all that was read is done\n"));
  EXPECT_EQ(place_.command("table get SmallAdsA1HwDirect 1").exitCode, 0);
}

TEST_F(RunLives, SendsWhatItHasWhenTheInputPauses) {
  GoingRun run(place_, {"--chip", place_.chips()});
  run.write(setRow(0));
  run.write(R"({"op":"get","table":"SmallAdsA1HwDirect","key":{"value":0}})");
  ASSERT_TRUE(run.waitFor("SmallAdsA1HwDirect value:0: "));
  ChipWatch const chip(place_);
  EXPECT_EQ(chip.missingNow(), kRows - 1);
}

TEST_F(RunLives, DumpsOfATableThatIsBeingWrittenShowWholeRowsOnly) {
  GoingRun run(place_, {"--serve"});
  run.write(setRow(0));
  run.write(R"({"op":"get","table":"SmallAdsA1HwDirect","key":{"value":0}})");
  ASSERT_TRUE(run.waitFor("SmallAdsA1HwDirect value:0: "));
  std::atomic<bool> ending = false;
  std::atomic<unsigned> rows = 0;
  std::atomic<unsigned> torn = 0;
  auto const read = [&] {
    do {
      std::istringstream lines(place_.command("table dump SmallAdsA1HwDirect --json").out);
      for (std::string line; std::getline(lines, line);) {
        RunJson const row = RunJson::parse(line);
        std::uint64_t const told = row["fields"]["rpbAdsBdata"];
        ++rows;
        if (told != row["fields"]["rbpAdsFmField"] || told != row["key"]["value"].get<std::uint64_t>() + 1)
          ++torn;
      }
    } while (!ending);
  };
  std::thread one(read);
  std::thread other(read);
  for (int round = 0; round < 20; ++round) {
    for (std::string const& operation : setRows()) run.write(operation);
    run.write(R"({"op":"delete","table":"SmallAdsA1HwDirect","key":{"value":5}})");
  }
  run.write(setRow(5));
  run.endInput();
  EXPECT_TRUE(run.waitFor("serving as pid"));
  ending = true;
  one.join();
  other.join();
  EXPECT_GT(rows, 0U);
  EXPECT_EQ(torn, 0U);
  auto const dump = place_.command("table dump SmallAdsA1HwDirect").out;
  EXPECT_EQ(std::ranges::count(dump, '\n'), kRows);
}

// The fields of a row in which its number stands.
class NumbersTold final : public Vault::FieldSink {
 public:
  void number(std::string_view name, std::uint64_t value) override {
    if (name == "rpbAdsBdata") data = value;
    if (name == "rbpAdsFmField") again = value;
  }
  void bits(std::string_view /*name*/, std::string_view /*hex*/) override {}

  std::uint64_t data = 0;
  std::uint64_t again = 0;
};

constexpr unsigned kLastRow = 2000;

// Stays attached, and looks rows up, until the last one is there. Exits 0 where it has met rows and all of
// them were whole.
void readUntilLastRow() {
  auto const* const type = Vault::StoredType::find("bcm88490_a0::SmallAdsA1HwDirect::Entry");
  auto const reader = type->reader({Dovel::Platform::getDebugHandler("RunLivesTest", true),
                                    "shadow/Qumran3aA0/SmallAdsA1HwDirect/128-0", true});
  while (!reader->attach()) std::this_thread::yield();
  std::uint64_t met = 0;
  std::uint64_t wrong = 0;
  while (reader->find("value:" + std::to_string(kLastRow)) == nullptr) {
    for (unsigned row = 0; row < kRows; ++row) {
      std::byte const* const record = reader->find("value:" + std::to_string(row));
      if (record == nullptr) continue;
      NumbersTold told;
      type->fields(record, told);
      ++met;
      if (told.data != told.again || told.data != row + 1) ++wrong;
    }
  }
  std::_Exit(met == 0 ? 2 : wrong == 0 ? 0 : 1);
}
TestSupport::ChildRole const kReader("readUntilLastRow", readUntilLastRow);

TEST_F(RunLives, TwoReadersStayAttachedAndSeeWholeRowsOnly) {
  GoingRun run(place_, {"--serve"});
  run.write(setRow(0));
  run.write(R"({"op":"get","table":"SmallAdsA1HwDirect","key":{"value":0}})");
  ASSERT_TRUE(run.waitFor("SmallAdsA1HwDirect value:0: "));
  std::array<int, 2> exitCodes{-1, -1};
  auto const read = [&](int& exitCode) {
    exitCode = TestSupport::runChild("readUntilLastRow", {{"HWTABLES_ROOT", place_.root()}}).exitCode;
  };
  std::thread one(read, std::ref(exitCodes[0]));
  std::thread other(read, std::ref(exitCodes[1]));
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (std::chrono::steady_clock::now() < end) {
    for (std::string const& operation : setRows()) run.write(operation);
    run.write(R"({"op":"delete","table":"SmallAdsA1HwDirect","key":{"value":5}})");
  }
  run.write(setRow(kLastRow));
  run.endInput();
  one.join();
  other.join();
  EXPECT_THAT(exitCodes, testing::Each(0));
}

TEST_F(RunLives, NoGoodRowIsEverMissingWhileAKilledRunIsStartedWarm) {
  {
    GoingRun first(place_, serving());
    for (std::string const& operation : setRows()) first.write(operation);
    first.endInput();
    ASSERT_TRUE(first.waitFor("serving as pid"));
    first.signal(SIGKILL);
    EXPECT_EQ(first.wait(), 128 + SIGKILL);
  }
  ChipWatch watch(place_);
  ASSERT_EQ(watch.missingNow(), 0U);
  watch.begin();
  {
    // Killed again in the middle of its replay.
    GoingRun second(place_, serving());
    for (unsigned row = 0; row < kRows / 2; ++row) second.write(setRow(row));
    second.write(R"({"op":"get","table":"SmallAdsA1HwDirect","key":{"value":1}})");
    ASSERT_TRUE(second.waitFor("SmallAdsA1HwDirect value:1: "));
    second.signal(SIGKILL);
    EXPECT_EQ(second.wait(), 128 + SIGKILL);
  }
  std::vector<std::string> operations = setRows();
  operations.insert(operations.end(), {kSyncDone, kVerify});
  RunEvents const third = place_.events(operations, place_.keepChips());
  EXPECT_EQ(third.exitCode, 0) << third.err;
  EXPECT_EQ(third.one("fap-add")["start"], "warm");
  watch.end();
  EXPECT_EQ(watch.missing(), 0U);
  EXPECT_GT(watch.rounds(), 10U);
}

TEST_F(RunLives, WatchSeesRowsThatAreMissing) {
  std::vector<std::string> operations = setRows();
  EXPECT_EQ(place_.run(operations, place_.keepChips()).exitCode, 0);
  ChipWatch watch(place_);
  watch.begin();
  operations.push_back(R"({"op":"clear","table":"SmallAdsA1HwDirect"})");
  EXPECT_EQ(place_.run(operations, place_.keepChips()).exitCode, 0);
  while (watch.missing() == 0) std::this_thread::yield();
  EXPECT_EQ(watch.missingNow(), kRows);
}

TEST_F(RunLives, LeafSwitchOfTheExamplesRunsClean) {
  std::string const made = place_.file("leaf-switch.jsonl");
  Outcome const making =
      runShell("cd " HWTABLES_SOURCE_DIR
               " && PYTHONDONTWRITEBYTECODE=1 examples/leaf_switch.py examples/leaf-switch.toml >" +
               made);
  ASSERT_EQ(making.exitCode, 0) << making.err;
  std::string const examples = HWTABLES_SOURCE_DIR "/examples/";
  Outcome const cold =
      place_.command("run --faps 2 " + place_.keepChips() + made + " " + examples + "chip-reset.jsonl");
  EXPECT_EQ(cold.exitCode, 0) << cold.out << cold.err;
  Outcome const warm =
      place_.command("run --faps 2 " + place_.keepChips() + made + " " + examples + "sync-done.jsonl");
  EXPECT_EQ(warm.exitCode, 0) << warm.out << warm.err;
  EXPECT_THAT(warm.out, HasSubstr("FAP 1 is up: the chip was in use and keeps its rows until sync-done\n"));
}

}  // namespace
