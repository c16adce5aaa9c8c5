#include "host/StoreSearch.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "Vault/StoreFiles.h"
#include "host/Output.h"

namespace Host {

namespace fs = std::filesystem;

StoreSearch::StoreSearch(std::string_view root) : root_(root), left_{root_} {
  while (!left_.empty()) {
    std::string const directory = std::move(left_.back());
    left_.pop_back();
    lookInto(directory);
  }
  std::ranges::sort(stores_);
  std::ranges::sort(problems_);
}

void StoreSearch::lookInto(std::string const& directory) {
  Mem::RootPath const rootPath(Dovel::Platform::getDebugHandler("StoreSearch", true), directory, true);
  if (Vault::StoreFiles::standsIn(rootPath)) stores_.push_back(directory);
  std::error_code error;
  for (fs::directory_iterator at(directory, error), end; !error && at != end; at.increment(error)) {
    std::error_code gone;
    if (at->symlink_status(gone).type() == fs::file_type::directory) left_.push_back(at->path());
  }
  // What was removed since it was seen is no problem; the root itself must be there.
  if (error && (error != std::errc::no_such_file_or_directory || directory == root_))
    problems_.push_back(fmt::format("cannot look into {}: {}", oneLine(directory), error.message()));
}

}  // namespace Host
