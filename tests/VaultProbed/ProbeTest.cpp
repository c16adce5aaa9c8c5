// The probe itself: sees every store of the store's words.
#include <gtest/gtest.h>

#include "platform/memory/SharedWord.h"

namespace {

struct CountingProbe final : Mem::Probe {
  int loads = 0;
  int stores = 0;
  void load(std::uint64_t const& /*cell*/) override { ++loads; }
  void store(std::uint64_t& cell, std::uint64_t value) override {
    ++stores;
    before = cell;
    after = value;
  }
  std::uint64_t before = 0;
  std::uint64_t after = 0;
};

TEST(Probe, SeesAccessesBeforeTheyHappenAndOnlyWhileInstalled) {
  Mem::Cell cell = 1;
  CountingProbe counting;
  Mem::probe = &counting;
  Mem::SharedWord::publishLink(cell, 2);
  EXPECT_EQ(Mem::SharedWord::readLink(cell), 2u);
  Mem::probe = nullptr;
  Mem::SharedWord::publishLink(cell, 3);
  EXPECT_EQ(counting.stores, 1);
  EXPECT_EQ(counting.loads, 1);
  EXPECT_EQ(counting.before, 1u);
  EXPECT_EQ(counting.after, 2u);
}

}  // namespace
