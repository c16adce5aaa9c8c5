// What the machine itself takes for one load from memory whose address comes out of the load before, in as
// much memory as a table of so many records takes: the unit in which a look-up is to be counted. A hit of a
// chained table is a head and, on average, one slot and a half.
#include <benchmark/benchmark.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bench/store/Sizes.h"

namespace {

using namespace StoreBench;

constexpr std::size_t kLine = 64;
constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kBytesARecord = 56;

struct Line {
  Line const* next;
  std::byte rest[kLine - sizeof(Line const*)];
};

// All lines in one circle of random order.
class Circle {
 public:
  explicit Circle(std::size_t lines)
      : lines_(static_cast<Line*>(
            std::aligned_alloc(kHugePage, (lines * kLine + kHugePage - 1) / kHugePage * kHugePage))) {
    ::madvise(lines_.get(), lines * kLine, MADV_HUGEPAGE);
    std::vector<std::uint32_t> order(lines);
    std::iota(order.begin(), order.end(), 0u);
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    for (std::size_t at = 0; at < lines; ++at) lines_[order[at]].next = &lines_[order[(at + 1) % lines]];
  }
  Line const* start() const { return &lines_[0]; }

 private:
  struct Free {
    void operator()(Line* lines) const { std::free(lines); }
  };
  std::unique_ptr<Line[], Free> lines_;
};

void measureDependentLoad(benchmark::State& state, std::uint32_t count) {
  Circle const circle(count * kBytesARecord / kLine);
  Line const* line = circle.start();
  for (auto _ : state) {
    line = line->next;
    benchmark::DoNotOptimize(line);
  }
}

[[maybe_unused]] bool const registered = [] {
  for (std::uint32_t const count : kSizes) {
    benchmark::RegisterBenchmark(("store/hit/dependent_load/" + std::to_string(count)).c_str(),
                                 [count](benchmark::State& state) { measureDependentLoad(state, count); });
  }
  return true;
}();

}  // namespace
