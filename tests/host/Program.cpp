#include "tests/host/Program.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/runtime/TempDir.h"

namespace {

std::string content(std::string const& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace

Outcome runShell(std::string command) {
  TempDir const dir;
  std::string const name = "HWTABLES";
  for (auto at = command.find(name); at != std::string::npos; at = command.find(name)) {
    command.replace(at, name.size(), HWTABLES_BIN_DIR "/hwtables");
  }
  std::ofstream(dir.file("script")) << command << "\n";
  std::string const line =
      "bash " + dir.file("script") + " >" + dir.file("out") + " 2>" + dir.file("err") + " </dev/null";
  int const status = std::system(line.c_str());
  if (!WIFEXITED(status)) throw std::runtime_error("the shell was killed: " + command);
  return {WEXITSTATUS(status), content(dir.file("out")), content(dir.file("err"))};
}
