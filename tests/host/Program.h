// Runs the built hwtables program the way a user does, through a shell.
#pragma once

#include <string>

struct Outcome {
  int exitCode = 0;
  std::string out;
  std::string err;
};

// The command line with HWTABLES in place of the program's path; it may redirect. Both streams are caught.
Outcome runShell(std::string command);
