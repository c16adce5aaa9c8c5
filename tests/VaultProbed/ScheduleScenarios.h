// What a writer does while readers are about in the schedule tests. One thread.
#pragma once

#include <ostream>

#include "tests/VaultProbed/ScheduleExplorer.h"

namespace ScheduleTests {

struct NamedScenario {
  char const* name;
  Scenario scenario;

  friend void PrintTo(NamedScenario const& made, std::ostream* out) { *out << made.name; }
};

std::vector<NamedScenario> const& scenarios();
Scenario const& scenarioOf(std::string_view name);

}  // namespace ScheduleTests
