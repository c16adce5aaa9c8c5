// The adapter of our own store: a shared table, used through the interface that hosts use. See TableBench.h.
#pragma once

#include <cstring>

#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "LoamSharedHwTables/StoredEntry.h"
#include "Vault/VaultWriter.h"
#include "bench/store/Directory.h"
#include "bench/store/Workload.h"

namespace StoreBench {

class HwtablesTable {
 public:
  using Ops = LoamSharedHwTables::StoredOps<bcm88490_a0::MplsIsemHwEm>;
  using Value = Ops::Value;

  HwtablesTable(Directory const& directory, std::uint32_t count, bool yields = false)
      : writer_(handler(), Mem::RootPath(handler(), directory.path().c_str(), true),
                descriptor(count, yields)) {
    writer_.initialize("none");
  }

  void put(Record const& record) { table_.write(valueOf(record), true); }
  void overwrite(Record const& record) { put(record); }

  bool get(Key const& key, Record& out) {
    bool found = false;
    table_.lookup(key, found, &out);
    return found;
  }

  bool erase(Key const& key) {
    Value removed;
    return table_.remove(key, removed);
  }

  template <class Visit>
  void forEach(Visit&& visit) {
    Value value;
    Vault::IterHint hint;
    for (bool found = table_.first(value, hint); found; found = table_.next(value.fwkKey(), value, hint))
      visit(recordOf(value));
  }

  void settle() {}
  std::uint32_t size() { return writer_.members(); }

 private:
  static Dovel::Platform::DebugHandler handler() {
    return Dovel::Platform::getDebugHandler("StoreBench", true);
  }
  static Vault::MapDescriptor descriptor(std::uint32_t count, bool yields) {
    Vault::MapDescriptor descriptor(count);
    descriptor.localMem = false;
    descriptor.criticalTaskCheck = yields;
    return descriptor;
  }

  // The benchmark's record has the same bytes, so it is handed over as it stands, as to the other tables.
  static Value const& valueOf(Record const& record) {
    return *static_cast<Value const*>(static_cast<void const*>(&record));
  }
  static Record recordOf(Value const& value) {
    Record record;
    std::memcpy(static_cast<void*>(&record), &value, sizeof record);
    return record;
  }

  Vault::VaultWriter<Ops> writer_;
  Vault::VaultInterface<Ops>& table_ = writer_;
};

}  // namespace StoreBench
