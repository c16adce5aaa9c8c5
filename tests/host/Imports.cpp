#include "tests/host/Imports.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

std::vector<std::string> linesOf(std::string const& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace

Outcome ImportPlace::import(Inputs const& inputs, std::string const& arguments) const {
  std::string options;
  for (auto const& [kind, text] : inputs) {
    TestSupport::writeFile(file(kind + ".json"), text);
    options += " --" + kind + " " + kind + ".json";
  }
  return runShell("cd " + dir_.path() + " && HWTABLES import iproute2 --map map.json" + options + " " +
                  arguments);
}

std::vector<std::string> ImportPlace::rows(Inputs const& inputs, std::string const& arguments) const {
  Outcome const outcome = import(inputs, arguments);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  return linesOf(outcome.out);
}

std::vector<std::string> ImportPlace::notMapped(Inputs const& inputs, std::string const& arguments) const {
  Outcome const outcome = import(inputs, arguments);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  std::vector<std::string> listed;
  std::string const begin = "hwtables: ";
  for (std::string const& line : linesOf(outcome.err))
    if (line.starts_with(begin)) listed.push_back(line.substr(begin.size()));
  return listed;
}
