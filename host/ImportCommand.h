// The command "hwtables import": what other programs print, as operations for "hwtables run".
#pragma once

#include <CLI/App.hpp>

namespace Host {

// Adds the command; when it runs, exitCode becomes 0, also where something couldn't be mapped. Throws
// InputError, or Dovel::RuntimeException, for input that is wrong or can't be read.
void addImportCommand(CLI::App& app, int& exitCode);

}  // namespace Host
