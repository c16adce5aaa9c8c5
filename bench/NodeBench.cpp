// Making, copying and freeing nodes, beside std::make_shared.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "runtime/Dovel/PtrIs.h"

namespace {

struct Payload {
  explicit Payload(int start) : number(start) {}
  virtual ~Payload() = default;
  int number;
  char room[44] = {};
};

struct Counted : Dovel::Tracked<Counted> {
  explicit Counted(int start) : number(start) {}
  int number;
  char room[44] = {};
};

struct MakeNode {
  auto operator()(int number) const { return Dovel::ptrIsImpl<Counted>(number); }
};
struct MakeShared {
  auto operator()(int number) const { return std::make_shared<Payload>(number); }
};

// Holds `count` objects and then frees them in the order of their making.
template <class Make>
void makeFree(benchmark::State& state, std::size_t count) {
  std::vector<decltype(Make()(0))> held(count);
  for (auto _ : state) {
    int number = 0;
    for (auto& slot : held) slot = Make()(number++);
    benchmark::DoNotOptimize(held.data());
    for (auto& slot : held) slot = nullptr;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}

template <class Make>
void copy(benchmark::State& state) {
  auto const first = Make()(1);
  for (auto _ : state) {
    auto second = first;
    benchmark::DoNotOptimize(second);
  }
}

template <class Make>
void registerAll(char const* who) {
  std::string const name = std::string("node/make_free/") + who + "/";
  for (std::size_t count : {1U, 1000U})
    benchmark::RegisterBenchmark((name + std::to_string(count)).c_str(),
                                 [count](benchmark::State& state) { makeFree<Make>(state, count); });
  benchmark::RegisterBenchmark((std::string("node/copy/") + who + "/1").c_str(), copy<Make>);
}

[[maybe_unused]] bool const registered = [] {
  registerAll<MakeNode>("hwtables");
  registerAll<MakeShared>("make_shared");
  return true;
}();

}  // namespace
