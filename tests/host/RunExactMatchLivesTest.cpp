// Exact-match entries through runs that are killed and started anew, seen in the chip's file from outside.
#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <map>
#include <string_view>
#include <thread>

#include "tests/host/ChipFileWatch.h"
#include "tests/host/ExactMatchRows.h"

namespace {

constexpr char kSyncDone[] = R"({"op":"sync-done"})";
constexpr char kVerify[] = R"({"op":"verify"})";
constexpr unsigned kGood = 300;
constexpr unsigned kAll = 400;
constexpr std::size_t kTables = std::size(kExactMatchTables);

// Where the entries of a table are in the file, and its row numbers in them; told here anew.
struct InFile {
  std::string_view table;
  unsigned physical;  // by its place in the file
  unsigned tid;
  unsigned numberBit;  // of the entry
  unsigned numberBits;
};
constexpr std::array<InFile, kTables> kInFile{{{"MplsIsemHwEm", 1, 0, 9, 20},
                                               {"Srv6LocalSidIsemHwEm", 1, 62, 23, 16},
                                               {"Ip4UdpTtMpIsemHwEm", 1, 38, 13, 32},
                                               {"InAcSVlanHwEm", 2, 1, 18, 12},
                                               {"InAcUntaggedHwEm", 2, 19, 21, 9},
                                               {"VsiToVniEsemHwEm", 0, 2, 18, 18},
                                               {"EsemFodoPortCvidEm", 0, 4, 9, 12}}};

// The entries of the first chip, seen from outside of the process that has it: those of the numbers below
// kGood, each where it stands when the watch is made. A chip never moves an entry that it holds.
class EntryWatch final : public ChipFileWatch {
 public:
  explicit EntryWatch(RunPlace const& place) : ChipFileWatch(place) {
    EXPECT_GE(bytes(), kSlotsAt + 3 * kPhysicalBytes);
    findEntries();
  }
  ~EntryWatch() { end(); }

  // How many good entries of each table it has found when it was made, and how many other ones.
  std::array<unsigned, kTables> good() const { return good_; }
  std::array<unsigned, kTables> stale() const { return stale_; }
  unsigned missingNow() const override {
    unsigned missing = 0;
    for (auto const& [at, key] : places_) missing += isMissing(at, key) ? 1U : 0U;
    return missing;
  }

  // Good labels that bear the mark of a reconciliation.
  std::ptrdiff_t markedLabels() const {
    return std::ranges::count_if(places_, [this](auto const& place) {
      return place.second.table == 0 && word(place.first + 8) >> kLabelSweepBit != 0;
    });
  }

 private:
  static constexpr std::size_t kSlotsAt = 2023424;
  static constexpr std::size_t kSlotBytes = 32;
  static constexpr std::size_t kPhysicalBytes = 262144 * kSlotBytes;
  static constexpr unsigned kLabelSweepBit = 63;
  static constexpr std::uint64_t kHolds = 1;
  static constexpr std::uint64_t kChanging = 2;

  std::uint64_t word(std::size_t at) const {
    return std::atomic_ref(*reinterpret_cast<std::uint64_t*>(start() + at)).load(std::memory_order_acquire);
  }
  static std::uint64_t keyMask(InFile const& table) {
    return ((std::uint64_t{1} << table.numberBits) - 1) << table.numberBit;
  }
  void findEntries() {
    for (std::size_t at = kSlotsAt; at < kSlotsAt + 3 * kPhysicalBytes; at += kSlotBytes) {
      if ((word(at) & kHolds) == 0) continue;
      for (std::size_t table = 0; table < kTables; ++table) {
        InFile const& in = kInFile[table];
        if (in.physical != (at - kSlotsAt) / kPhysicalBytes || in.tid != (word(at + 24) >> 42 & 0x3f))
          continue;
        std::uint64_t const key = word(at + 8) & keyMask(in);
        bool const isGood = key >> in.numberBit < kGood;
        ++(isGood ? good_ : stale_)[table];
        if (isGood) places_[at] = {key, keyMask(in), table};
      }
    }
  }
  struct Key {
    std::uint64_t bits;
    std::uint64_t mask;
    std::size_t table;
  };
  // An entry that is being changed is looked up again, as the chip does.
  bool isMissing(std::size_t at, Key const& key) const {
    for (;;) {
      std::uint64_t const before = word(at);
      if ((before & (kHolds | kChanging)) == 0) return true;
      bool const other = (word(at + 8) & key.mask) != key.bits;
      if ((before & kChanging) != 0) return false;
      std::atomic_thread_fence(std::memory_order_acquire);
      if (word(at) == before) return other;
    }
  }

