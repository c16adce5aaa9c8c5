// A table with one FAP over a software chip, in a root of stores of its own, and what benchmarks of all
// families do with it.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

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
  using Entry = typename Table::Entry;

  // Without a writer nothing is sent unless the benchmark does. The entries outlive it; a full one has them.
  TableSwitch(bool writing, bool full, std::vector<Entry> const& all) : entries(all) {
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
    if (full) setAll();
    if (writing) writer->flush();
  }
  ~TableSwitch() {
    writer = nullptr;
    table->processFapIdDel(0);
    ::unsetenv("HWTABLES_ROOT");
  }
  TableSwitch(TableSwitch const&) = delete;
  TableSwitch& operator=(TableSwitch const&) = delete;

  void setAll() {
    for (Entry const& entry : entries) table->setEntry(kShared, entry);
  }
  auto& storage() { return *table->shadow(kShared)->entryStorage(); }
  std::uint64_t stored() { return storage().entryCollMap().interface().members(); }

  std::vector<Entry> const& entries;
  StoreBench::Directory directory;
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> pool;
  Dovel::Ptr<Chip::SoftwareChip> chip;
  Dovel::Ptr<Chip::SchanChannel> channel;
  Dovel::Ptr<LoamAsicUtils::TableManager> manager;
  Dovel::Ptr<LoamAsicUtils::TableWriter> writer;
  Dovel::Ptr<Table> table;
};

template <class Switch>
void done(benchmark::State& state, Switch& with) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(with.entries.size()));
  if (with.stored() != with.entries.size()) state.SkipWithError("entries are missing");
}

template <class Switch>
void setExisting(benchmark::State& state) {
  Switch with(false, true);
  for (auto _ : state) with.setAll();
  done(state, with);
}
// What setEntry() can't do without: the same entries written to the same store.
template <class Switch>
void setExistingInStore(benchmark::State& state) {
  Switch with(false, true);
  auto& store = with.storage().entryCollMap().interface();
  for (auto _ : state)
    for (auto const& entry : with.entries) store.write(entry, true);
  done(state, with);
}

// Entries come one after the other into a table that is empty at first; emptying it isn't timed.
template <class Switch>
void setNew(benchmark::State& state) {
  Switch with(false, false);
  for (auto _ : state) {
    state.PauseTiming();
    with.table->shadow(kShared)->collCleanup();
    state.ResumeTiming();
    with.setAll();
  }
  done(state, with);
}
template <class Switch>
void setNewInStore(benchmark::State& state) {
  Switch with(false, false);
  auto& store = with.storage().entryCollMap().interface();
  for (auto _ : state) {
    state.PauseTiming();
    with.table->shadow(kShared)->collCleanup();
    state.ResumeTiming();
    for (auto const& entry : with.entries) store.write(entry, true);
  }
  done(state, with);
}

template <class Switch>
void commands(benchmark::State& state) {
  Switch with(false, true);
  std::uint64_t made = 0;
  for (auto _ : state)
    for (auto const& entry : with.entries)
      made += with.table->schanCmds(kShared, entry.entryKey(), nullptr)->size();
  if (made != static_cast<std::uint64_t>(state.iterations()) * with.entries.size())
    state.SkipWithError("commands are missing");
  done(state, with);
}

}  // namespace TableBench
