// The operations of writers and readers on the records of a real table, compiled as they are for a program:
// what scripts/check_disassembly looks at.
#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "LoamSharedHwTables/StoredEntry.h"
#include "Vault/VaultReader.h"
#include "Vault/VaultWriter.h"

namespace {

using HotOps = LoamSharedHwTables::StoredOps<bcm88490_a0::MplsIsemHwEm>;
using HotWriter = Vault::VaultWriter<HotOps>;

}  // namespace

template class Vault::VaultWriter<HotOps>;
template class Vault::VaultReader<HotOps>;
template class VaultCore::ReaderHashMap<HotOps, Vault::SlotReaderTable<HotOps>>;
template class VaultCore::WriterHashMap<HotOps, Vault::SlotWriterTable<HotOps>, HotWriter,
                                        Vault::Validator<HotOps, HotWriter>>;
