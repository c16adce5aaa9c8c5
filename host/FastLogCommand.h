// `hwtables fastlog FILE`: prints the messages of a fast log.
#pragma once

#include <CLI/App.hpp>

namespace Host {

// Adds the command. When it is given, it runs while the command line is parsed and sets exitCode: 0, or 1
// where the file can't be read.
void addFastLogCommand(CLI::App& app, int& exitCode);

}  // namespace Host
