#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <stdexcept>

namespace TestSupport {
namespace {

constexpr char const* kRoleVariable = "HWTABLES_TEST_ROLE";

using Roles = std::map<std::string, void (*)()>;

Roles& roles() {
  static Roles all;
  return all;
}

// Comes before the first test, in main(), so everything static stands as it does in any program.
class RoleRunner : public ::testing::Environment {
  void SetUp() override {
    char const* const name = std::getenv(kRoleVariable);
    if (name == nullptr) return;
    roles().at(name)();
    std::exit(0);
  }
};
[[maybe_unused]] auto const* const runner = ::testing::AddGlobalTestEnvironment(new RoleRunner);

bool isInherited(std::string const& variable) {
  for (char const* prefix : {"HWTABLES_", "GRACEFUL_", "GTEST_"}) {
    if (variable.starts_with(prefix)) return false;
  }
  return true;
}

std::vector<std::string> childEnvironment(std::string const& role,
                                          std::map<std::string, std::string> const& added) {
  std::vector<std::string> result{std::string(kRoleVariable) + "=" + role};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (isInherited(*variable)) result.emplace_back(*variable);
  }
  for (auto const& [name, value] : added) result.push_back(name + "=" + value);
  return result;
}

pid_t spawn(std::vector<std::string> environment, int errors) {
  std::vector<char*> variables;
  for (auto& variable : environment) variables.push_back(variable.data());
  variables.push_back(nullptr);
  std::string program = std::filesystem::read_symlink("/proc/self/exe");
  std::array<char*, 2> arguments{program.data(), nullptr};
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  pid_t child = 0;
  int const failure =
      ::posix_spawn(&child, program.c_str(), &actions, nullptr, arguments.data(), variables.data());
  ::posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::runtime_error("cannot start " + program);
  return child;
}

}  // namespace

ChildRole::ChildRole(char const* name, void (*body)()) { roles()[name] = body; }

std::string ChildResult::errors() const {
  return std::accumulate(writes.begin(), writes.end(), std::string());
}

ChildResult runChild(std::string const& role, std::map<std::string, std::string> const& environment) {
  // A socket that keeps the bounds of messages shows each write() as it was made.
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
    throw std::runtime_error("socketpair");
  pid_t const child = spawn(childEnvironment(role, environment), ends[1]);
  ::close(ends[1]);
  ChildResult result;
  std::vector<char> buffer(1 << 20);
  for (ssize_t size; (size = ::recv(ends[0], buffer.data(), buffer.size(), 0)) > 0;) {
    result.writes.emplace_back(buffer.data(), static_cast<std::size_t>(size));
  }
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

}  // namespace TestSupport
