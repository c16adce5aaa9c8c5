#include "host/FastLogCommand.h"

#include <fmt/format.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <memory>

#include "host/Output.h"
#include "host/UtcTime.h"
#include "runtime/FastLog/Decoder.h"

namespace Host {
namespace {

constexpr char kDescription[] =
    "Prints the messages of a fast log, oldest first, one a line:\n"
    "UTC time, [process:thread], file:line, text. Works on the file of a\n"
    "process that runs as well as of one that has ended in any way.\n"
    "Processes write such files where HWTABLES_FASTLOG names a directory.";

void printSummary(FastLog::DecodedLog const& log) {
  std::string summary = fmt::format("hwtables: {} messages of {} (pid {}) since {}", log.messages.size(),
                                    oneLine(log.program), log.pid, utcTime(log.startTime));
  auto const add = [&summary](std::uint64_t count, char const* what) {
    if (count != 0) summary += fmt::format(", {} {}", count, what);
  };
  add(log.overwrittenMessages, "overwritten by newer ones");
  add(log.tornMessages, "not written to the end");
  add(log.undescribedMessages, "without description");
  fmt::print(stderr, "{}\n", summary);
}

int printLog(std::string const& path) {
  FastLog::DecodedLog const log = FastLog::decode(path);
  Output output;
  for (FastLog::Message const& message : log.messages) {
    output.line(fmt::format("{} [{}:{}] {}:{} {}{}", utcTime(message.time), log.pid, message.thread,
                            oneLine(message.file), message.line, oneLine(message.text),
                            message.cut ? " [cut]" : ""));
  }
  output.finish();
  printSummary(log);
  return 0;
}

}  // namespace

void addFastLogCommand(CLI::App& app, int& exitCode) {
  CLI::App* const command = app.add_subcommand("fastlog", kDescription);
  auto const path = std::make_shared<std::string>();
  command->add_option("FILE", *path, "A file hwtables-<pid>-<time>.fastlog")->required();
  command->callback([path, &exitCode] { exitCode = printLog(*path); });
}

}  // namespace Host
