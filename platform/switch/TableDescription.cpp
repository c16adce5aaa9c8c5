#include "platform/switch/TableDescription.h"

#include <algorithm>
#include <mutex>

namespace LoamAsicUtils {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<TableDescription const*> tables;
};

// Never destroyed: a bundle may be unloaded after the statics of this library are gone.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

}  // namespace

std::string_view stringValue(TableFamily family) {
  switch (family) {
    case TableFamily::direct:
      return "direct";
    case TableFamily::exactMatch:
      return "exactMatch";
    case TableFamily::reg:
      return "register";
    case TableFamily::mdbDirect:
      return "mdbDirect";
  }
  return "unknown";
}

TableCatalogue::Registration::Registration(TableDescription const& description) : description_(&description) {
  std::lock_guard const lock(registry().mutex);
  registry().tables.push_back(description_);
}

TableCatalogue::Registration::~Registration() {
  std::lock_guard const lock(registry().mutex);
  std::erase(registry().tables, description_);
}

std::vector<TableDescription const*> TableCatalogue::tables() {
  std::lock_guard const lock(registry().mutex);
  std::vector<TableDescription const*> sorted = registry().tables;
  std::ranges::sort(sorted, {}, &TableDescription::order);
  return sorted;
}

TableDescription const* TableCatalogue::table(std::string_view name) {
  std::lock_guard const lock(registry().mutex);
  auto const found = std::ranges::find(registry().tables, name, &TableDescription::name);
  return found == registry().tables.end() ? nullptr : *found;
}

}  // namespace LoamAsicUtils
