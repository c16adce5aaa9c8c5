#include "tests/support/Files.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace TestSupport {

TempDir::TempDir() : TempDir(std::filesystem::temp_directory_path()) {}

TempDir::TempDir(std::string const& parent) : path_(parent + "/hwtables-test-XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp " + path_);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TempDir::files() const {
  std::vector<std::string> all;
  for (auto const& entry : std::filesystem::directory_iterator(path_)) all.push_back(entry.path());
  return all;
}

std::string contentOf(std::string const& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

std::vector<std::string> linesOf(std::string const& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

void writeFile(std::string const& path, std::string const& text) { std::ofstream(path) << text; }

}  // namespace TestSupport
