#include "tests/host/Program.h"

#include <sys/wait.h>

#include <cstdlib>
#include <regex>
#include <stdexcept>

#include "tests/support/Files.h"

Outcome runShell(std::string command) {
  TestSupport::TempDir const dir;
  command = std::regex_replace(command, std::regex("\\bHWTABLES\\b"), HWTABLES_BIN_DIR "/hwtables");
  TestSupport::writeFile(dir.file("script"), command + "\n");
  std::string const line =
      "bash " + dir.file("script") + " >" + dir.file("out") + " 2>" + dir.file("err") + " </dev/null";
  int const status = std::system(line.c_str());
  if (!WIFEXITED(status)) throw std::runtime_error("the shell was killed: " + command);
  return {WEXITSTATUS(status), TestSupport::contentOf(dir.file("out")),
          TestSupport::contentOf(dir.file("err"))};
}
