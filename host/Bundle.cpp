#include "host/Bundle.h"

#include <dlfcn.h>

#include <filesystem>

#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

constexpr char kBundleFile[] = "libbcm88490_a0.so";

std::string pathToLoad(std::string const& given) {
  if (!given.empty()) return given;
  auto const program = std::filesystem::read_symlink("/proc/self/exe");
  return program.parent_path().parent_path() / "lib" / kBundleFile;
}

void* load(std::string const& path) {
  // A bare name would be looked for in the system's folders instead of here.
  void* const handle = ::dlopen(std::filesystem::absolute(path).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr)
    DOVEL_THROW(BundleException, "Bundle", "cannot load the table bundle: {}", ::dlerror());
  if (LoamAsicUtils::TableCatalogue::tables().empty()) {
    ::dlclose(handle);
    DOVEL_THROW(BundleException, "Bundle", "{} holds no tables", path);
  }
  return handle;
}

}  // namespace

BundleException::~BundleException() = default;
void BundleException::throwException(Dovel::String const& message) { throw BundleException(message); }

Bundle::Bundle(std::string const& path) : handle_(load(pathToLoad(path))) {}
Bundle::~Bundle() { ::dlclose(handle_); }

}  // namespace Host