  std::map<std::size_t, Key> places_;
  std::array<unsigned, kTables> good_{};
  std::array<unsigned, kTables> stale_{};
};

std::array<unsigned, kTables> each(unsigned count) {
  std::array<unsigned, kTables> counts{};
  counts.fill(count);
  return counts;
}

class RunExactMatchLives : public testing::Test {
 protected:
  // Serves with these rows, and is killed.
  void serveAndKill(std::vector<std::string> const& operations) const {
    GoingRun run(place_, {"--chip", place_.chips(), "--serve"});
    for (std::string const& operation : operations) run.write(operation);
    run.endInput();
    ASSERT_TRUE(run.waitFor("serving as pid"));
    run.signal(SIGKILL);
    EXPECT_EQ(run.wait(), 128 + SIGKILL);
  }

  RunPlace place_;
};

TEST_F(RunExactMatchLives, NoGoodEntryIsEverMissingWhileAKilledRunIsStartedWarmAndReconciled) {
  serveAndKill(rowsOfAllTables(0, kAll));
  EntryWatch watch(place_);
  ASSERT_EQ(watch.good(), each(kGood));
  ASSERT_EQ(watch.stale(), each(kAll - kGood));
  watch.begin();
  // Killed again when some of its entries are replayed.
  serveAndKill(rowsOfAllTables(0, kGood / 2));
  // Every pass pauses, so that there is time to see what it does.
  std::vector<std::string> slowly;
  for (unsigned nth = 1; nth <= 20; ++nth)
    slowly.push_back(R"({"op":"chip-fault","kind":"slowPass","after":20000,"nth":)" + std::to_string(nth) +
                     "}");
  RunEvents const third =
      place_.events(joined({rowsOfAllTables(0, kGood), slowly, {kSyncDone, kVerify}}), place_.keepChips());
  watch.end();
  EXPECT_EQ(third.exitCode, 0) << third.err;
  EXPECT_EQ(third.one("fap-add")["start"], "warm");
  for (RunJson const& table : third.of("reconcile")) {
    EXPECT_EQ(table["done"], true) << table;
    EXPECT_EQ(table["removed"], kAll - kGood) << table;
  }
  EXPECT_EQ(third.one("verify")["clean"], true);
  EXPECT_EQ(watch.missing(), 0U);
  EXPECT_GT(watch.rounds(), 10U);
  EntryWatch const after(place_);
  EXPECT_EQ(after.good(), each(kGood));
  EXPECT_EQ(after.stale(), each(0));
}

TEST_F(RunExactMatchLives, WatchSeesEntriesThatAreMissing) {
  std::vector<std::string> const rows = rowsOfAllTables(0, kGood);
  EXPECT_EQ(place_.run(rows, place_.keepChips()).exitCode, 0);
  EntryWatch watch(place_);
  EXPECT_EQ(watch.missingNow(), 0U);
  watch.begin();
  EXPECT_EQ(place_.run(joined({rows, {kMplsTable.on("clear")}}), place_.keepChips()).exitCode, 0);
  EXPECT_EQ(watch.missingNow(), kGood);
  while (watch.missing() == 0) std::this_thread::yield();
}

TEST_F(RunExactMatchLives, RunThatIsKilledInAReconciliationIsMadeGoodByTheNext) {
  serveAndKill(rowsOfAllTables(0, kAll));
  {
    GoingRun run(place_, {"--chip", place_.chips(), "--serve"});
    for (std::string const& operation : rowsOfAllTables(0, kGood)) run.write(operation);
    // The first pass marks labels, and pauses when it has marked 256 of them.
    run.write(R"({"op":"chip-fault","kind":"slowPass","after":900000})");
    run.write(kMplsTable.op("get", 0));
    ASSERT_TRUE(run.waitFor("MplsIsemHwEm mplsLabel:0,mplsBos:1: "));
    run.write(kSyncDone);
    EntryWatch const watch(place_);
    while (watch.markedLabels() == 0) std::this_thread::yield();
    run.signal(SIGKILL);
    EXPECT_EQ(run.wait(), 128 + SIGKILL);
    EXPECT_THAT(run.out(), testing::Not(testing::HasSubstr("sync-done:")));
  }
  RunEvents const next = place_.events(
      joined({{kVerify}, rowsOfAllTables(0, kGood), {kVerify, kSyncDone, kVerify}}), place_.keepChips());
  auto const verdicts = next.of("verify");
  RunJson const& before = verdicts[0]["bad"];
  EXPECT_GT(std::ranges::count_if(before,
                                  [](RunJson const& row) { return row["found"].value("sweepBit", 0) == 1; }),
            0);
  // The replay alone takes the marks off good entries.
  EXPECT_EQ(verdicts[1]["counts"]["missing"], 0);
  EXPECT_EQ(verdicts[1]["counts"]["marked"], 0);
  EXPECT_EQ(verdicts[1]["counts"]["stale"], kTables * (kAll - kGood));
  EXPECT_EQ(verdicts[2]["clean"], true);
}

}  // namespace
