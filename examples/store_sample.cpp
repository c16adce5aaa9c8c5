// Keeps three rows of a table in the store `sample`, where other processes, and this one when it comes back,
// find them: the files outlive the program. An argument is taken as another number of rows.
#include <fmt/core.h>

#include <cstdlib>

#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "Vault/MapDescriptor.h"
#include "Vault/VaultWriter.h"
#include "platform/memory/ControlFile.h"
#include "runtime/Vault/Ops.h"

using Table = bcm88490_a0::MplsIsemHwEm;
using Row = OrloVault::ValWrap<Table::Entry, Table::EntryKey, &Table::Entry::entryKey, false>;
using Writer = Vault::VaultWriter<Vault::OpsOf<Row>>;

int main(int argc, char** argv) {
  int const rows = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 3;
  auto const handler = Dovel::Platform::getDebugHandler("StoreSample", true);
  Mem::RootPath const path(handler, "sample", true);
  Vault::MapDescriptor descriptor(1000);  // rows that are expected at most
  descriptor.localMem = false;

  try {
    Writer writer(handler, path, descriptor);
    writer.initialize("none");
    Mem::Util::createControlFile(handler, path);
    fmt::print("at first: {} rows\n", writer.members());
    for (int label = 100; label < 100 + rows; ++label) {
      Table::Entry entry(Table::EntryKey(static_cast<std::uint32_t>(label), 1));
      entry.inLifIs(static_cast<std::uint32_t>(label - 58));
      writer.write(Row(entry), true);
    }
    fmt::print("now: {} rows\n", writer.members());
  } catch (Dovel::Exception const& failure) {
    fmt::print(stderr, "cannot keep the rows: {}\n", failure.msg());
    return 1;
  }
}
