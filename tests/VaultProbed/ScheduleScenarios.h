// What a writer does while readers are about in the schedule tests. One thread.
#pragma once

#include "tests/VaultProbed/ScheduleExplorer.h"

namespace ScheduleTests {

struct NamedScenario {
  char const* name;
  Scenario scenario;
};

std::vector<NamedScenario> const& scenarios();
Scenario const& scenarioOf(std::string_view name);

}  // namespace ScheduleTests
