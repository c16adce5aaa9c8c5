// The stores of tables' shadows that stand on this machine, by table and FAP, for processes that only read
// them. One thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Vault/StoreFiles.h"
#include "Vault/StoredType.h"

namespace Host {

struct ShadowStore {
  std::string path;  // absolute
  std::string revision;
  std::string table;
  std::optional<unsigned> fap;  // nothing where all FAPs share the shadow
};

// In the order of revisions, tables and FAPs.
std::vector<ShadowStore> shadowStores();

Vault::StoreFiles filesOf(ShadowStore const& store, Vault::StoreFiles::Extent extent);

// A store that may be written meanwhile; each record is whole. Throws Dovel::RuntimeException where the store
// isn't complete, or the bundle doesn't know its type, and what Vault::StoredReader throws.
class StoreReading {
 public:
  explicit StoreReading(ShadowStore const& store);

  // Null where there is none; until the next call.
  std::byte const* find(std::string_view key) { return reader_->find(key); }
  // Every record that was there when it began and still is, in the order of the keys.
  void forEach(std::function<void(std::byte const* record)> const& visit);

  Vault::StoredType const& type() const { return *type_; }

 private:
  ShadowStore const& store_;
  Vault::StoredType const* type_;
  std::unique_ptr<Vault::StoredReader> reader_;
};

}  // namespace Host
