// Loading a table bundle into the process. One thread.
#pragma once

#include <string>
#include <vector>

#include "platform/switch/TableDescription.h"
#include "runtime/Dovel/Exception.h"

namespace Host {

// The bundle could not be found or loaded; the message says which file and why.
class BundleException : public Dovel::RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~BundleException() override;
  [[noreturn]] static void throwException(Dovel::String const& message);
};

// A loaded bundle; its tables are in the catalogue while the object lives.
class Bundle {
 public:
  // An empty path means the bundle that was built with the program.
  explicit Bundle(std::string const& path);
  ~Bundle();
  Bundle(Bundle const&) = delete;
  Bundle& operator=(Bundle const&) = delete;

  // In catalogue order; valid while the bundle lives.
  std::vector<LoamAsicUtils::TableDescription const*> tables() const {
    return LoamAsicUtils::TableCatalogue::tables();
  }

 private:
  void* const handle_;
};

}  // namespace Host
