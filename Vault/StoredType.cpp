#include "Vault/StoredType.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace Vault {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<StoredType const*> types;
};

// Never destroyed: a bundle may be unloaded after the statics of this library are gone.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

}  // namespace

StoredReader::~StoredReader() = default;

StoredType::Registration::Registration(StoredType const& type) : type_(&type) {
  std::lock_guard const lock(registry().mutex);
  registry().types.push_back(type_);
}

StoredType::Registration::~Registration() {
  std::lock_guard const lock(registry().mutex);
  std::erase(registry().types, type_);
}

StoredType const* StoredType::find(std::string_view typeName) {
  std::lock_guard const lock(registry().mutex);
  auto const found = std::ranges::find(registry().types, typeName, &StoredType::typeName);
  return found == registry().types.end() ? nullptr : *found;
}

}  // namespace Vault
