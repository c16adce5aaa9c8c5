#include "host/CatalogueCommand.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <memory>

#include "host/Bundle.h"
#include "host/CatalogueJson.h"
#include "host/CatalogueText.h"
#include "host/Nearest.h"
#include "host/Output.h"

namespace Host {
namespace {

using LoamAsicUtils::TableDescription;
using Tables = std::vector<TableDescription const*>;

constexpr char kDescription[] =
    "Prints the tables of the chip, or all about one of them: its names,\n"
    "key, chip memories, presets, and its fields on a ruler of the row's\n"
    "bits. What is told comes from the loaded bundle.";

struct Options {
  std::string table;
  std::string bundle;
  bool json = false;
};

// 0, no limit, where standard output is no terminal.
unsigned terminalColumns() {
  winsize size{};
  return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

int reportUnknown(std::string const& given, Tables const& tables) {
  std::vector<std::string_view> names;
  for (auto const* const table : tables) names.push_back(table->name);
  fmt::print(stderr, "hwtables: {}\n", unknownText("table", given, names));
  return 2;
}

int printCatalogue(Options const& options) {
  Bundle const bundle(options.bundle);
  Tables tables = bundle.tables();
  if (!options.table.empty()) {
    auto const found = std::ranges::find(tables, options.table, &TableDescription::name);
    if (found == tables.end()) return reportUnknown(options.table, tables);
    tables = {*found};
  }
  Output output;
  if (options.json) {
    output.line(catalogueJson(tables));
  } else {
    auto const lines =
        options.table.empty() ? catalogueLines(tables, terminalColumns()) : tableLines(*tables.front());
    for (std::string const& line : lines) output.line(line);
  }
  output.finish();
  return 0;
}

}  // namespace

void addCatalogueCommand(CLI::App& app, int& exitCode) {
  CLI::App* const command = app.add_subcommand("catalogue", kDescription);
  auto const options = std::make_shared<Options>();
  command->add_option("TABLE", options->table, "Name of a table, such as MplsIsemHwEm");
  command->add_flag("--json", options->json, "Print one JSON object, for programs");
  command->add_option("--bundle", options->bundle, "Load this bundle instead of the built one")
      ->type_name("FILE")
      ->envname("HWTABLES_BUNDLE");
  command->callback([options, &exitCode] { exitCode = printCatalogue(*options); });
}

}  // namespace Host
