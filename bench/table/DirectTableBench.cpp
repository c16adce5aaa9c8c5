// What direct tables cost: an entry written, its commands made, the whole way to the software chip, a whole
// table downloaded. Beside them the parts that can't be avoided: the store's own write, the same operations
// without the table, a plain memcpy of the same bytes. Table: SmallBbHwDirect, 16,384 rows of 64 bytes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "LoamSharedHwTables/Qumran3a/SmallBbHwDirect.h"
#include "bench/table/TableSwitch.h"

namespace {

using Table = bcm88490_a0::SmallBbHwDirect;
using Entry = Table::Entry;
using EntryKey = Table::EntryKey;

constexpr std::uint32_t kRows = 16384;
constexpr std::uint32_t kRowBytes = 64;
using TableBench::done;
using TableBench::kShared;

EntryKey keyOf(std::uint32_t row) { return {static_cast<std::uint8_t>(row / 1024), row % 1024}; }

// An entry for each row; the rows in an order in which no memory is fetched ahead.
std::vector<Entry> const& entries() {
  static std::vector<Entry> const made = [] {
    std::vector<Entry> list;
    for (std::uint32_t number = 0; number < kRows; ++number) {
      std::uint32_t const row = number * 7919 % kRows;
      Entry entry(keyOf(row));
      entry.data0Is(row);
      entry.data14Is(~row);
      list.push_back(entry);
    }
    return list;
  }();
  return made;
}

struct Switch : TableBench::TableSwitch<Table> {
  Switch(bool writing, bool full) : TableSwitch(writing, full, ::entries()) {}

  bool chipHasAll() {
    std::uint32_t row[kRowBytes / 4];
    for (Entry const& entry : entries) {
      auto const key = entry.entryKey();
      std::uint32_t const address = 0x120000 + key.arrayIndex() * 1024U + key.entryIndex();
      if (!chip->rowRead(0, 282, address, std::as_writable_bytes(std::span(row)))) return false;
      if (std::memcmp(row, entry.dataBytes().data(), kRowBytes) != 0) return false;
    }
    return true;
  }
};

// From setEntry() to the row of the chip.
void wholeWay(benchmark::State& state) {
  Switch with(true, true);
  for (auto _ : state) {
    with.setAll();
    with.writer->flush();
  }
  if (!with.chipHasAll()) state.SkipWithError("the chip is not in line");
  done(state, with);
}

// A hundred writes of each key in a row, of which one is sent.
void coalesced(benchmark::State& state) {
  Switch with(true, true);
  std::uint64_t const before = with.chip->counters(0).messages;
  for (auto _ : state) {
    for (std::uint32_t number = 0; number < 160; ++number)
      for (unsigned again = 0; again < 100; ++again) with.table->setEntry(kShared, entries()[number]);
    with.writer->flush();
  }
  state.SetItemsProcessed(state.iterations() * 16000);
  if (with.chip->counters(0).messages - before != static_cast<std::uint64_t>(state.iterations()) * 160)
    state.SkipWithError("not one command a key");
}

// The commands of a whole table made, and then run by the chip.
void download(benchmark::State& state, bool full, bool send) {
  Switch with(false, full);
  Sluice::Fapmask const faps = with.table->fapmask();
  for (auto _ : state) {
    auto const cmds = with.table->download("generation4", faps);
    if (send) with.channel->send(cmds);
  }
  if (full && send && !with.chipHasAll()) state.SkipWithError("the chip is not in line");
  state.SetItemsProcessed(state.iterations() * kRows);
}
// The rows of the table copied one by one into buffers.
void copyRows(benchmark::State& state) {
  std::vector<unsigned char> from(std::size_t{kRows} * kRowBytes, 1);
  std::vector<unsigned char> to(from.size());
  for (auto _ : state) {
    for (std::size_t at = 0; at < from.size(); at += kRowBytes) {
      std::memcpy(&to[at], &from[at], kRowBytes);
      benchmark::DoNotOptimize(to.data());
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}

[[maybe_unused]] bool const registered = [] {
  auto const add = [](std::string const& name, auto&& run) {
    benchmark::RegisterBenchmark((name + "/" + std::to_string(kRows)).c_str(), run);
  };
  add("table/set_existing/hwtables", TableBench::setExisting<Switch>);
  add("table/set_existing/store", TableBench::setExistingInStore<Switch>);
  add("table/set_new/hwtables", TableBench::setNew<Switch>);
  add("table/set_new/store", TableBench::setNewInStore<Switch>);
  add("table/commands/hwtables", TableBench::commands<Switch>);
  add("table/whole_way/hwtables", wholeWay);
  add("table/coalesced/hwtables", coalesced);
  for (bool const full : {false, true}) {
    std::string const store = full ? "full" : "empty";
    add("table/make_download_" + store + "/hwtables", [full](auto& state) { download(state, full, false); });
    add("table/make_download_" + store + "/memcpy", copyRows);
    add("table/download_" + store + "/hwtables", [full](auto& state) { download(state, full, true); });
    add("table/download_" + store + "/memcpy", copyRows);
  }
  return true;
}();

}  // namespace
