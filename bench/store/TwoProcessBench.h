// A table that one process overwrites without pause while another one looks its records up, each on a
// processor of its own: what a look-up costs beside such a writer, what a write costs beside such a reader,
// and what it costs alone. A table is told by its two sides:
//     struct Kind {
//       struct Writer { Writer(Directory const&, std::uint32_t count); void fill(Target const&, Record
//       const&);
//                       void filled(); void overwrite(Target const&, Record const&); };
//       struct Reader { Reader(Directory const&, std::uint32_t count); bool get(Target const&, Record&); };
//     };
// Each process opens its side itself. Times are those of the clock on the wall: who waits for a lock sleeps.
// Every look-up checks its record, and when the writer has come to rest its reader checks them all.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <exception>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/FreshProcess.h"
#include "bench/store/Directory.h"
#include "bench/store/OtherProcess.h"
#include "bench/store/Processors.h"
#include "bench/store/Sizes.h"
#include "bench/store/Workload.h"

namespace StoreBench {

// A record that is there: the number of its key, and which one it was to be put.
struct Target {
  std::uint32_t number;
  std::uint32_t index;

  Key key() const { return keyOf(number); }
};

// In the order of the writer, and in another one for the reader.
struct Targets {
  std::vector<Target> written;
  std::vector<Target> read;

  static Targets const& of(std::uint32_t count) {
    static std::map<std::uint32_t, Targets> made;
    auto const [at, isNew] = made.try_emplace(count);
    if (!isNew) return at->second;
    Workload const& workload = Workload::of(count);
    std::vector<std::uint32_t> indices(std::size_t{1} << kKeyBits);
    for (std::uint32_t index = 0; index < count; ++index) {
      indices[workload.present[index]] = index;
      at->second.written.push_back({workload.present[index], index});
    }
    for (std::uint32_t const number : workload.visited) at->second.read.push_back({number, indices[number]});
    return at->second;
  }
};

// Goes round and round the targets.
class Round {
 public:
  explicit Round(std::vector<Target> const& targets) : targets_(targets) {}

  Target const& next() {
    if (position_ == targets_.size()) {
      position_ = 0;
      ++round_;
    }
    return targets_[position_++];
  }
  std::uint32_t round() const { return round_; }
  std::uint32_t position() const { return position_; }

 private:
  std::vector<Target> const& targets_;
  std::uint32_t round_ = 1;
  std::uint32_t position_ = 0;
};

template <class Kind>
class WritingSide {
 public:
  WritingSide(Directory const& directory, std::uint32_t count)
      : writer_(directory, count), order_(Targets::of(count).written) {
    for (Target const& target : Targets::of(count).written) writer_.fill(target, recordOf(target.number, 0));
    writer_.filled();
  }
  void step() {
    Target const& target = order_.next();
    writer_.overwrite(target, recordOf(target.number, order_.round()));
  }
  void tell(OtherProcess::Shared& shared) const {
    shared.round = order_.round();
    shared.position = order_.position();
  }

 private:
  typename Kind::Writer writer_;
  Round order_;
};

template <class Kind>
class ReadingSide {
 public:
  ReadingSide(Directory const& directory, std::uint32_t count)
      : reader_(directory, count), order_(Targets::of(count).read), targets_(Targets::of(count).read) {}

  // Wrong bits are gathered: a record is of its key and whole, whatever its round.
  void step() {
    Target const& target = order_.next();
    Record out{};
    if (!reader_.get(target, out)) wrong_ |= 1;
    wrong_ |= out.row[0] ^ target.number;
    wrong_ |= out.row[3] ^ target.number ^ out.row[1];
  }
  bool isWrong() const { return wrong_ != 0; }

  // Whether all is as the writer left it.
  bool isComplete(OtherProcess::Shared const& shared) {
    Record out{};
    for (Target const& target : targets_) {
      std::uint32_t const round = shared.round - (target.index < shared.position ? 0 : 1);
      if (!reader_.get(target, out) || !(out == recordOf(target.number, round))) return false;
    }
    return true;
  }

