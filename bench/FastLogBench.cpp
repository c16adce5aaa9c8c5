#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "runtime/FastLog/FastLog.h"

namespace {

// The file is unlinked at once: it lives as long as it is mapped.
std::unique_ptr<FastLog::TraceHandle> temporaryLog() {
  auto const path = std::filesystem::temp_directory_path() / ("hwtables-bench-" + std::to_string(::getpid()));
  auto handle = std::make_unique<FastLog::TraceHandle>(path.string());
  std::filesystem::remove(path);
  return handle;
}

void message(benchmark::State& state) {
  auto const handle = temporaryLog();
  std::string const text = "MplsIsemHwEm";
  for (auto _ : state) FASTLOG(handle.get(), "download {}", text);
}
BENCHMARK(message)->Name("fastlog/message/hwtables/1");

void disabled(benchmark::State& state) {
  std::string const text = "MplsIsemHwEm";
  for (auto _ : state) {
    FASTLOG(FastLog::defaultFastLogHandle, "download {}", text);
    benchmark::ClobberMemory();  // the handle is loaded anew each time, as at a site of its own
  }
}
BENCHMARK(disabled)->Name("fastlog/disabled/hwtables/1");

}  // namespace
