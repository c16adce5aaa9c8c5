// Runs a piece of a benchmark in a new process of this very program, where nothing has been touched yet.
#pragma once

#include <string>
#include <vector>

namespace Bench {

// What such a process does, instead of benchmarks, with its arguments; what it prints is the answer. Define
// them at namespace scope.
struct FreshRole {
  using Body = void (*)(std::vector<std::string> const& arguments);
  FreshRole(std::string const& name, Body body);
};

// Starts the role, waits for its end and returns what it has printed. Arguments are words of letters, digits,
// dashes and slashes. Throws std::runtime_error.
std::string outputOfFresh(std::string const& role, std::vector<std::string> const& arguments);

// For main(): whether the arguments ask for a role, which has been played then.
bool playedFreshRole(int argumentCount, char** arguments);

}  // namespace Bench
