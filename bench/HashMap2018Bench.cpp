// Look-up and filling of the local hash map, beside std::unordered_map, on keys of a label's shape.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "runtime/Orlo/HashMap2018.h"

namespace {

struct Key {
  std::uint32_t number;
  std::uint32_t hash(std::uint32_t seed) const {
    Orlo::Hash state(seed);
    state.hashMix(number);
    return state.result();
  }
  friend bool operator==(Key const&, Key const&) = default;
  friend auto operator<=>(Key const&, Key const&) = default;
};

struct Value {
  Key key;
  unsigned char bytes[36];
};

struct KeyOf {
  Key operator()(Value const& value) const { return value.key; }
};

struct StdHash {
  std::size_t operator()(Key const& key) const { return key.hash(Orlo::HashHelper::hashSeed32()); }
};

struct Ours {
  Orlo::HashMap2018<0x4E0DEB41, Key, Value, KeyOf> map;
  void insert(Value const& value) { map.insert(value); }
  Value const* lookup(Key const& key) const { return map.lookup(key); }
};

struct Theirs {
  std::unordered_map<Key, Value, StdHash> map;
  void insert(Value const& value) { map.insert_or_assign(value.key, value); }
  Value const* lookup(Key const& key) const {
    auto const found = map.find(key);
    return found == map.end() ? nullptr : &found->second;
  }
};

template <class Map>
void lookup(benchmark::State& state, std::uint32_t count) {
  Map map;
  for (std::uint32_t number = 0; number < count; ++number) map.insert({{number}, {}});
  std::vector<Key> order;
  order.reserve(4096);
  std::mt19937 random(1);
  for (int number = 0; number < 4096; ++number)
    order.push_back({static_cast<std::uint32_t>(random()) % count});
  std::size_t at = 0;
  for (auto _ : state) benchmark::DoNotOptimize(map.lookup(order[at++ & 4095]));
}

template <class Map>
void fill(benchmark::State& state, std::uint32_t count) {
  for (auto _ : state) {
    Map map;
    for (std::uint32_t number = 0; number < count; ++number) map.insert({{number}, {}});
    benchmark::DoNotOptimize(map);
  }
  state.SetItemsProcessed(state.iterations() * count);
}

template <class Map>
void registerAll(std::string const& who) {
  for (std::uint32_t count : {100U, 10000U, 100000U}) {
    std::string const tail = "/" + who + "/" + std::to_string(count);
    benchmark::RegisterBenchmark(("hashmap/hit" + tail).c_str(),
                                 [count](benchmark::State& state) { lookup<Map>(state, count); });
    benchmark::RegisterBenchmark(("hashmap/fill" + tail).c_str(),
                                 [count](benchmark::State& state) { fill<Map>(state, count); });
  }
}

[[maybe_unused]] bool const registered = [] {
  registerAll<Ours>("hwtables");
  registerAll<Theirs>("unordered_map");
  return true;
}();

}  // namespace
