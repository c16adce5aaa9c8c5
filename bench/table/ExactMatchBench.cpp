// What exact-match tables cost: an entry written and deleted, its commands made, the whole way to the
// software chip, a whole table downloaded and reconciled. Beside them the store's own write, the chip's own
// part, and a plain memcpy of the same bytes. Table: MplsIsemHwEm, 100,000 labels.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "bench/table/TableSwitch.h"

namespace {

using Table = bcm88490_a0::MplsIsemHwEm;
using Entry = Table::Entry;
using EntryKey = Table::EntryKey;
using TableBench::done;
using TableBench::kShared;

constexpr std::uint32_t kEntries = 100'000;
constexpr std::uint32_t kStale = 1'000;

// Labels in an order in which no memory is fetched ahead.
std::vector<Entry> entriesFrom(std::uint32_t first, std::uint32_t count) {
  std::vector<Entry> list;
  list.reserve(count);
  for (std::uint32_t number = 0; number < count; ++number) {
    Entry entry(EntryKey(first + static_cast<std::uint32_t>(std::uint64_t{number} * 7919 % count), 1));
    entry.inLifIs(number);
    list.push_back(entry);
  }
  return list;
}
std::vector<Entry> const& entries() {
  static std::vector<Entry> const made = entriesFrom(16, kEntries);
  return made;
}

struct Switch : TableBench::TableSwitch<Table> {
  Switch(bool writing, bool full) : TableSwitch(writing, full, ::entries()) {}

  std::uint32_t onChip() const {
    std::uint32_t count = 0;
    chip->forEachEntry(0, 64, 0, [&](auto const&) { ++count; });
    return count;
  }
};

void deleteAll(benchmark::State& state) {
  Switch with(false, true);
  for (auto _ : state)
    for (Entry const& entry : entries()) with.table->deleteEntry(kShared, entry.entryKey());
  done(state, with);
}

// From setEntry() to the chip's database, which has the key already.
void wholeWay(benchmark::State& state) {
  Switch with(true, true);
  for (auto _ : state) {
    with.setAll();
    with.writer->flush();
  }
  if (with.onChip() != kEntries) state.SkipWithError("the chip is not in line");
  done(state, with);
}
// The same into a store and a chip that have nothing.
void wholeWayNew(benchmark::State& state) {
  Switch with(true, false);
  for (auto _ : state) {
    state.PauseTiming();
    with.writer->clear(*with.table, kShared);
    with.chip->reset(0);
    state.ResumeTiming();
    with.setAll();
    with.writer->flush();
  }
  if (with.onChip() != kEntries) state.SkipWithError("the chip is not in line");
  done(state, with);
}

// The commands of a whole table made, and then run by the chip.
void download(benchmark::State& state, bool send) {
  Switch with(false, true);
  Sluice::Fapmask const faps = with.table->fapmask();
  for (auto _ : state) {
    auto const cmds = with.table->download("generation4", faps);
    if (send) with.channel->send(cmds);
  }
  if (send && with.onChip() != kEntries) state.SkipWithError("the chip is not in line");
  state.SetItemsProcessed(state.iterations() * kEntries);
}
void copyEntries(benchmark::State& state) {
  constexpr std::size_t kBytes = Entry::kDataBytes;
  std::vector<unsigned char> from(kEntries * kBytes, 1);
  std::vector<unsigned char> to(from.size());
  for (auto _ : state) {
    for (std::size_t at = 0; at < from.size(); at += kBytes) {
      std::memcpy(&to[at], &from[at], kBytes);
      benchmark::DoNotOptimize(to.data());
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}

// A chip that holds all entries and some that nobody wants any more; writing those isn't timed.
void reconcile(benchmark::State& state) {
  Switch with(true, true);
  Switch stale(false, false);
  for (Entry const& entry : entriesFrom(500'000, kStale)) stale.table->setEntry(kShared, entry);
  Sluice::Fapmask const faps = with.table->fapmask();
  for (auto _ : state) {
    state.PauseTiming();
    with.chip->dmaPoolIs(stale.pool);
    with.channel->send(stale.table->download("generation4", faps));
    with.chip->dmaPoolIs(with.pool);
    if (with.onChip() != kEntries + kStale) state.SkipWithError("nothing is stale");
    state.ResumeTiming();
    with.writer->reconcile(*with.table, faps);
  }
  if (with.onChip() != kEntries) state.SkipWithError("the chip is not in line");
  state.SetItemsProcessed(state.iterations() * (kEntries + kStale));
}

[[maybe_unused]] bool const registered = [] {
  auto const add = [](std::string const& name, auto&& run) {
    benchmark::RegisterBenchmark(("exact_match/" + name + "/" + std::to_string(kEntries)).c_str(), run);
  };
  add("set_existing/hwtables", TableBench::setExisting<Switch>);
  add("set_existing/store", TableBench::setExistingInStore<Switch>);
  add("set_new/hwtables", TableBench::setNew<Switch>);
  add("set_new/store", TableBench::setNewInStore<Switch>);
  add("delete/hwtables", deleteAll);
  add("commands/hwtables", TableBench::commands<Switch>);
  add("whole_way/hwtables", wholeWay);
  add("whole_way_new/hwtables", wholeWayNew);
  add("make_download/hwtables", [](auto& state) { download(state, false); });
  add("make_download/memcpy", copyEntries);
  add("download/hwtables", [](auto& state) { download(state, true); });
  add("download/memcpy", copyEntries);
  add("reconcile/hwtables", reconcile);
  return true;
}();

}  // namespace
