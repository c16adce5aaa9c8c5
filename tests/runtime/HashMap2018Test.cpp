#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <unordered_map>

#include "runtime/Orlo/HashMap2018.h"
#include "tests/support/Seed.h"

namespace {

constexpr std::uint32_t kTypeNumber = 0x1C0FFEE1;

struct Label {
  std::uint32_t number;
  std::uint8_t kind;

  // With `crowded` all hashes fall together, as no seed would have it.
  static inline bool crowded = false;
  std::uint32_t hash(std::uint32_t seed) const {
    Orlo::Hash state(seed);
    state.hashMix(number);
    state.hashMix(kind);
    return crowded ? state.result() & 3 : state.result();
  }
  friend bool operator==(Label const&, Label const&) = default;
  friend auto operator<=>(Label const&, Label const&) = default;
};

struct Route {
  Label label;
  std::uint64_t value;
  struct Key {
    Label operator()(Route const& route) const { return route.label; }
  };
};

using Routes = Orlo::HashMap2018<kTypeNumber, Label, Route, Route::Key>;

Label label(std::uint32_t number) { return {number, static_cast<std::uint8_t>(number % 3)}; }

std::map<std::uint32_t, std::uint64_t> content(Routes const& routes) {
  std::map<std::uint32_t, std::uint64_t> all;
  for (Route const& route : routes) EXPECT_TRUE(all.emplace(route.label.number, route.value).second);
  return all;
}

class Map : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override { Label::crowded = GetParam(); }
  void TearDown() override { Label::crowded = false; }
  Routes routes;
};

TEST_P(Map, AgreesWithAnUnorderedMapUnderRandomChanges) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  std::unordered_map<std::uint32_t, std::uint64_t> model;
  for (int step = 0; step < 20000; ++step) {
    auto const number = static_cast<std::uint32_t>(random() % 600);
    switch (random() % 3) {
      case 0:
        ASSERT_EQ(routes.insert({label(number), random()}), !model.contains(number));
        model[number] = routes.lookup(label(number))->value;
        break;
      case 1:
        ASSERT_EQ(routes.del(label(number)), model.erase(number) == 1);
        break;
      default:
        Route const* const found = routes.lookup(label(number));
        ASSERT_EQ(found != nullptr, model.contains(number));
        if (found != nullptr) {
          ASSERT_EQ(found->value, model[number]);
        }
    }
    ASSERT_EQ(routes.size(), model.size());
  }
  EXPECT_EQ(content(routes), (std::map<std::uint32_t, std::uint64_t>(model.begin(), model.end())));
}

TEST_P(Map, AWalkMeetsWhatStaysExactlyOnceWhileTheMapChanges) {
  PRINT_SEED_ON_FAILURE();
  std::mt19937_64 random(TestSupport::seed());
  for (std::uint32_t number = 0; number < 300; ++number) routes.insert({label(number), 1});
  std::map<std::uint32_t, int> met;
  std::set<std::uint32_t> deleted;
  std::uint32_t fresh = 1000;
  for (auto at = routes.iterator(); at; ++at) {
    std::uint32_t const number = at->label.number;
    EXPECT_FALSE(deleted.contains(number)) << number << " was deleted before it was met";
    ++met[number];
    for (int growth = 0; growth < 10 && fresh < 3000; ++growth) routes.insert({label(fresh++), 2});
    auto const victim = static_cast<std::uint32_t>(random() % 300);
    if (!met.contains(victim) && victim % 2 == 0 && routes.del(label(victim))) deleted.insert(victim);
    if (number % 3 == 0) routes.insert({label(number), 3});
  }
  for (auto const& [number, times] : met) EXPECT_EQ(times, 1) << number;
  for (std::uint32_t number = 0; number < 300; ++number)
    EXPECT_EQ(met.contains(number), !deleted.contains(number)) << number;
  EXPECT_FALSE(deleted.empty());
}

INSTANTIATE_TEST_SUITE_P(Hashes, Map, testing::Values(false, true),
                         [](auto const& hashes) { return hashes.param ? "Crowded" : "Spread"; });

void fill(Routes& routes, std::uint32_t count) {
  for (std::uint32_t number = 0; number < count; ++number) routes.insert({label(number), number});
}

TEST(HashMap2018, TheNodeUnderAnIteratorStaysReadableAfterItsDeletion) {
  Routes routes;
  fill(routes, 50);
  auto at = routes.iterator();
  Route const before = *at;
  routes.deleteAll();
  EXPECT_EQ(at->label, before.label);
  EXPECT_EQ(at->value, before.value);
  ++at;
  EXPECT_FALSE(at);
}

