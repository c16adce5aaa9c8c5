#include "tests/host/Runs.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <thread>

namespace {

std::vector<RunJson> parsed(std::string const& text) {
  std::vector<RunJson> events;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) events.push_back(RunJson::parse(line));
  return events;
}

}  // namespace

std::vector<RunJson> RunEvents::of(std::string const& event) const {
  std::vector<RunJson> found;
  for (RunJson const& one : all)
    if (one["event"] == event) found.push_back(one);
  return found;
}

RunJson RunEvents::one(std::string const& event) const {
  auto const found = of(event);
  EXPECT_EQ(found.size(), 1U) << event;
  return found.empty() ? RunJson() : found.front();
}

RunJson RunEvents::table(std::string const& name) const {
  RunJson const summary = one("summary");
  for (RunJson const& table : summary["tables"])
    if (table["table"] == name) return table;
  return {};
}

std::string RunPlace::fileOf(std::vector<std::string> const& operations) const {
  std::string text;
  for (std::string const& operation : operations) text += operation + "\n";
  TestSupport::writeFile(file("in.jsonl"), text);
  return file("in.jsonl");
}

Outcome RunPlace::run(std::vector<std::string> const& operations, std::string const& arguments) const {
  return command("run " + arguments + " " + fileOf(operations));
}

RunEvents RunPlace::events(std::vector<std::string> const& operations, std::string const& arguments) const {
  Outcome const outcome = run(operations, "--json " + arguments);
  return {outcome.exitCode, outcome.err, parsed(outcome.out)};
}

Outcome RunPlace::command(std::string const& arguments) const {
  return runShell("HWTABLES_ROOT=" + root() + " HWTABLES " + arguments);
}

GoingRun::GoingRun(RunPlace const& place, std::vector<std::string> arguments)
    : outPath_(place.file("going")) {
  int ends[2];
  EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  int const out = ::open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  std::vector<std::string> words{HWTABLES_BIN_DIR "/hwtables", "run"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  std::string const root = place.root();
  pid_ = ::fork();
  if (pid_ == 0) {
    ::dup2(ends[0], STDIN_FILENO);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(out, STDERR_FILENO);
    ::setenv("HWTABLES_ROOT", root.c_str(), 1);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(ends[0]);
  ::close(out);
  input_ = ends[1];
}

GoingRun::~GoingRun() {
  endInput();
  if (pid_ == 0) return;
  signal(SIGKILL);
  wait();
}

void GoingRun::write(std::string const& operation) const {
  std::string const line = operation + "\n";
  EXPECT_EQ(::write(input_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
}

void GoingRun::endInput() {
  if (input_ >= 0) ::close(input_);
  input_ = -1;
}

bool GoingRun::hasEnded() const {
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == pid_;
}

bool GoingRun::waitFor(std::string const& text) const {
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (std::chrono::steady_clock::now() < end) {
    bool const ended = hasEnded();
    if (out().find(text) != std::string::npos) return true;
    if (ended) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

void GoingRun::signal(int number) const { ::kill(pid_, number); }

int GoingRun::wait() {
  int status = 0;
  EXPECT_EQ(::waitpid(pid_, &status, 0), pid_);
  pid_ = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string GoingRun::out() const { return TestSupport::contentOf(outPath_); }
