// The measured loops, one for all tables. A table is told by an adapter:
//     Table(Directory const&, std::uint32_t count)   opens an empty table that `count` records will come to
//     void put(Record const&)                        of a new key
//     void overwrite(Record const&)                  of a key that is there
//     bool get(Key const&, Record&)                  copies the record out where it is found
//     bool erase(Key const&)
//     void forEach(visit)                            visit(Record const&)
//     void settle()                                  ends what is still open, so that others see it
//     std::uint32_t size()
// Of each operation the time of a whole pass over all keys is taken; the 99th percentile of single ones comes
// from a pass of its own. Where a pass didn't do what it should have, the benchmark fails.
#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

#include "bench/store/Directory.h"
#include "bench/store/LatencySamples.h"
#include "bench/store/Sizes.h"
#include "bench/store/Workload.h"

namespace StoreBench {

template <class Table>
struct Fixture {
  Directory directory;
  Table table;

  Fixture(std::uint32_t count, bool full) : table(directory, count) {
    if (!full) return;
    for (std::uint32_t const number : Workload::of(count).present) table.put(recordOf(number, 0));
    table.settle();
  }

  // How many of the numbers lead to the record of that round.
  std::size_t matching(std::vector<std::uint32_t> const& numbers, std::uint32_t round) {
    std::size_t matches = 0;
    Record out;
    for (std::uint32_t const number : numbers)
      if (table.get(keyOf(number), out) && out == recordOf(number, round)) ++matches;
    table.settle();
    return matches;
  }
};

// An operation says what it starts from, which keys it visits, and what a pass must have done: how many steps
// returned true, and how many records of which round the table has then.
struct Insert {
  static constexpr char kName[] = "insert";
  static constexpr bool kStartsFull = false, kRepeats = false, kSucceeds = true, kLeavesFull = true;
  static constexpr std::uint32_t kRoundAfter = 0;
  static auto const& numbers(Workload const& workload) { return workload.present; }
  static bool step(auto& table, std::uint32_t number) {
    table.put(recordOf(number, 0));
    return true;
  }
};

struct Overwrite {
  static constexpr char kName[] = "overwrite";
  static constexpr bool kStartsFull = true, kRepeats = true, kSucceeds = true, kLeavesFull = true;
  static constexpr std::uint32_t kRoundAfter = 1;
  static auto const& numbers(Workload const& workload) { return workload.visited; }
  static bool step(auto& table, std::uint32_t number) {
    table.overwrite(recordOf(number, 1));
    return true;
  }
};

struct Hit {
  static constexpr char kName[] = "hit";
  static constexpr bool kStartsFull = true, kRepeats = true, kSucceeds = true, kLeavesFull = true;
  static constexpr std::uint32_t kRoundAfter = 0;
  static auto const& numbers(Workload const& workload) { return workload.visited; }
  static bool step(auto& table, std::uint32_t number) {
    Record out;
    bool const found = table.get(keyOf(number), out);
    benchmark::DoNotOptimize(out);
    return found;
  }
};

struct Miss : Hit {
  static constexpr char kName[] = "miss";
  static constexpr bool kSucceeds = false;
  static auto const& numbers(Workload const& workload) { return workload.absent; }
};

struct Remove {
  static constexpr char kName[] = "remove";
  static constexpr bool kStartsFull = true, kRepeats = false, kSucceeds = true, kLeavesFull = false;
  static constexpr std::uint32_t kRoundAfter = 0;
  static auto const& numbers(Workload const& workload) { return workload.visited; }
  static bool step(auto& table, std::uint32_t number) { return table.erase(keyOf(number)); }
};

// Of the processor: nothing here waits, and what else the machine has to do shall not count.
inline double processorSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <class Call>
double secondsOf(Call&& call) {
  double const begin = processorSeconds();
  call();
  return processorSeconds() - begin;
}

template <class Table, class Operation>
bool didItsWork(Fixture<Table>& fixture, std::uint32_t count, std::uint64_t succeeded, std::uint64_t passes) {
  std::uint32_t const left = Operation::kLeavesFull ? count : 0;
  return succeeded == (Operation::kSucceeds ? passes * count : 0) && fixture.table.size() == left &&
         fixture.matching(Workload::of(count).present, Operation::kRoundAfter) == left;
}

// At least so many single operations are timed.
constexpr std::uint32_t kSamples = 50'000;

template <class Table, class Operation>
void measure(benchmark::State& state, std::uint32_t count) {
  auto const& numbers = Operation::numbers(Workload::of(count));
  std::unique_ptr<Fixture<Table>> fixture;
  auto const prepare = [&] {
    if (fixture && Operation::kRepeats) return;
    fixture.reset();
    fixture = std::make_unique<Fixture<Table>>(count, Operation::kStartsFull);
  };

  std::uint64_t succeeded = 0;
  std::uint64_t passes = 0;
  for (auto _ : state) {
    prepare();
    state.SetIterationTime(secondsOf([&] {
      for (std::uint32_t const number : numbers) succeeded += Operation::step(fixture->table, number);
      fixture->table.settle();
    }));
    ++passes;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(passes * count));

  LatencySamples samples(kSamples);
  for (std::uint32_t sampled = 0; sampled < kSamples; sampled += count, ++passes) {
    prepare();
    for (std::uint32_t const number : numbers)
      samples.take([&] { succeeded += Operation::step(fixture->table, number); });
    fixture->table.settle();
  }
  state.counters["p99_ns"] = samples.percentile(0.99);
  if (!Operation::kStartsFull)
    state.counters["bytes_per_record"] = static_cast<double>(fixture->directory.bytes()) / count;
  if (!didItsWork<Table, Operation>(*fixture, count, succeeded, passes))
    state.SkipWithError("the table is not as this operation leaves it");
}

template <class Table>
void measureIterate(benchmark::State& state, std::uint32_t count) {
  Fixture<Table> fixture(count, true);
  std::uint64_t visited = 0;
  std::uint64_t sum = 0;
  auto const visit = [&](Record const& record) {
    Record out = record;
    benchmark::DoNotOptimize(out);
    sum += out.row[0];
    ++visited;
  };
  std::uint64_t passes = 0;
  for (auto _ : state) {
    state.SetIterationTime(secondsOf([&] { fixture.table.forEach(visit); }));
    ++passes;
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(passes * count));

  LatencySamples samples(count);
  std::uint64_t last = LatencySamples::now();
  fixture.table.forEach([&](Record const& record) {
    visit(record);
    std::uint64_t const now = LatencySamples::now();
    samples.add(now - last);
    last = now;
  });
  state.counters["p99_ns"] = samples.percentile(0.99);

  std::uint64_t expected = 0;
  for (std::uint32_t const number : Workload::of(count).present) expected += number;
  if (visited != (passes + 1) * count || sum != (passes + 1) * expected)
    state.SkipWithError("the iteration did not visit each record once");
}

// Passes are counted, not chosen by time: what a pass costs differs by a factor of 50 between the tables, and
// each needs a table filled anew.
inline benchmark::IterationCount passes(std::uint32_t count, bool repeats) {
  return std::max(1u, (repeats ? 1'000'000u : 200'000u) / count);
}

template <class Table, class Operation>
void registerOperation(std::string const& who, std::uint32_t count) {
  std::string const name = std::string("store/") + Operation::kName + "/" + who + "/" + std::to_string(count);
  benchmark::RegisterBenchmark(name.c_str(),
                               [count](benchmark::State& state) { measure<Table, Operation>(state, count); })
      ->UseManualTime()
      ->Iterations(passes(count, Operation::kRepeats));
}

template <class Table>
bool registerTable(std::string const& who) {
  for (std::uint32_t const count : kSizes) {
    registerOperation<Table, Insert>(who, count);
    registerOperation<Table, Overwrite>(who, count);
    registerOperation<Table, Hit>(who, count);
    registerOperation<Table, Miss>(who, count);
    std::string const name = "store/iterate/" + who + "/" + std::to_string(count);
    benchmark::RegisterBenchmark(name.c_str(),
                                 [count](benchmark::State& state) { measureIterate<Table>(state, count); })
        ->UseManualTime()
        ->Iterations(passes(count, true));
    registerOperation<Table, Remove>(who, count);
  }
  return true;
}

}  // namespace StoreBench
