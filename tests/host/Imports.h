// Imports for tests: each test has a folder of its own with a map and inputs.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/host/Program.h"
#include "tests/support/Files.h"

class ImportPlace {
 public:
  // By the names of their options: {{"mpls", "[...]"}}. The files are called "mpls.json" and so on.
  using Inputs = std::map<std::string, std::string>;

  // Imports what the inputs print, by the map that stands there.
  Outcome import(Inputs const& inputs, std::string const& arguments = "") const;
  // One that has to succeed; what it printed, line by line.
  std::vector<std::string> rows(Inputs const& inputs, std::string const& arguments = "") const;
  // What it listed on standard error as not mapped, without what stands before the file's name.
  std::vector<std::string> notMapped(Inputs const& inputs, std::string const& arguments = "") const;

  std::string file(std::string const& name) const { return dir_.file(name); }
  std::string map() const { return TestSupport::contentOf(file("map.json")); }
  void mapIs(std::string const& text) const { TestSupport::writeFile(file("map.json"), text); }
  std::vector<std::string> files() const { return dir_.files(); }

 private:
  TestSupport::TempDir const dir_;
};
