// Readers and a writer at one table, in every order in which their steps can come: see ScheduleProbe.h.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "tests/VaultProbed/ScheduleScenarios.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Seed.h"

namespace ScheduleTests {
namespace {

// How many schedules are made of each kind of search for each thing that a reader does. Scenarios of many
// operations get little of what isn't asked for.
struct Effort {
  std::uint64_t budget;
  bool allOfThree;
};

Effort effortFor(Scenario const& scenario) {
  constexpr bool kThorough = !HWTABLES_ASAN && !HWTABLES_TSAN;
  char const* const given = std::getenv("HWTABLES_SCHEDULES");
  if (given != nullptr) return {std::strtoull(given, nullptr, 0), true};
  if (!kThorough) return {200, false};
  return scenario.isLong ? Effort{1000, false} : Effort{20'000, true};
}

class ReaderSchedule : public testing::TestWithParam<NamedScenario> {};

TEST_P(ReaderSchedule, IsToldWhatIsThere) {
  PRINT_SEED_ON_FAILURE();
  auto const began = std::chrono::steady_clock::now();
  Explorer explorer(GetParam().scenario);
  Effort const effort = effortFor(GetParam().scenario);
  ASSERT_EQ(explorer.reproach(), "");
  std::uint64_t schedules = 0;
  unsigned all = 0;
  auto const programs = explorer.programs();
  for (Program const& program : programs) {
    Outcome const outcome = explorer.explore(program, effort.budget, effort.allOfThree);
    EXPECT_EQ(outcome.reproach, "");
    schedules += outcome.schedules;
    all += outcome.isAll ? 1 : 0;
  }
  std::chrono::duration<double> const taken = std::chrono::steady_clock::now() - began;
  fmt::print("{}: {} positions, {} schedules of {} programs, {} of them in full, {:.2f} s\n", GetParam().name,
             explorer.timeline().last(), schedules, programs.size(), all, taken.count());
}

// What the search leaves out, because it would come to the same, is made here.
TEST(ScheduleSearch, LeavesOutNothingThatAReaderCouldBeTold) {
  for (char const* name : {"UpdateInPlace", "RemovalAndReuseElsewhere", "InsertionInMidChain",
                           "BucketsFrom1To2", "FewerBuckets"}) {
    Explorer explorer(scenarioOf(name));
    for (Program const& program : explorer.programs()) {
      if (program.kind != Program::lookup && program.kind != Program::slot) continue;
      auto const made = explorer.allAnswers(program, Search::every, 0);
      auto const preempted = explorer.allAnswers(program, Search::preempted, 3);
      auto const plain = explorer.allAnswers(program, Search::plain, 3);
      EXPECT_TRUE(std::includes(made.begin(), made.end(), plain.begin(), plain.end()))
          << name << program.text();
      EXPECT_EQ(preempted, plain) << name << program.text();
    }
  }
}

// A writer that dies, at whichever step, leaves a table that readers find complete, with what it was about or
// without it, and none of them goes on for ever.
class WriterDeath : public testing::TestWithParam<NamedScenario> {};

TEST_P(WriterDeath, AtAnyStepLeavesReadersWithWhatIsThere) {
  Explorer const explorer(GetParam().scenario);
  EXPECT_EQ(explorer.reproach(), "");
  EXPECT_GT(explorer.timeline().last(), 2U);
}

INSTANTIATE_TEST_SUITE_P(, WriterDeath, testing::ValuesIn(scenarios()),
                         [](auto const& made) { return std::string(made.param.name); });
INSTANTIATE_TEST_SUITE_P(, ReaderSchedule, testing::ValuesIn(scenarios()),
                         [](auto const& made) { return std::string(made.param.name); });

}  // namespace
}  // namespace ScheduleTests
