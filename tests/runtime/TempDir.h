// A folder of its own for one test, gone with the test.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

class TempDir {
 public:
  TempDir() {
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder");
  }
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string const& path() const { return path_; }
  std::string file(std::string const& name) const { return path_ + "/" + name; }

  std::vector<std::string> files() const {
    std::vector<std::string> all;
    for (auto const& entry : std::filesystem::directory_iterator(path_)) all.push_back(entry.path());
    return all;
  }

 private:
  std::string path_ = (std::filesystem::temp_directory_path() / "hwtables-test-XXXXXX").string();
};
