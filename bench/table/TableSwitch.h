// A table with one FAP over a software chip, in a root of stores of its own: what benchmarks of tables run.
#pragma once

#include <cstdlib>

#include "bench/store/Directory.h"
#include "platform/chip/SchanChannel.h"
#include "platform/chip/SoftwareChip.h"
#include "platform/switch/LoamAsicUtils/TableWriter.h"
#include "platform/switch/TableDescription.h"

namespace TableBench {

inline constexpr Hardware::Loam::FapRevision kRevision(Hardware::Loam::FapRevMajor::majorQumran3aA0);
inline constexpr LoamAsicUtils::HwShadowKey kShared(Sluice::FapId::null(), 0);

// Table is one whose FAPs share a shadow.
template <class Table>
struct TableSwitch {
  // Without a writer nothing is sent unless the benchmark does.
  explicit TableSwitch(bool writing) {
    ::setenv("HWTABLES_ROOT", directory.path().c_str(), 1);
    pool = DmaMemPoolManager::localMemPoolFactory("bench");
    chip = Dovel::ptrIsImpl<Chip::SoftwareChip>(Chip::SoftwareChip::Options{});
    chip->dmaPoolIs(pool);
    channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);
    auto const entities = Dovel::ptrIsImpl<Statebase::EntityManager>(Dovel::String(directory.path()), false);
    manager = Dovel::ptrIsImpl<LoamAsicUtils::TableManager>(nullptr, nullptr, entities, pool);
    if (writing) writer = Dovel::ptrIsImpl<LoamAsicUtils::TableWriter>(manager, channel);
    LoamAsicUtils::HwTableKey const key(Table::tableName(), kRevision);
    auto const made = Table::Traits::description().access->make(key, manager);
    table = Dovel::Ptr<Table>(static_cast<Table*>(made.ptr()));
    table->processFapIdAdd(Dovel::ptrIsImpl<Hardware::Loam::FapControlData>(0, kRevision));
    if (writing) writer->flush();
  }
  ~TableSwitch() {
    writer = nullptr;
    table->processFapIdDel(0);
    ::unsetenv("HWTABLES_ROOT");
  }
  TableSwitch(TableSwitch const&) = delete;
  TableSwitch& operator=(TableSwitch const&) = delete;

  auto& storage() { return *table->shadow(kShared)->entryStorage(); }
  std::uint64_t stored() { return storage().entryCollMap().interface().members(); }

  StoreBench::Directory directory;
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> pool;
  Dovel::Ptr<Chip::SoftwareChip> chip;
  Dovel::Ptr<Chip::SchanChannel> channel;
  Dovel::Ptr<LoamAsicUtils::TableManager> manager;
  Dovel::Ptr<LoamAsicUtils::TableWriter> writer;
  Dovel::Ptr<Table> table;
};

}  // namespace TableBench
