// Runs a piece of a test in a process of its own: what depends on the environment of a process from its first
// moment, or ends the process, can be had in no other way.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace TestSupport {

// A function that this test program runs, instead of its tests, in the children made by runChild.
// Define them at namespace scope.
struct ChildRole {
  ChildRole(char const* name, void (*body)());
};

struct ChildResult {
  int exitCode = -1;                // -1 where a signal ended the child
  int signal = 0;                   // 0 where it exited
  std::vector<std::string> writes;  // to standard error, one by one as the child made them

  std::string errors() const;
};

// Starts the role with the given variables besides what is inherited; variables of the system under test and
// of GoogleTest are not inherited. Standard output is discarded.
ChildResult runChild(std::string const& role, std::map<std::string, std::string> const& environment = {});

}  // namespace TestSupport
