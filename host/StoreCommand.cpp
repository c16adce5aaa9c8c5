#include "host/StoreCommand.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "Vault/StoreCheck.h"
#include "Vault/StoreFigures.h"
#include "host/Bundle.h"
#include "host/Output.h"
#include "host/StoreDump.h"
#include "host/StoreSearch.h"
#include "host/StoreText.h"
#include "host/UtcTime.h"
#include "runtime/Dovel/Exception.h"

namespace Host {
namespace {

using Vault::StoredType;
using Vault::StoreFiles;

constexpr char kDescription[] =
    "Shows the stores of this machine: tables of records in shared memory,\n"
    "which one process writes and others read. Nothing is locked or changed,\n"
    "so it may be used at any time.";
constexpr char kListDescription[] =
    "Lists the stores below a directory. WRITER is the process at work on\n"
    "a store, or free. MARKS: corrupt, somebody found it damaged; wiped,\n"
    "a writer has thrown the records away; interrupted, its writer ended in\n"
    "the middle of a change; incomplete, it was never finished.";
constexpr char kShowDescription[] =
    "Prints all about a store: its occupancy, how long the chains are, how\n"
    "it has grown, and the headers of its files with the offset of each\n"
    "field. Counts that a writer changed meanwhile are marked (changing).";
constexpr char kCheckDescription[] =
    "Judges a store at rest as its next writer would: every header, every\n"
    "chain, every record, the free list. Exits 0 where it is sound; else 1,\n"
    "with the reason. Of a type that the bundle doesn't know all but the\n"
    "keys is judged, and that is never enough. Refuses a store that is\n"
    "being written.";
constexpr char kDumpDescription[] =
    "Prints the slots of a store: the link decoded, the bytes in hex with\n"
    "their offsets in the file and, where the bundle knows the type, the\n"
    "key and the fields that are not 0. next is a slot, the bucket that\n"
    "follows at the end of a chain, or nil.";

constexpr char kGetDescription[] =
    "Looks records up by their keys, as any reader of the table does, also\n"
    "while its writer is at work, and prints the fields that are not 0. A\n"
    "KEY is what dump prints, or what that has between the brackets:\n"
    "mplsLabel:100,mplsBos:1. Exits 1 where a record isn't there, 2 for a\n"
    "text that is no key of the table.";

struct Options {
  std::string path;
  std::vector<std::string> keys;
  std::string bundle;
  bool json = false;
  bool watches = false;
  std::optional<std::uint32_t> first;
  std::optional<std::uint32_t> slot;
};

Mem::RootPath rootPathOf(std::string const& path) {
  return {Dovel::Platform::getDebugHandler("StoreCommand", true), Dovel::String(path), true};
}

// Says why there is nothing to read, or returns true.
bool isThere(Mem::RootPath const& rootPath) {
  struct stat status {};
  std::string const path = oneLine(rootPath.dirName());
  if (::stat(rootPath.dirName().data(), &status) != 0) {
    fmt::print(stderr, "hwtables: cannot open {}: {}\n", path, std::strerror(errno));
  } else if (!StoreFiles::standsIn(rootPath)) {
    fmt::print(stderr, "hwtables: there is no store in {}\n", path);
  } else {
    return true;
  }
  return false;
}

// A headline and a line for each store; none where there is no store.
std::vector<std::string> listing(StoreSearch const& search) {
  std::vector<StoreFiles> stores;
  for (std::string const& path : search.stores())
    stores.emplace_back(rootPathOf(path), StoreFiles::Extent::headers);
  return stores.empty() ? std::vector<std::string>() : storeListLines(rootPathOf("").dirName(), stores);
}

void printLines(std::vector<std::string> const& lines) {
  Output output;
  for (std::string const& line : lines) output.line(line);
  output.finish();
}

// Prints the list whenever it has changed; ends with its standard output, or by a signal.
[[noreturn]] void watchStores(Options const& options) {
  std::string const root(rootPathOf(options.path).dirName().view());
  std::vector<std::string> last{""};
  for (;;) {
    std::vector<std::string> lines = listing(StoreSearch(root));
    if (lines != last) {
      last = lines;
      if (lines.empty()) lines.push_back(fmt::format("there are no stores below {}", oneLine(root)));
      auto const now = std::chrono::system_clock::now().time_since_epoch();
      auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(now);
      lines.insert(lines.begin(),
                   "-- " + utcTime(static_cast<std::uint64_t>(std::chrono::nanoseconds(seconds).count())));
      printLines(lines);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
  }
}

int listStores(Options const& options) {
  if (options.watches) watchStores(options);
  StoreSearch const search(rootPathOf(options.path).dirName());
  for (std::string const& problem : search.problems()) fmt::print(stderr, "hwtables: {}\n", problem);
  std::vector<std::string> const lines = listing(search);
  if (!lines.empty()) {
    printLines(lines);
  } else if (search.problems().empty()) {
    fmt::print(stderr, "hwtables: there are no stores below {}\n", oneLine(search.root()));
  }
  return search.problems().empty() ? 0 : 1;
}

int showStore(Options const& options) {
  Mem::RootPath const rootPath = rootPathOf(options.path);
  if (!isThere(rootPath)) return 1;
  Output output;
  for (std::string const& line : storeLines(StoreFiles(rootPath, StoreFiles::Extent::whole)))
    output.line(line);
  output.finish();
  return 0;
}

std::string figuresText(StoreFiles const& store) {
  auto const figures = Vault::StoreFigures::of(store.slots(), store.buckets());
  return fmt::format("{} records and {} free slots in {} slots, {} buckets, the longest chain has {}",
                     figures.chainedSlots, figures.freeSlots, store.slots().slots(),
                     store.buckets().buckets(), figures.longestChain);
}

// Prints the verdict; whether it is that the store is sound.
bool printVerdict(StoreFiles const& store, StoredType const* type, Output& output) {
  Vault::StoreReport report = checkStore(store.slots(), store.buckets(), store.generation(), type);
  if (!store.ownerProblem().empty()) report.problems.push_back(store.ownerProblem());
  std::string const path = oneLine(store.rootPath().dirName());
  std::string const typeName = oneLine(store.slots().typeName());
  if (!report.sound()) {
    output.line(fmt::format("{}: not sound: {}", path, oneLine(report.problems.front())));
    for (std::size_t i = 1; i < report.problems.size(); ++i)
      output.line(fmt::format("  and: {}", oneLine(report.problems[i])));
  } else if (type == nullptr) {
    output.line(fmt::format("{}: the structure is sound: {}", path, figuresText(store)));
  } else {
    output.line(fmt::format("{}: sound: {}", path, figuresText(store)));
  }
  if (type == nullptr)
    output.line(fmt::format("  the keys were not judged: the bundle knows no type \"{}\"", typeName));
  if (store.isMarkedCorrupt()) output.line("  somebody has marked it as corrupt");
  return report.sound() && type != nullptr;
}

int checkOneStore(Options const& options) {
  Bundle const bundle(options.bundle);
  Mem::RootPath const rootPath = rootPathOf(options.path);
  if (!isThere(rootPath)) return 1;
  StoreFiles const store(rootPath, StoreFiles::Extent::whole);
  // Asked for after all was read: a writer that came meanwhile is found, too.
  if (store.isLocked()) {
    fmt::print(stderr, "hwtables: {} is being written ({}): a store can be judged only at rest\n",
               oneLine(rootPath.dirName()), writerText(store));
    return 1;
  }
  Output output;
  bool const sound = printVerdict(store, StoredType::find(store.slots().typeName()), output);
  output.finish();
  return sound ? 0 : 1;
}

// Empty where there are slots to dump.
std::string whyNoSlots(Vault::SlotsImage const& slots) {
  if (!slots.file().problem().empty()) return oneLine(slots.file().problem());
  return slots.hasShape() ? "" : "the header's sizes make no sense";
}

int dumpStore(Options const& options) {
  Bundle const bundle(options.bundle);
  Mem::RootPath const rootPath = rootPathOf(options.path);
  if (!isThere(rootPath)) return 1;
  StoreFiles const store(rootPath, StoreFiles::Extent::whole);
  if (std::string const why = whyNoSlots(store.slots()); !why.empty()) {
    fmt::print(stderr, "hwtables: no slots can be read in {}: {}\n", oneLine(rootPath.dirName()), why);
    return 1;
  }
  std::uint32_t const slots = store.slots().slots();
  if (options.slot && *options.slot >= slots) {
    fmt::print(stderr, "hwtables: there is no slot {}: {} has {}\n", *options.slot,
               oneLine(rootPath.dirName()), slots);
    return 2;
  }
  SlotRange range{0, std::min(slots, options.first.value_or(slots))};
  if (options.slot) range = {*options.slot, *options.slot + 1};
  StoredType const* type = StoredType::find(store.slots().typeName());
  if (type != nullptr && type->valueSize != store.slots().valueSize()) type = nullptr;
  Output output;
  (options.json ? dumpJson : dumpText)(store, range, type, output);
  output.finish();
  if (store.isLocked())
    fmt::print(stderr, "hwtables: a writer is at work: the slots are of different moments\n");
  return 0;
}

// 0, or the exit code for the key.
int getRecord(Vault::StoredReader& reader, StoredType const& type, std::string const& key,
              Options const& options, Output& output) {
  try {
    std::byte const* const value = reader.find(key);
    if (value == nullptr) {
      fmt::print(stderr, "hwtables: there is no record of {}\n", oneLine(key));
      return 1;
    }
    output.line(recordText(value, type, options.json));
    return 0;
  } catch (Dovel::CorruptionDetectedException const& damage) {
    fmt::print(stderr, "hwtables: the store is damaged: {}\n", oneLine(damage.msg()));
    return 1;
  } catch (Dovel::Exception const& wrong) {
    fmt::print(stderr, "hwtables: no key of {}: {}: {}\n", oneLine(type.typeName), oneLine(key),
               oneLine(wrong.msg()));
    return 2;
  }
}

int getRecords(Options const& options) {
  Bundle const bundle(options.bundle);
  Mem::RootPath const rootPath = rootPathOf(options.path);
  if (!isThere(rootPath)) return 1;
  StoreFiles const store(rootPath, StoreFiles::Extent::headers);
  std::string const path = oneLine(rootPath.dirName());
  StoredType const* const type = StoredType::find(store.slots().typeName());
  if (type == nullptr || type->reader == nullptr) {
    fmt::print(stderr, "hwtables: cannot read {}: the bundle knows no type \"{}\"\n", path,
               oneLine(store.slots().typeName()));
    return 1;
  }
  auto const reader = type->reader(rootPath);
  if (!reader->attach()) {
    fmt::print(stderr, "hwtables: {} is not complete, or damaged\n", path);
    return 1;
  }
  int exitCode = 0;
  Output output;
  for (std::string const& key : options.keys)
    exitCode = std::max(exitCode, getRecord(*reader, *type, key, options, output));
  output.finish();
  return exitCode;
}

using Run = int (*)(Options const&);

// Adds one of the commands below `store`.
CLI::App* addPart(CLI::App& store, char const* name, char const* description, Run run, int& exitCode,
                  std::shared_ptr<Options> const& options) {
  CLI::App* const part = store.add_subcommand(name, description);
  part->callback([options, run, &exitCode] { exitCode = run(*options); });
  return part;
}

void addPath(CLI::App& part, Options& options) {
  part.add_option("PATH", options.path,
                  "Directory of a store: absolute, or below $HWTABLES_ROOT or else /dev/shm/hwtables")
      ->required();
}

void addBundle(CLI::App& part, Options& options) {
  part.add_option("--bundle", options.bundle, "Take the types from this bundle instead of the built one")
      ->type_name("FILE")
      ->envname("HWTABLES_BUNDLE");
}

}  // namespace

void addStoreCommand(CLI::App& app, int& exitCode) {
  CLI::App* const store = app.add_subcommand("store", kDescription);
  store->require_subcommand(1);
  auto const options = std::make_shared<Options>();
  CLI::App* const list = addPart(*store, "list", kListDescription, listStores, exitCode, options);
  list->add_option("ROOT", options->path,
                   "Where to look: absolute, or below $HWTABLES_ROOT or else /dev/shm/hwtables");
  list->add_flag("--watch", options->watches,
                 "Go on, and print the list again whenever it has changed; every half second is looked");
  CLI::App* const show = addPart(*store, "show", kShowDescription, showStore, exitCode, options);
  addPath(*show, *options);
  CLI::App* const check = addPart(*store, "check", kCheckDescription, checkOneStore, exitCode, options);
  addPath(*check, *options);
  addBundle(*check, *options);
  CLI::App* const get = addPart(*store, "get", kGetDescription, getRecords, exitCode, options);
  addPath(*get, *options);
  get->add_option("KEY", options->keys, "Keys of records")->required();
  addBundle(*get, *options);
  get->add_flag("--json", options->json, "Print a JSON object a record, with all fields, for programs");
  CLI::App* const dump = addPart(*store, "dump", kDumpDescription, dumpStore, exitCode, options);
  addPath(*dump, *options);
  addBundle(*dump, *options);
  dump->add_flag("--json", options->json, "Print one JSON object, with all fields, for programs");
  auto* const first = dump->add_option("--first", options->first, "Print the first N slots only");
  first->type_name("N");
  dump->add_option("--slot", options->slot, "Print this slot only")->type_name("ID")->excludes(first);
}

}  // namespace Host
