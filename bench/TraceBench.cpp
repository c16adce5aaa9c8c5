// What a trace costs where its level is off, which it is on every operation of the store, and where it is on.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace {

ORLO_DEFAULT_TRACE_HANDLE("TraceBench")

// One element a loop, with the loop's own cost to compare with.
void loop(benchmark::State& state) {
  for (unsigned current = 0; auto _ : state) {
    benchmark::DoNotOptimize(++current);
    benchmark::ClobberMemory();
  }
}

void disabled(benchmark::State& state) {
  auto const handler = Dovel::Platform::getDebugHandler("TraceBenchStore", true);
  for (unsigned current = 0; auto _ : state) {
    benchmark::DoNotOptimize(++current);
    DOVEL_TRACE(handler, 9, "WriterHashMap", "{} found curr:{} next:{}", "key", current, 7);
    benchmark::ClobberMemory();  // the mask has to be read anew
  }
}

void disabledOfUnit(benchmark::State& state) {
  for (unsigned current = 0; auto _ : state) {
    benchmark::DoNotOptimize(++current);
    DOVEL_TRACE(_defaultTraceHandle(), 8, "MplsIsemHwEm", "setEntry {} {}", "key", current);
    benchmark::ClobberMemory();
  }
}

void enabled(benchmark::State& state) {
  int const screen = ::dup(STDERR_FILENO);
  int const nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ::dup2(nowhere, STDERR_FILENO);
  for (unsigned current = 0; auto _ : state) {
    DOVEL_TRACE(_defaultTraceHandle(), 0, "WriterHashMap", "{} found curr:{} next:{}", "key", ++current, 7);
  }
  ::dup2(screen, STDERR_FILENO);
  ::close(nowhere);
  ::close(screen);
}

BENCHMARK(loop)->Name("trace/disabled/no_trace/1");
BENCHMARK(disabled)->Name("trace/disabled/hwtables/1");
BENCHMARK(disabledOfUnit)->Name("trace/disabled/hwtables_unit/1");
BENCHMARK(enabled)->Name("trace/enabled/hwtables/1");

}  // namespace
