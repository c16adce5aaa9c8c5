// Our own store, written by one process and read by another.
#include "Vault/VaultReader.h"
#include "bench/store/HwtablesTable.h"
#include "bench/store/TwoProcessBench.h"

namespace {

using namespace StoreBench;

class HwtablesWriter {
 public:
  HwtablesWriter(Directory const& directory, std::uint32_t count) : table_(directory, count) {}

  void fill(Target const&, Record const& record) { table_.put(record); }
  void filled() {}
  void overwrite(Target const&, Record const& record) { table_.overwrite(record); }

 private:
  HwtablesTable table_;
};

class HwtablesReader {
 public:
  HwtablesReader(Directory const& directory, std::uint32_t)
      : reader_(handler(), Mem::RootPath(handler(), directory.path().c_str(), true)) {
    if (!reader_.initialize("benchmark")) throw std::runtime_error("the reader can't attach");
  }

  bool get(Target const& target, Record& out) {
    bool found = false;
    table_.lookup(target.key(), found, &out);
    return found;
  }

 private:
  static Dovel::Platform::DebugHandler handler() {
    return Dovel::Platform::getDebugHandler("StoreBench", true);
  }

  Vault::VaultReader<HwtablesTable::Ops> reader_;
  Vault::VaultInterface<HwtablesTable::Ops>& table_ = reader_;
};

struct Hwtables {
  using Writer = HwtablesWriter;
  using Reader = HwtablesReader;
};

[[maybe_unused]] bool const registered = registerKind<Hwtables>("hwtables");

}  // namespace
