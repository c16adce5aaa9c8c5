// Files and folders of a test.
#pragma once

#include <string>
#include <vector>

namespace TestSupport {

// A folder of its own for one test, gone with the test.
class TempDir {
 public:
  TempDir();
  explicit TempDir(std::string const& parent);
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;
  ~TempDir();

  std::string const& path() const { return path_; }
  // The path of a file in it.
  std::string file(std::string const& name) const { return path_ + "/" + name; }
  // The paths of all that is in it, in no order.
  std::vector<std::string> files() const;

 private:
  std::string path_;
};

// All of a file; empty where there is none.
std::string contentOf(std::string const& path);
std::vector<std::string> linesOf(std::string const& path);
void writeFile(std::string const& path, std::string const& text);

}  // namespace TestSupport
