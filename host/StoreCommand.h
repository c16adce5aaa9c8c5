// hwtables store: what stores there are, what is in them, and whether they are sound.
#pragma once

#include <CLI/App.hpp>

namespace Host {

// Adds the command; when it runs, exitCode becomes 0, 1 where the command failed or a store is not sound, or
// 2 for a slot that there isn't.
void addStoreCommand(CLI::App& app, int& exitCode);

}  // namespace Host
