#include "runtime/Dovel/Toggle.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace Dovel {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("Toggle")

std::string pathOf(String const& fileName) {
  char const* const directory = std::getenv("HWTABLES_TOGGLES");
  bool const given = directory != nullptr && *directory != '\0';
  return std::string(given ? directory : "/etc/hwtables") + "/" + fileName.data();
}

// Any failure is an exception whose text tells a person what to mend.
bool read(std::string const& toggleName, std::string const& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(std::string("cannot be opened: ") + ::strerrordesc_np(errno));
  auto const toggles = nlohmann::json::parse(file);
  if (!toggles.is_object()) throw std::runtime_error("holds no JSON object");
  auto const found = toggles.find(toggleName);
  if (found == toggles.end()) throw std::runtime_error("does not name the toggle");
  if (!found->is_boolean()) throw std::runtime_error("gives " + found->dump() + ", neither true nor false");
  return found->get<bool>();
}

}  // namespace

bool getToggleState(String const& toggleName, String const& fileName, bool defaultValue) {
  std::string const path = pathOf(fileName);
  try {
    return read(toggleName.data(), path);
  } catch (std::exception const& failure) {
    DOVEL_TRACE(_defaultTraceHandle(), 1, "", "toggle {} keeps its default {}: {} {}", toggleName,
                defaultValue, path, failure.what());
    return defaultValue;
  }
}

}  // namespace Dovel
