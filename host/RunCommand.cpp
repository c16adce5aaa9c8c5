#include "host/RunCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <chrono>
#include <list>
#include <map>
#include <memory>

#include "host/Bundle.h"
#include "host/ChipFaultOperation.h"
#include "host/ProgressBar.h"
#include "host/RunOperations.h"
#include "host/RunReport.h"
#include "host/RunScript.h"
#include "host/StopSignals.h"
#include "platform/switch/LoamAsicUtils/SupportedFapRevList.h"

namespace Host {
namespace {

using Hardware::Loam::FapRevision;

constexpr char kDescription[] =
    "Runs the tables over software chips: reads operations, one JSON object\n"
    "a line, keeps the entries in shared memory, sends them to the chips, and\n"
    "sums up what was done, table by table. docs/run.md has the operations.\n"
    "Exits 1 where the input was wrong, 3 where another process writes the\n"
    "stores or has the chips, 4 where a verify found rows that are not as\n"
    "they should be.";

constexpr int kBadInput = 1;
constexpr int kSecondWriter = 3;
constexpr int kNotClean = 4;

struct Options {
  std::vector<std::string> files;
  std::string bundle;
  std::string revision = "A0";
  std::string chips;
  unsigned faps = 1;
  bool json = false;
  bool serves = false;
  bool keepsGoing = false;
  bool listsOperations = false;
};

// Of the bundle's chip, by what follows its name: "A0".
std::map<std::string, FapRevision> revisions() {
  static constexpr std::string_view kChip = "Qumran3a";
  std::map<std::string, FapRevision> named;
  for (FapRevision const& revision : LoamAsicUtils::SupportedFapRevList::fapRevisionList()) {
    Dovel::String const text = revision.shortForm();
    if (text.view().starts_with(kChip)) named[std::string(text.view().substr(kChip.size()))] = revision;
  }
  return named;
}

class Run {
 public:
  explicit Run(Options const& options)
      : options_(options),
        scripts_(opened()),
        bundle_(options.bundle),
        chip_(Dovel::ptrIsImpl<Chip::SoftwareChip>(
            Chip::SoftwareChip::Options{.faps = options.faps, .directory = Dovel::String(options.chips)})),
        plane_(chip_, revisions().at(options.revision)),
        report_(options.json),
        operations_(plane_, options.faps, report_) {
    operations_.whileBusy([this] { bar_.show(); });
  }

  int run() {
    auto const begin = std::chrono::steady_clock::now();
    operations_.start();
    bool const whole = std::ranges::all_of(scripts_, [this](RunScript& script) { return runScript(script); });
    plane_.writer().flush();
    bar_.remove();
    report_.summary(plane_, std::chrono::steady_clock::now() - begin);
    if (options_.serves && whole) serve();
    if (!whole && wrongLines_ == 0 && !options_.serves) return interrupted();
    return wrongLines_ != 0 ? kBadInput : operations_.allClean() ? 0 : kNotClean;
  }

 private:
  // All of them, before anything is done.
  std::list<RunScript> opened() {
    std::list<RunScript> scripts;
    for (std::string const& file : options_.files) scripts.emplace_back(file, signals_, [this] { pause(); });
    return scripts;
  }

  // The input has nothing for us at the moment.
  void pause() {
    plane_.writer().flush();
    bar_.remove();
    report_.finish();
  }

  // False where the run is to end.
  bool runScript(RunScript& script) {
    for (std::string line; script.next(line); bar_.show(script.progress())) {
      try {
        operations_.run(line);
      } catch (InputError const& wrong) {
        bar_.remove();
        report_.refused(script.where(), wrong.msg());
        ++wrongLines_;
        if (!options_.keepsGoing) return false;
      }
    }
    return !signals_.arrived();
  }

  static int interrupted() {
    fmt::print(stderr, "hwtables: interrupted; all that was read is done\n");
    return kBadInput;
  }

  void serve() {
    report_.event({{"event", "serving"}, {"pid", ::getpid()}},
                  fmt::format("serving as pid {} until SIGINT or SIGTERM", ::getpid()));
    report_.finish();
    signals_.wait();
  }

  Options const& options_;
  StopSignals signals_;
  std::list<RunScript> scripts_;
  Bundle bundle_;
  Dovel::Ptr<Chip::SoftwareChip> chip_;
  ControlPlane plane_;
  RunReport report_;
  RunOperations operations_;
  ProgressBar bar_;
  std::uint64_t wrongLines_ = 0;
};

int runFiles(Options const& options) {
  try {
    Run run(options);
    return run.run();
  } catch (Dovel::NoPermissionException const& refused) {
    fmt::print(stderr, "hwtables: {}\n", oneLine(refused.msg()));
    return kSecondWriter;
  }
}

// A line each; members that may be left out stand in brackets.
int printOperations() {
  Output output;
  for (auto const& operation : RunOperations::operations()) {
    std::string line = fmt::format("{:<10}", operation.name);
    for (auto const& member : operation.members)
      line += member.required ? fmt::format(" {}", member.name) : fmt::format(" [{}]", member.name);
    output.line(line.substr(0, line.find_last_not_of(' ') + 1));
  }
  output.line("");
  output.line("kinds of chip-fault");
  for (ChipFaultKind const& kind : chipFaultKinds())
    output.line(fmt::format("{:<15} {}", kind.name, kind.does));
  output.finish();
  return 0;
}

std::vector<std::string> revisionNames() {
  std::vector<std::string> names;
  for (auto const& [name, revision] : revisions()) names.push_back(name);
  return names;
}

}  // namespace

void addRunCommand(CLI::App& app, int& exitCode) {
  CLI::App* const command = app.add_subcommand("run", kDescription);
  auto const options = std::make_shared<Options>();
  command->add_option("FILE", options->files, "Files of operations; - or none for standard input");
  command->add_option("--faps", options->faps, "How many FAPs there are, each with a chip of its own")
      ->check(CLI::Range(1U, Chip::SoftwareChip::kMaxFaps))
      ->capture_default_str();
  command->add_option("--revision", options->revision, "Revision of the chips")
      ->check(CLI::IsMember(revisionNames()))
      ->capture_default_str();
  command
      ->add_option("--chip", options->chips,
                   "Keep the chips in files of this directory, which outlive the run; else they end with it")
      ->type_name("DIR");
  command->add_flag("--json", options->json, "Print a JSON object a line, for programs");
  command->add_flag("--serve", options->serves,
                    "Stay the writer for other processes until SIGINT or SIGTERM");
  command->add_flag("--keep-going", options->keepsGoing,
                    "Pass over lines that are wrong; exits 1 all the same");
  command->add_option("--bundle", options->bundle, "Load this bundle instead of the built one")
      ->type_name("FILE")
      ->envname("HWTABLES_BUNDLE");
  command->add_flag("--operations", options->listsOperations,
                    "Print the operations with their members, and exit");
  command->callback([options, &exitCode] {
    if (options->listsOperations) {
      exitCode = printOperations();
      return;
    }
    if (options->files.empty()) options->files.emplace_back("-");
    exitCode = runFiles(*options);
  });
}

}  // namespace Host
