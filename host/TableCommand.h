// hwtables table: the entries of running tables, read by another process in terms of keys and fields.
#pragma once

#include <CLI/App.hpp>

namespace Host {

// Adds the command; when it runs, exitCode becomes 0, 1 where something isn't there or can't be read, or 2
// for a name or a key that is none.
void addTableCommand(CLI::App& app, int& exitCode);

}  // namespace Host