 private:
  typename Kind::Reader reader_;
  Round order_;
  std::vector<Target> const& targets_;
  std::uint32_t wrong_ = 0;
};

using Seconds = std::chrono::duration<double>;

struct Steps {
  std::int64_t count = 0;
  Seconds span{};
};

template <class Side>
Steps stepFor(Side& side, Seconds span) {
  using Clock = std::chrono::steady_clock;
  constexpr std::uint32_t kBatch = 256;  // between two looks at the clock
  Steps steps;
  auto const begin = Clock::now();
  while (steps.span < span) {
    for (std::uint32_t step = 0; step < kBatch; ++step) side.step();
    steps.count += kBatch;
    steps.span = Clock::now() - begin;
  }
  return steps;
}

// Steps for a while, and tells the benchmark how many and how long.
template <class Side>
void measureSteps(benchmark::State& state, Side& side, OtherProcess* other) {
  stepFor(side, Seconds(0.05));
  for (auto _ : state) {
    std::uint64_t const otherBefore = other != nullptr ? other->shared().done.load() : 0;
    Steps const steps = stepFor(side, Seconds(0.4));
    state.SetIterationTime(steps.span.count());
    state.SetItemsProcessed(steps.count);
    if (other == nullptr) continue;
    std::uint64_t const otherSteps = other->shared().done - otherBefore;
    if (otherSteps == 0) return state.SkipWithError("the other process stood still");
    state.counters["other_ns"] = steps.span.count() * 1e9 / static_cast<double>(otherSteps);
  }
  auto const processors = Processors::two();
  state.counters["cpu"] = processors ? processors->measured : -1;
  if (other != nullptr) state.counters["other_cpu"] = processors->other;
}

// What the other process does until it is asked to stop.
template <class Side>
void runBeside(Side& side, OtherProcess::Shared& shared) {
  shared.phase = Phase::running;
  std::uint64_t done = 0;
  while (shared.phase.load(std::memory_order_relaxed) == Phase::running) {
    side.step();
    shared.done.store(++done, std::memory_order_relaxed);
  }
  shared.waitFor(Phase::stopping);
}

template <class Kind>
void measureReadBesideWriter(benchmark::State& state, std::uint32_t count) {
  Targets::of(count);
  Directory const directory;
  OtherProcess writer([&](OtherProcess::Shared& shared) {
    WritingSide<Kind> side(directory, count);
    runBeside(side, shared);
    side.tell(shared);
    shared.phase = Phase::stopped;
    shared.waitFor(Phase::over);
  });
  writer.waitFor(Phase::running);
  ReadingSide<Kind> side(directory, count);
  measureSteps(state, side, &writer);
  writer.shared().phase = Phase::stopping;
  writer.waitFor(Phase::stopped);
  if (side.isWrong() || !side.isComplete(writer.shared())) state.SkipWithError("a record was not as written");
}

template <class Kind>
void measureWriteBesideReader(benchmark::State& state, std::uint32_t count) {
  Targets::of(count);
  Directory const directory;
  OtherProcess reader([&](OtherProcess::Shared& shared) {
    shared.waitFor(Phase::filled);
    ReadingSide<Kind> side(directory, count);
    runBeside(side, shared);
    shared.isWrong = side.isWrong() || !side.isComplete(shared);
    shared.phase = Phase::stopped;
    shared.waitFor(Phase::over);
  });
  WritingSide<Kind> side(directory, count);
  reader.shared().phase = Phase::filled;
  reader.waitFor(Phase::running);
  measureSteps(state, side, &reader);
  side.tell(reader.shared());
  reader.shared().phase = Phase::stopping;
  reader.waitFor(Phase::stopped);
  if (reader.shared().isWrong) state.SkipWithError("a record was not as written");
}

// By the same loop and the same clock, so that the difference is what a reader adds.
template <class Kind>
void measureWriteAlone(benchmark::State& state, std::uint32_t count) {
  auto const processors = Processors::two();
  if (processors) pinTo(processors->measured);
  Directory const directory;
  WritingSide<Kind> side(directory, count);
  measureSteps(state, side, nullptr);
}

// A new process that opens the table and looks one record up: the time from its first line to the record.
template <class Kind>
void attachAndRead(std::vector<std::string> const& arguments) {
  Directory const directory = Directory::existing(arguments.at(0));
  auto const count = static_cast<std::uint32_t>(std::stoul(arguments.at(1)));
  Target const target{static_cast<std::uint32_t>(std::stoul(arguments.at(2))),
                      static_cast<std::uint32_t>(std::stoul(arguments.at(3)))};
  Record out{};
  auto const begin = std::chrono::steady_clock::now();
  typename Kind::Reader reader(directory, count);
  bool const found = reader.get(target, out);
  Seconds const span = std::chrono::steady_clock::now() - begin;
  bool const isRight = found && out == recordOf(target.number, 0);
  std::printf("%s %.9f\n", isRight ? "right" : "wrong", span.count());
}

template <class Kind>
void measureAttach(benchmark::State& state, std::string const& who, std::uint32_t count) {
  Directory const directory;
  WritingSide<Kind> const side(directory, count);
  std::size_t at = 0;
  for (auto _ : state) {
    Target const target = Targets::of(count).read[at++];
    std::string const answer =
        Bench::outputOfFresh("attach_" + who, {directory.path(), std::to_string(count),
                                               std::to_string(target.number), std::to_string(target.index)});
    if (!answer.starts_with("right ")) return state.SkipWithError("the first record was not as written");
    state.SetIterationTime(std::stod(answer.substr(6)));
  }
  state.SetItemsProcessed(state.iterations());
}

// A failure to set things up fails the benchmark and not the whole run.
template <class Measure>
void registerTwoProcess(std::string const& operation, std::string const& who, std::uint32_t count,
                        benchmark::IterationCount iterations, Measure measure) {
  std::string const name = "store/" + operation + "/" + who + "/" + std::to_string(count);
  benchmark::RegisterBenchmark(name.c_str(),
                               [measure](benchmark::State& state) {
                                 try {
                                   measure(state);
                                 } catch (std::exception const& caught) {
                                   state.SkipWithError(caught.what());
                                 }
                               })
      ->UseManualTime()
      ->Iterations(iterations);
}

template <class Kind>
bool registerKind(std::string const& who) {
  for (std::uint32_t const count : kSizes) {
    registerTwoProcess("read_beside_writer", who, count, 1,
                       [=](benchmark::State& state) { measureReadBesideWriter<Kind>(state, count); });
    registerTwoProcess("write_beside_reader", who, count, 1,
                       [=](benchmark::State& state) { measureWriteBesideReader<Kind>(state, count); });
    registerTwoProcess("write_alone", who, count, 1,
                       [=](benchmark::State& state) { measureWriteAlone<Kind>(state, count); });
    registerTwoProcess("attach_and_read", who, count, 20,
                       [=](benchmark::State& state) { measureAttach<Kind>(state, who, count); });
  }
  Bench::FreshRole("attach_" + who, attachAndRead<Kind>);
  return true;
}

}  // namespace StoreBench
