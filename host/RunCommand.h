// The command "hwtables run": the control plane over software chips, driven by files of operations.
#pragma once

#include <CLI/App.hpp>

namespace Host {

void addRunCommand(CLI::App& app, int& exitCode);

}  // namespace Host