TEST(HashMap2018, AValueReplacedUnderAnIteratorLeavesItsBucketAsItWas) {
  Routes routes;
  fill(routes, 1);
  auto const at = routes.iterator();
  auto const copy = at;
  EXPECT_FALSE(routes.insert({label(0), 77}));
  EXPECT_EQ(at->value, 0U);
  EXPECT_EQ(copy->value, 0U);
  EXPECT_EQ(routes.lookup(label(0))->value, 77U);
}

// The refilled map has a smaller directory, so the walk goes on within a bucket.
TEST(HashMap2018, AWalkGoesOnThroughDeleteAllAndARefillWithoutMeetingAKeyTwice) {
  constexpr std::uint32_t kRefill = 300;
  for (int already = 1; already < 5000; already += 97) {
    Routes routes;
    fill(routes, 5000);
    auto at = routes.iterator();
    std::set<std::uint32_t> met;
    for (int step = 0; step < already; ++step, ++at) met.insert(at->label.number);
    met.insert(at->label.number);
    routes.deleteAll();
    fill(routes, kRefill);
    for (++at; at; ++at)
      EXPECT_TRUE(met.insert(at->label.number).second) << at->label.number << " after " << already;
  }
}

TEST(HashMap2018, GrowsToAHundredThousandMembers) {
  Routes routes;
  fill(routes, 100000);
  EXPECT_EQ(routes.size(), 100000U);
  for (std::uint32_t number = 0; number < 100000; ++number)
    ASSERT_EQ(routes.lookup(label(number))->value, number);
  EXPECT_EQ(routes.lookup(label(100000)), nullptr);
  EXPECT_EQ(content(routes).size(), 100000U);
}

TEST(HashMap2018, CountsNodesAndHeadersAndFreesThemAll) {
  using Header = Orlo::HashMap2018BucketHeader;
  {
    Routes routes;
    fill(routes, 1);
    auto const nodes = Routes::Node::memAllocationTracker_->liveCount();
    auto const headers = Header::memAllocationTracker_->liveCount();
    fill(routes, 1000);
    EXPECT_EQ(Routes::Node::memAllocationTracker_->liveCount(), nodes + 999);
    EXPECT_GT(Header::memAllocationTracker_->liveCount(), headers + 300);
    auto const at = routes.iterator();
  }
  EXPECT_EQ(Routes::Node::memAllocationTracker_->liveCount(), 0U);
  EXPECT_EQ(Header::memAllocationTracker_->liveCount(), 0U);
}

TEST(HashMap2018, ABucketsFirstWordLeadsBackToItsBlock) {
  using Impl = Orlo::HashMap2018VTable::Impl<Routes::Node, Label>;
  for (std::uint32_t count : {1U, 2U, 7U, 16383U}) {
    Orlo::HashMap2018BucketHeader* const header = Impl::newBucketAssemble(Impl::vtable, count);
    EXPECT_EQ(header->word >> 4 & 0x3FFF, count);
    EXPECT_EQ(header->word >> 2 & 0xFFFC, 4 * count);
    EXPECT_EQ(reinterpret_cast<std::byte*>(header) - header->blockStart(), 4 * count);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(Impl::vtable.node(header, 0)) % alignof(Routes::Node), 0U);
    Impl::bktHdrRefDec(header);
  }
  EXPECT_THROW(Impl::newBucketAssemble(Impl::vtable, 16384), std::exception);
}

TEST(HashMap2018, ComparesNodesAndKeysByTheirOrder) {
  using Impl = Orlo::HashMap2018VTable::Impl<Routes::Node, Label>;
  Routes::Node const three({label(3), 1});
  Routes::Node const other({label(3), 2});
  Label const four = label(4);
  EXPECT_EQ(Impl::compareOrLruUnlink(&three, &other, false), 0);
  EXPECT_EQ(Impl::compareOrLruUnlink(&three, &four, true), -1);
  Orlo::HashMap2018Generic map(Impl::vtable);
  map.newMemberG(&four, 1, &three);
  EXPECT_EQ(map.lookupNodeG(&four, 1), nullptr);
  EXPECT_NE(map.lookupNodeG(&three.value().label, 1), nullptr);
  EXPECT_TRUE(Impl::keyEqualsNode(&other.value().label, &three));
  EXPECT_FALSE(Impl::keyEqualsNode(&four, &three));
}

TEST(HashMap2018, HashesAKeyFromTheLocalSeedAndTheTypesNumber) {
  EXPECT_EQ(Routes::hash(label(9)), label(9).hash(Orlo::HashHelper::hashSeed32() ^ kTypeNumber));
}

TEST(HashMap2018, ANodeTakesAValueOfItsOwnKeyOnly) {
  Routes::Node node({label(3), 1});
  node.valueIs({label(3), 5});
  EXPECT_EQ(node.value().value, 5U);
}

TEST(HashMap2018DeathTest, AValueWithAnotherKeyEndsTheProcess) {
  Routes::Node node({label(3), 1});
  EXPECT_DEATH(node.valueIs({label(4), 5}), "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

}  // namespace
