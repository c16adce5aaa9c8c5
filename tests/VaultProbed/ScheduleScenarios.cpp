#include "tests/VaultProbed/ScheduleScenarios.h"

#include <algorithm>
#include <stdexcept>

#include "VaultCore/BucketTable.h"

namespace ScheduleTests {
namespace {

using Operations = std::vector<Operation>;

// Three that no hash tells apart, one that shares their bucket until there are four of these, two that are in
// the other one of two, and one that comes last.
constexpr Key kA{1, 8};
constexpr Key kB{2, 8};
constexpr Key kC{3, 8};
constexpr Key kD{4, 10};
constexpr Key kE{5, 5};
constexpr Key kF{6, 1};
constexpr Key kG{7, 7};
// Like the first three, and the last of these.
constexpr Key kH{9, 8};
// Behind all of these in their bucket, as long as there are no more than four, each by a hash of its own.
constexpr Key kI{10, 4};
constexpr Key kJ{11, 12};

constexpr Key filler(std::uint32_t number) { return {32 + number, number * 0x9e3779b1U}; }

Operation write(Key key, std::uint32_t step) { return {Operation::write, key, key.number * 16 + step}; }
Operation direct(Key key, std::uint32_t step) { return {Operation::direct, key, key.number * 16 + step}; }
Operation remove(Key key) { return {Operation::remove, key}; }
Operation attach() { return {Operation::attach}; }

constexpr Table kSmall{Records::small, 16, true};
constexpr Table kSharing{Records::sharingWord, 16, true};
constexpr Table kGrowing{Records::large, 16, false};

// All keys that are written at any time, and one that never is.
std::vector<Key> keysOf(Scenario const& scenario) {
  std::vector<Key> keys{{8, 12}};
  for (Operations const* operations : {&scenario.before, &scenario.meanwhile})
    for (Operation const& operation : *operations)
      if (operation.key.number != 0 && std::find(keys.begin(), keys.end(), operation.key) == keys.end())
        keys.push_back(operation.key);
  std::sort(keys.begin(), keys.end(), [](Key const& left, Key const& right) {
    auto const leftHash = VaultCore::reverseBits(left.chosenHash);
    auto const rightHash = VaultCore::reverseBits(right.chosenHash);
    return leftHash < rightHash || (leftHash == rightHash && left < right);
  });
  return keys;
}

Scenario scenario(Table const& table, Operations before, Operations meanwhile, bool writerDied = false) {
  Scenario made{table, {}, std::move(before), std::move(meanwhile), writerDied};
  made.keys = keysOf(made);
  return made;
}

Scenario longer(Scenario scenario) {
  scenario.isLong = true;
  return scenario;
}

Operations written(std::vector<Key> const& keys) {
  Operations all;
  for (Key const& key : keys) all.push_back(write(key, 1));
  return all;
}

// Four records in slots from the twelfth on, and nothing below.
Operations highUp() {
  Operations all;
  for (std::uint32_t number = 0; number < 12; ++number) all.push_back(write(filler(number), 1));
  for (Key const& key : {kA, kB, kD, kE}) all.push_back(write(key, 1));
  all.push_back({Operation::mark, kB});
  for (std::uint32_t number = 0; number < 12; ++number) all.push_back(remove(filler(number)));
  return all;
}

// What is left of five records in eight buckets.
Operations sparse(std::vector<Key> const& removed) {
  Operations all = written({kA, kB, kD, kE, kF});
  for (Key const& key : removed) all.push_back(remove(key));
  return all;
}

std::vector<NamedScenario> made() {
  return {
      {"UpdateInPlace", scenario(kSmall, written({kA, kB, kD, kE}), {write(kB, 2)})},
      {"UpdateBesideTheHash", scenario(kSharing, written({kA, kB, kD, kE}), {write(kB, 2)})},
      {"TwoUpdatesInARow", scenario(kSmall, written({kA, kB, kD, kE}), {write(kB, 2), write(kA, 2)})},
      {"UpdateBetweenHashes", scenario(kSmall, written({kA, kI, kJ}), {write(kI, 2)})},
      {"ThreeUpdatesOfTwo",
       longer(scenario(kSharing, written({kA, kD}), {write(kA, 2), write(kD, 2), write(kA, 3)}))},
      {"RemovalAndReuseInTheChain", scenario(kSmall, written({kA, kB, kD, kE}), {remove(kB), write(kC, 1)})},
      {"RemovalAndReuseFartherOn", scenario(kSmall, written({kA, kB, kE}), {remove(kA), write(kH, 1)})},
      {"RemovalAndReuseElsewhere", scenario(kSmall, written({kA, kB, kD, kE}), {remove(kB), write(kF, 1)})},
      {"RemovalAndReuseBehindTheKey", scenario(kSmall, written({kA, kI}), {remove(kA), write(kJ, 1)})},
      {"RemovalAndReuseBetweenHashes", scenario(kSmall, written({kA, kI, kJ}), {remove(kI), write(kE, 1)})},
      {"RemovalAndReturn", scenario(kSharing, written({kA, kB, kD}), {remove(kB), write(kB, 2)})},
      {"RemovalOfTwoAndReuse",
       scenario(kSmall, written({kA, kB, kC, kD}), {remove(kA), remove(kB), write(kF, 1)})},
      {"RemovalOfAll", scenario(kSmall, written({kA, kE}), {remove(kA), remove(kE)})},
      {"InsertionInMidChain", scenario(kSmall, written({kA, kC, kD}), {write(kB, 1)})},
      {"InsertionBetweenHashes", scenario(kSmall, written({kA, kJ}), {write(kI, 1)})},
      {"InsertionBesideTheHash", scenario(kSharing, written({kA, kC, kD}), {write(kB, 1)})},
      {"DirectUpdate", scenario(kSmall, written({kA, kB, kD, kE}), {direct(kB, 2)})},
      {"DirectUpdateBesideTheHash",
       longer(scenario(kSharing, written({kA, kB, kD}), {direct(kB, 2), direct(kA, 2)}))},
      {"DirectInsertion", scenario(kSmall, written({kA, kC, kD}), {direct(kB, 1)})},
      {"MarkAndUpdate", scenario(kSmall, written({kA, kB}), {{Operation::mark, kA}, write(kA, 2)})},
      {"FirstRecord", scenario(kSmall, {}, {write(kA, 1)})},
      {"BucketsFrom1To2", scenario(kSmall, written({kA}), {write(kE, 1)})},
      {"BucketsFrom2To4", scenario(kSmall, written({kA, kE}), {write(kD, 1)})},
      {"BucketsFrom4To8", scenario(kSmall, written({kA, kE, kD, kB}), {write(kG, 1)})},
      {"BucketsFrom1To4", longer(scenario(kSmall, written({kA}), {write(kE, 1), write(kD, 1)}))},
      {"SlotsAndBucketsFrom2To4", scenario(kGrowing, written({kA, kE}), {write(kD, 1)})},
      {"SlotsAndBucketsFrom4To8", scenario(kGrowing, written({kA, kE, kD, kB}), {write(kG, 1)})},
      {"SlotsAndBucketsFrom2To8",
       longer(scenario(kGrowing, written({kA, kE}), {write(kD, 1), write(kB, 1), write(kG, 1)}))},
      {"FewerBuckets", scenario(kSmall, sparse({kB, kF, kE}), {remove(kD)})},
      {"FewerBucketsAndMoreAgain",
       scenario(kSmall, sparse({kB, kF, kE}), {remove(kD), write(kG, 1), write(kF, 1)})},
      {"FewerBucketsAndReturn",
       longer(scenario(kSmall, sparse({kA, kB, kF}), {remove(kD), remove(kE), write(kE, 2)}))},
      {"Compaction", scenario(kGrowing, highUp(), {remove(kE)})},
      {"CompactionAndReuse", longer(scenario(kGrowing, highUp(), {remove(kA), write(kF, 1)}))},
      {"WipeAndRefill", scenario(kSmall, written({kA, kB, kE}), {attach(), write(kA, 2)}, true)},
      {"WipeOfAGrownTable", scenario(kGrowing, written({kA, kE, kD, kB}), {attach(), write(kA, 2)}, true)},
      {"AnotherWriter", scenario(kSmall, written({kA, kB, kE}), {attach(), write(kA, 2)})},
      {"RemovalOfTheTable", scenario(kSmall, written({kA, kB, kE}), {{Operation::cleanup}})},
      {"GrowthAndRemovalOfTheTable",
       scenario(kGrowing, written({kA, kE}), {write(kD, 1), {Operation::cleanup}})},
      {"RemovalOfTheTableAndRefill",
       longer(scenario(kSmall, written({kA, kB, kE}), {{Operation::cleanup}, attach(), write(kA, 2)}))},
  };
}

}  // namespace

std::vector<NamedScenario> const& scenarios() {
  static std::vector<NamedScenario> const all = made();
  return all;
}

Scenario const& scenarioOf(std::string_view name) {
  for (NamedScenario const& each : scenarios())
    if (each.name == name) return each.scenario;
  throw std::runtime_error("no such scenario");
}

}  // namespace ScheduleTests
