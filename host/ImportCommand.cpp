#include "host/ImportCommand.h"

#include <fmt/format.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <memory>
#include <optional>

#include "host/ImportMap.h"
#include "host/ImportMpls.h"
#include "host/ImportRows.h"
#include "host/ImportSrv6.h"
#include "host/ImportVlans.h"
#include "host/ImportVxlans.h"
#include "host/Output.h"
#include "platform/chip/SoftwareChip.h"

namespace Host {
namespace {

constexpr char kDescription[] = "Turns what other programs print into operations for hwtables run.";
constexpr char kIproute2Description[] =
    "Prints operations that set the labels, VLANs, segments and tunnels of a\n"
    "Linux switch, out of what ip and bridge print with -j. At least one of\n"
    "the four inputs is needed; - is standard input, for one of them. The map\n"
    "keeps which number each name has got: it is extended and never\n"
    "renumbered, so that a later import changes only what has changed. What\n"
    "can't be mapped is listed on standard error, with the reason, before a\n"
    "count of the rows of each table; that is no error. After wrong input\n"
    "nothing is printed and the map is as it was. What is no longer there is\n"
    "not deleted by an operation: a run that starts anew over chips in use\n"
    "needs sync-done after these operations, which ends what they no longer\n"
    "have. docs/import.md has the mapping.";

constexpr char kStandardInput[] = "-";

struct Options {
  std::string map;
  std::string mpls;
  std::string vlan;
  std::string route6;
  std::string link;
  unsigned fap = 0;
  unsigned locatorBits = 48;
  VxlanSettings vxlan{.udpTunnelType = 1, .esemNameSpace = 1};
};

std::optional<IprouteFile> opened(std::string const& path) {
  return path.empty() ? std::nullopt : std::make_optional<IprouteFile>(path);
}

// All of the input, before the map is locked: standard input may take its time.
struct Inputs {
  explicit Inputs(Options const& options) : mpls(opened(options.mpls)), route6(opened(options.route6)) {
    if (auto const file = opened(options.vlan)) vlans = vlansOf(*file);
    if (auto const file = opened(options.link)) links = vxlanLinksOf(*file);
  }

  std::optional<IprouteFile> mpls;
  std::optional<IprouteFile> route6;
  std::optional<std::vector<PortVlans>> vlans;
  std::optional<VxlanLinks> links;
};

ImportRows imported(Inputs const& inputs, Options const& options, ImportMap& map) {
  ImportRows rows;
  if (inputs.mpls) importMpls(*inputs.mpls, map, rows);
  if (inputs.vlans) {
    importVlans(*inputs.vlans, inputs.links ? inputs.links->noPorts : std::map<std::string, std::string>(),
                map, rows);
  }
  if (inputs.route6) importSrv6(*inputs.route6, options.locatorBits, map, rows);
  if (inputs.links) {
    auto const pvids = inputs.vlans ? std::make_optional(pvidsOf(*inputs.vlans)) : std::nullopt;
    importVxlans(*inputs.links, pvids, options.vxlan, map, rows);
  }
  return rows;
}

void print(ImportRows const& rows) {
  Output output;
  for (std::string const& operation : rows.operations()) output.line(operation);
  output.finish();
}

void report(ImportRows const& rows, std::string const& map, bool extended) {
  for (std::string const& line : rows.notMapped()) fmt::print(stderr, "hwtables: {}\n", line);
  fmt::print(stderr, "{:<21} {:>7}\n", "TABLE", "ROWS");
  unsigned table = 0;
  for (ImportTableNames const& names : importTables())
    fmt::print(stderr, "{:<21} {:>7}\n", names.table, rows.count(static_cast<ImportTable>(table++)));
  fmt::print(stderr, "{:<21} {:>7}\n", "not mapped", rows.notMappedCount());
  fmt::print(stderr, "{} {}\n", oneLine(map), extended ? "is extended" : "is as it was");
}

// The numbers are safe in the map before anyone sees them.
int importIproute2(Options const& options) {
  Inputs const inputs(options);
  ImportRows rows;
  bool extended = false;
  {
    ImportMap map(options.map, options.fap);
    rows = imported(inputs, options, map);
    extended = map.save();
  }
  print(rows);
  report(rows, options.map, extended);
  return 0;
}

void checkInputs(Options const& options) {
  std::string const* const inputs[] = {&options.mpls, &options.vlan, &options.route6, &options.link};
  if (std::ranges::all_of(inputs, [](auto const* path) { return path->empty(); }))
    throw CLI::RequiredError("one of --mpls, --vlan, --route6 and --link");
  if (std::ranges::count_if(inputs, [](auto const* path) { return *path == kStandardInput; }) > 1)
    throw CLI::ValidationError("-", "only one input can be standard input");
  if (options.map == kStandardInput) throw CLI::ValidationError("--map", "it is to be a file");
}

void addIproute2(CLI::App& import, int& exitCode) {
  CLI::App* const command = import.add_subcommand("iproute2", kIproute2Description);
  auto const options = std::make_shared<Options>();
  auto const file = [&](char const* name, std::string& path, char const* description) {
    return command->add_option(name, path, description)->type_name("FILE");
  };
  file("--map", options->map, "The numbers that names have; made where it isn't there")->required();
  file("--mpls", options->mpls, "What ip -j -f mpls route show prints");
  file("--vlan", options->vlan, "What bridge -j vlan show prints");
  file("--route6", options->route6, "What ip -j -6 route show prints");
  file("--link", options->link, "What ip -j -d link show type vxlan prints");
  auto const number = [&](char const* name, unsigned& value, unsigned min, unsigned max, char const* what) {
    command->add_option(name, value, what)->check(CLI::Range(min, max))->capture_default_str();
  };
  number("--fap", options->fap, 0, Chip::SoftwareChip::kMaxFaps - 1,
         "FAP of the ports that the map doesn't have yet");
  number("--locator-bits", options->locatorBits, 1, 128 - kSrv6FunctionBits,
         "Bits of an SRv6 locator; the 16 bits after it are the function");
  number("--udp-tunnel-type", options->vxlan.udpTunnelType, 0, 15,
         "udpTunnelType by which the chip knows VXLAN");
  number("--esem-name-space", options->vxlan.esemNameSpace, 0, 511, "esemNameSpace of the VNIs");
  command->callback([options, &exitCode] {
    checkInputs(*options);
    exitCode = importIproute2(*options);
  });
}

}  // namespace

void addImportCommand(CLI::App& app, int& exitCode) {
  CLI::App* const command = app.add_subcommand("import", kDescription);
  command->require_subcommand(1);
  addIproute2(*command, exitCode);
}

}  // namespace Host
