#include "bench/FreshProcess.h"

#include <cstdio>
#include <filesystem>
#include <map>
#include <stdexcept>

namespace Bench {
namespace {

constexpr char kOption[] = "--role";

std::map<std::string, FreshRole::Body>& roles() {
  static std::map<std::string, FreshRole::Body> all;
  return all;
}

}  // namespace

FreshRole::FreshRole(std::string const& name, Body body) { roles()[name] = body; }

std::string outputOfFresh(std::string const& role, std::vector<std::string> const& arguments) {
  std::string command = "exec '" + std::filesystem::read_symlink("/proc/self/exe").string() + "' ";
  command += kOption + std::string(" ") + role;
  for (std::string const& argument : arguments) command += " " + argument;
  std::FILE* const pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot start " + command);
  std::string output;
  for (int letter; (letter = std::fgetc(pipe)) != EOF;) output += static_cast<char>(letter);
  if (::pclose(pipe) != 0) throw std::runtime_error("failed: " + command);
  return output;
}

bool playedFreshRole(int argumentCount, char** arguments) {
  if (argumentCount < 3 || arguments[1] != std::string(kOption)) return false;
  roles().at(arguments[2])({arguments + 3, arguments + argumentCount});
  return true;
}

}  // namespace Bench
