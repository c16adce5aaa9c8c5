#include <benchmark/benchmark.h>

#include "bench/FreshProcess.h"

int main(int argumentCount, char** arguments) {
  if (Bench::playedFreshRole(argumentCount, arguments)) return 0;
  benchmark::Initialize(&argumentCount, arguments);
  if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
