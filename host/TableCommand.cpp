#include "host/TableCommand.h"

#include <fmt/format.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <memory>
#include <optional>

#include "host/Bundle.h"
#include "host/FieldValues.h"
#include "host/InputError.h"
#include "host/LiveStores.h"
#include "host/Nearest.h"
#include "host/Output.h"
#include "host/StoreDump.h"
#include "host/StoreText.h"

namespace Host {
namespace {

using Vault::StoredType;
using Vault::StoreFiles;

constexpr char kDescription[] =
    "Shows the entries of tables that a run keeps in shared memory, while it\n"
    "goes on or after it, in terms of keys and fields. Nothing is locked or\n"
    "changed.";
constexpr char kListDescription[] =
    "Lists the tables that have a store: how many rows stand in it, and which\n"
    "process writes it. FAP is all where the FAPs share the table.";
constexpr char kGetDescription[] =
    "Looks rows up. A KEY is its members, such as arrayIndex:0,entryIndex:5,\n"
    "or a bare number where there is but one. Exits 1 where a row isn't\n"
    "stored.";
constexpr char kDumpDescription[] = "Prints all rows of a table that are stored.";

struct Options {
  std::string table;
  std::vector<std::string> keys;
  std::optional<unsigned> fap;
  std::string bundle;
  bool json = false;
};

std::string fapText(ShadowStore const& store) { return store.fap ? std::to_string(*store.fap) : "all"; }

Json fapJson(ShadowStore const& store) { return store.fap ? Json(*store.fap) : Json("all"); }

// "arrayIndex:0,entryIndex:5" of what stands around it.
std::string keyMembers(StoredType const& type, std::byte const* record) {
  std::string const text(type.keyText(record));
  auto const open = text.find('(');
  return open == std::string::npos ? text : text.substr(open + 1, text.rfind(')') - open - 1);
}

Json keyJson(std::string_view members) {
  Json key = Json::object();
  while (!members.empty()) {
    std::string_view const member = members.substr(0, members.find(','));
    auto const colon = member.find(':');
    key[std::string(member.substr(0, colon))] =
        Json::parse(member.substr(colon == std::string_view::npos ? 0 : colon + 1), nullptr, false);
    members.remove_prefix(std::min(members.size(), member.size() + 1));
  }
  return key;
}

bool isExactMatch(LoamAsicUtils::TableDescription const* table) {
  return table != nullptr && table->family == LoamAsicUtils::TableFamily::exactMatch;
}

// The fields of an exact-match entry as a run tells them: without what key and other fields tell already.
std::string entryText(LoamAsicUtils::TableDescription const& table, Json const& fields) {
  std::string text;
  for (auto const* const field : distinctFieldsOf(table, 0)) {
    Json const& value = fields[std::string(field->name)];
    if (value != 0) text += fmt::format(" {}:{}", field->name, value.dump());
  }
  return text;
}

std::string rowText(ShadowStore const& store, StoredType const& type, std::byte const* record, bool json) {
  std::string const key = keyMembers(type, record);
  auto const* const table = LoamAsicUtils::TableCatalogue::table(store.table);
  std::string const fap = store.fap ? fmt::format("FAP {} ", *store.fap) : "";
  if (!json && !isExactMatch(table))
    return fap + key + recordText(record, type, false).substr(type.keyText(record).size());
  Json const fields = Json::parse(recordText(record, type, true))["fields"];
  if (!json) return fap + key + entryText(*table, fields);
  return Json{{"table", store.table}, {"fap", fapJson(store)}, {"key", keyJson(key)}, {"fields", fields}}
      .dump();
}

// Those of the table that was asked for. Throws InputError for a table that there isn't.
std::vector<ShadowStore> storesOf(Options const& options, Bundle const& bundle) {
  std::vector<std::string_view> names;
  for (auto const* const table : bundle.tables()) names.push_back(table->name);
  if (std::ranges::find(names, options.table) == names.end()) throwUnknown("", "table", options.table, names);
  std::vector<ShadowStore> stores = shadowStores();
  std::erase_if(stores, [&](ShadowStore const& store) {
    return store.table != options.table || (options.fap && store.fap && store.fap != options.fap);
  });
  if (stores.empty()) fmt::print(stderr, "hwtables: {} has no store\n", options.table);
  return stores;
}

int listTables(Options const& options) {
  Output output;
  static constexpr char kLine[] = "{:<36} {:<12} {:>4} {:>8}  {}";
  if (!options.json) output.line(fmt::format(kLine, "TABLE", "REVISION", "FAP", "ROWS", "WRITER"));
  for (ShadowStore const& store : shadowStores()) {
    StoreFiles const files = filesOf(store, StoreFiles::Extent::headers);
    std::uint32_t const rows = files.slots().occupiedSlots();
    if (options.json) {
      output.line(Json{{"table", store.table},
                       {"revision", store.revision},
                       {"fap", fapJson(store)},
                       {"rows", rows},
                       {"writer", files.isLocked() ? Json(files.owner().pid) : Json(nullptr)}}
                      .dump());
    } else {
      output.line(fmt::format(kLine, store.table, store.revision, fapText(store), rows, writerText(files)));
    }
  }
  output.finish();
  return 0;
}

// 0, or the exit code for the key.
int getRow(ShadowStore const& store, StoreReading& reading, std::string const& key, Options const& options,
           Output& output) {
  try {
    if (std::byte const* const record = reading.find(key)) {
      output.line(rowText(store, reading.type(), record, options.json));
      return 0;
    }
  } catch (Dovel::CorruptionDetectedException const&) {
    throw;
  } catch (Dovel::Exception const& wrong) {
    throw InputError(fmt::format("no key of {}: {}: {}", store.table, key, wrong.msg()));
  }
  output.finish();
  fmt::print(stderr, "hwtables: {}{} holds no row of {}\n", store.table,
             store.fap ? fmt::format(" of FAP {}", *store.fap) : "", oneLine(key));
  return 1;
}

int getRows(Options const& options) {
  Bundle const bundle(options.bundle);
  Output output;
  auto const stores = storesOf(options, bundle);
  int exitCode = stores.empty() ? 1 : 0;
  for (ShadowStore const& store : stores) {
    StoreReading reading(store);
    for (std::string const& key : options.keys)
      exitCode = std::max(exitCode, getRow(store, reading, key, options, output));
  }
  output.finish();
  return exitCode;
}

int dumpRows(Options const& options) {
  Bundle const bundle(options.bundle);
  Output output;
  auto const stores = storesOf(options, bundle);
  for (ShadowStore const& store : stores) {
    StoreReading reading(store);
    reading.forEach(
        [&](std::byte const* record) { output.line(rowText(store, reading.type(), record, options.json)); });
  }
  output.finish();
  return stores.empty() ? 1 : 0;
}

using Run = int (*)(Options const&);

int runPart(Run run, Options const& options) {
  try {
    return run(options);
  } catch (InputError const& wrong) {
    fmt::print(stderr, "hwtables: {}\n", oneLine(wrong.msg()));
    return 2;
  }
}

CLI::App* addPart(CLI::App& table, char const* name, char const* description, Run run, int& exitCode,
                  std::shared_ptr<Options> const& options) {
  CLI::App* const part = table.add_subcommand(name, description);
  part->add_flag("--json", options->json, "Print a JSON object a line, for programs");
  part->add_option("--bundle", options->bundle, "Take the tables from this bundle instead of the built one")
      ->type_name("FILE")
      ->envname("HWTABLES_BUNDLE");
  part->callback([options, run, &exitCode] { exitCode = runPart(run, *options); });
  return part;
}

void addTable(CLI::App& part, Options& options) {
  part.add_option("TABLE", options.table, "Name of a table, such as TcamHwDirect")->required();
  part.add_option("--fap", options.fap, "Of a table that each FAP has for itself, that FAP's only");
}

}  // namespace

void addTableCommand(CLI::App& app, int& exitCode) {
  CLI::App* const table = app.add_subcommand("table", kDescription);
  table->require_subcommand(1);
  auto const options = std::make_shared<Options>();
  addPart(*table, "list", kListDescription, listTables, exitCode, options);
  CLI::App* const get = addPart(*table, "get", kGetDescription, getRows, exitCode, options);
  addTable(*get, *options);
  get->add_option("KEY", options->keys, "Keys of rows")->required();
  CLI::App* const dump = addPart(*table, "dump", kDumpDescription, dumpRows, exitCode, options);
  addTable(*dump, *options);
}

}  // namespace Host
