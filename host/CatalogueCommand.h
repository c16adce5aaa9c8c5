// hwtables catalogue: what tables there are.
#pragma once

#include <CLI/App.hpp>

namespace Host {

// Adds the command; when it runs, exitCode becomes 0, 1 where the bundle can't be loaded, or 2 for an unknown
// table.
void addCatalogueCommand(CLI::App& app, int& exitCode);

}  // namespace Host
