// The hwtables program: parses the command line, runs one command. Exits 0 on success, 1 where the command
// failed, 2 where it was not understood, or what a command tells of; ends by SIGPIPE, as any filter does,
// when its reader goes away.
#include <fmt/format.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <iostream>

#include "host/CatalogueCommand.h"
#include "host/FastLogCommand.h"
#include "host/ImportCommand.h"
#include "host/Output.h"
#include "host/RunCommand.h"
#include "host/StoreCommand.h"
#include "host/TableCommand.h"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

// Prints what was asked for, help or version, or what is wrong with the command line.
int reportParse(CLI::App const& app, CLI::ParseError const& outcome) {
  if (outcome.get_exit_code() != 0 && !app.remaining().empty() && app.get_subcommands().empty()) {
    fmt::print(stderr, "hwtables: not understood: {}\nRun with --help for more information.\n",
               app.remaining().front());
    return kUsage;
  }
  int const code = app.exit(outcome, std::cout, std::cerr);
  if (code != 0) return kUsage;
  std::cout.flush();
  if (std::cout.good()) return 0;
  fmt::print(stderr, "hwtables: cannot write to standard output\n");
  return kFailed;
}

int run(int argc, char** argv) {
  CLI::App app("Forwarding tables of a switch chip: what is in them and what happens to them.", "hwtables");
  app.set_version_flag("--version", "hwtables " HWTABLES_VERSION, "Print the version and exit");
  app.set_help_flag("-h,--help", "Print this help, or that of a command, and exit");
  app.require_subcommand(1);
  app.failure_message(CLI::FailureMessage::simple);
  int exitCode = 0;
  Host::addCatalogueCommand(app, exitCode);
  Host::addFastLogCommand(app, exitCode);
  Host::addImportCommand(app, exitCode);
  Host::addRunCommand(app, exitCode);
  Host::addStoreCommand(app, exitCode);
  Host::addTableCommand(app, exitCode);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& outcome) {
    return reportParse(app, outcome);
  }
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  Host::holdStandardDescriptors();
  try {
    return run(argc, argv);
  } catch (std::exception const& failure) {
    fmt::print(stderr, "hwtables: {}\n", failure.what());
    return kFailed;
  }
}
