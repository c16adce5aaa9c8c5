// The operations of writers and readers on the records of a real table, compiled as they are for a program:
// what scripts/check_disassembly looks at.
#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "Vault/VaultReader.h"
#include "Vault/VaultWriter.h"

namespace {

using Table = bcm88490_a0::MplsIsemHwEm;
using Record = OrloVault::ValWrap<Table::Entry, Table::EntryKey, &Table::Entry::entryKey, false>;
using HotOps = Vault::OpsOf<Record>;
using HotWriter = Vault::VaultWriter<HotOps>;

}  // namespace

template class Vault::VaultWriter<HotOps>;
template class Vault::VaultReader<HotOps>;
template class VaultCore::ReaderHashMap<HotOps, Vault::SlotReaderTable<HotOps>>;
template class VaultCore::WriterHashMap<HotOps, Vault::SlotWriterTable<HotOps>, HotWriter,
                                        Vault::Validator<HotOps, HotWriter>>;
