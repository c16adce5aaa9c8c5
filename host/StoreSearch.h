// Looks for stores in a tree of directories. Links are not followed. A value; one thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Host {

class StoreSearch {
 public:
  explicit StoreSearch(std::string_view root);

  std::string const& root() const { return root_; }
  // The directories of stores, sorted.
  std::vector<std::string> const& stores() const { return stores_; }
  // What couldn't be looked into, a sentence each.
  std::vector<std::string> const& problems() const { return problems_; }

 private:
  void lookInto(std::string const& directory);

  std::string root_;
  std::vector<std::string> left_;
  std::vector<std::string> stores_;
  std::vector<std::string> problems_;
};

}  // namespace Host
