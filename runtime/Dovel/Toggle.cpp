#include "runtime/Dovel/Toggle.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

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

// Nothing where it isn't to be had; `why` then tells a person what to mend. That there is no such file is the
// usual case, and costs little.
std::optional<bool> read(std::string const& toggleName, std::string const& path, std::string& why) try {
  std::unique_ptr<std::FILE, decltype(&std::fclose)> const file(std::fopen(path.c_str(), "re"), &std::fclose);
  if (file == nullptr) {
    why = std::string("cannot be opened: ") + ::strerrordesc_np(errno);
    return {};
  }
  auto const toggles = nlohmann::json::parse(file.get());
  auto const found = toggles.find(toggleName);
  if (!toggles.is_object()) {
    why = "holds no JSON object";
  } else if (found == toggles.end()) {
    why = "does not name the toggle";
  } else if (!found->is_boolean()) {
    why = "gives " + found->dump() + ", neither true nor false";
  } else {
    return found->get<bool>();
  }
  return {};
} catch (std::exception const& failure) {
  why = failure.what();
  return {};
}

}  // namespace

bool getToggleState(String const& toggleName, String const& fileName, bool defaultValue) {
  std::string const path = pathOf(fileName);
  std::string why;
  std::optional<bool> const state = read(toggleName.data(), path, why);
  if (!state) {
    DOVEL_TRACE(_defaultTraceHandle(), 1, "", "toggle {} keeps its default {}: {} {}", toggleName,
                defaultValue, path, why);
  }
  return state.value_or(defaultValue);
}

}  // namespace Dovel
