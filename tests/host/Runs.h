// Runs of the control plane for tests: each test has stores and chips of its own.
#pragma once

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/host/Program.h"
#include "tests/support/Files.h"

using RunJson = nlohmann::ordered_json;

// What a run with --json has told.
struct RunEvents {
  int exitCode = 0;
  std::string err;
  std::vector<RunJson> all;

  std::vector<RunJson> of(std::string const& event) const;
  // The only one of its kind.
  RunJson one(std::string const& event) const;
  // The line of a table in the summary.
  RunJson table(std::string const& name) const;
};

// A place for stores and chips that outlive a run.
class RunPlace {
 public:
  // Runs the operations, one a line, with these arguments.
  Outcome run(std::vector<std::string> const& operations, std::string const& arguments = "") const;
  RunEvents events(std::vector<std::string> const& operations, std::string const& arguments = "") const;
  // Any other command.
  Outcome command(std::string const& arguments) const;

  std::string root() const { return dir_.file("stores"); }
  std::string chips() const { return dir_.file("chips"); }
  std::string keepChips() const { return "--chip " + chips() + " "; }
  std::string file(std::string const& name) const { return dir_.file(name); }
  std::string fileOf(std::vector<std::string> const& operations) const;

 private:
  // In memory, as the stores of a running system are.
  TestSupport::TempDir const dir_{"/dev/shm"};
};

// A run that goes on while the test does other things.
class GoingRun {
 public:
  // Reads the operations that write() gives it.
  GoingRun(RunPlace const& place, std::vector<std::string> arguments);
  GoingRun(GoingRun const&) = delete;
  GoingRun& operator=(GoingRun const&) = delete;
  // Kills what still runs.
  ~GoingRun();

  pid_t pid() const { return pid_; }
  void write(std::string const& operation) const;
  // No more operations will come.
  void endInput();
  // Waits until the text stands in what it has printed; false where it ended without, or half a minute later.
  bool waitFor(std::string const& text) const;
  void signal(int number) const;
  // Waits for the end: the exit code, or 128 and the signal's number.
  int wait();
  std::string out() const;

 private:
  bool hasEnded() const;

  std::string const outPath_;
  int input_ = -1;
  pid_t pid_ = 0;
};
