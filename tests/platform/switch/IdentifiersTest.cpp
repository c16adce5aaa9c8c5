#include <gmock/gmock.h>

#include <sstream>

#include "platform/switch/LoamAsicUtils/HwShadowKey.h"
#include "platform/switch/Sluice/Fapmask.h"
#include "runtime/Dovel/Exception.h"
#include "tests/support/Message.h"

namespace {

using LoamAsicUtils::HwShadowKey;
using Sluice::FapId;
using Sluice::Fapmask;
using testing::ElementsAre;

constexpr char const* kFapIdText =
    "Sluice::FapId::value < Sluice::FapId::min or > Sluice::FapId::null not allowed";

template <class Call>
std::string rangeText(Call call) {
  return TestSupport::messageOf<Dovel::RangeException>(call);
}

Fapmask maskOf(std::initializer_list<int> faps) {
  Fapmask mask;
  for (int fap : faps) mask.fapIdIs(fap, true);
  return mask;
}

TEST(FapId, TakesZeroToNullAndRefusesTheRestWithItsText) {
  EXPECT_EQ(FapId(0), FapId::min());
  EXPECT_EQ(FapId(128), FapId::null());
  EXPECT_EQ(FapId(128).value(), 128);
  EXPECT_EQ(FapId(), FapId::null());
  EXPECT_EQ(rangeText([] { FapId(129); }), kFapIdText);
  EXPECT_EQ(rangeText([] { FapId(-1); }), kFapIdText);
  EXPECT_EQ(rangeText([] { FapId(256 + 3); }), kFapIdText);
  static_assert(std::is_same_v<Hardware::Loam::FapId, FapId>);
}

TEST(FapId, PrintsItsNumber) {
  std::ostringstream out;
  out << FapId(7);
  EXPECT_EQ(out.str(), "7");
  EXPECT_EQ(Sluice::valueToStrep(FapId::null()), "128");
}

TEST(Fapmask, TheEmptyOnesAndTheIntersectionOfDisjointOnesAreEqual) {
  EXPECT_TRUE(isEq(Fapmask(), Fapmask()));
  Fapmask mask = maskOf({1, 64, 127});
  mask &= maskOf({0, 2, 65, 126});
  EXPECT_TRUE(isEq(mask, Fapmask()));
  EXPECT_FALSE(isEq(maskOf({127}), Fapmask()));
}

TEST(Fapmask, IntersectsInPlace) {
  Fapmask mask = maskOf({1, 2, 70});
  mask &= maskOf({2, 70, 71});
  EXPECT_EQ(mask, maskOf({2, 70}));
}

TEST(Fapmask, SetsAndClearsOneMember) {
  Fapmask mask = maskOf({3, 4});
  mask.fapIdIs(3, false);
  mask.fapIdIs(9, false);
  EXPECT_EQ(mask, maskOf({4}));
  EXPECT_TRUE(mask.fapId(4));
  EXPECT_FALSE(mask.fapId(3));
}

TEST(Fapmask, WalksFromNullToNull) {
  Fapmask const mask = maskOf({0, 63, 64, 127});
  EXPECT_EQ(mask.nextFapId(FapId::null()), FapId(0));
  EXPECT_EQ(mask.nextFapId(0), FapId(63));
  EXPECT_EQ(mask.nextFapId(63), FapId(64));
  EXPECT_EQ(mask.nextFapId(5), FapId(63));
  EXPECT_EQ(mask.nextFapId(127), FapId::null());
  EXPECT_EQ(Fapmask().nextFapId(FapId::null()), FapId::null());
}

TEST(Fapmask, ListsItsMembersAndTheListsSizeIsTheirCount) {
  EXPECT_THAT(maskOf({0, 63, 64, 127}).fapIds(), ElementsAre(FapId(0), FapId(63), FapId(64), FapId(127)));
  EXPECT_EQ(maskOf({0, 63, 64, 127}).fapIds().size(), 4U);
  EXPECT_TRUE(Fapmask().fapIds().empty());
}

TEST(Fapmask, ARawMemberAboveNullRaisesTheTextOfFapId) {
  Fapmask const raw({0, 0, 2, 0});
  EXPECT_EQ(rangeText([&] { raw.nextFapId(FapId::null()); }), kFapIdText);
  EXPECT_EQ(rangeText([&] {
              for ([[maybe_unused]] FapId fap : raw.fapIds()) continue;
            }),
            kFapIdText);
  EXPECT_EQ(raw.fapIds().size(), 1U);
}

TEST(Fapmask, AListGoesOnBehindTheMember128) {
  Fapmask const raw({0, 0, 0x101, 0});
  std::vector<FapId> met;
  EXPECT_EQ(rangeText([&] {
              for (FapId fap : raw.fapIds()) met.push_back(fap);
            }),
            kFapIdText);
  EXPECT_THAT(met, ElementsAre(FapId(128)));
}

TEST(Fapmask, PrintsMembersAndRanges) {
  EXPECT_EQ(valueToStrep(Fapmask()), "{}");
  EXPECT_EQ(valueToStrep(maskOf({0, 1, 3, 5, 6, 7})), "{0,1,3,5-7}");
  EXPECT_EQ(valueToStrep(Fapmask({0, 0, 0, ~std::uint64_t{0}})), "{192-255}");
  EXPECT_EQ(fmt::format("{}", maskOf({63, 64, 65})), "{63-65}");
}

TEST(HwShadowKey, WithTheNullFapNamesTheShadowOfAllFaps) {
  HwShadowKey const shared(FapId::null(), 2);
  EXPECT_TRUE(shared.fapId().isNull());
  EXPECT_EQ(shared.toString(), "128-2");
  EXPECT_NE(shared, HwShadowKey(0, 2));
}

TEST(HwShadowKey, HoldsTheFapBeforeTheInstance) {
  HwShadowKey const key(5, 9);
  auto const* bytes = reinterpret_cast<unsigned char const*>(&key);
  EXPECT_EQ(bytes[0], 5);
  EXPECT_EQ(bytes[1], 9);
}

TEST(HwShadowKey, HasATextAnOrderAndAHashOfBothMembers) {
  EXPECT_EQ(HwShadowKey(7, 255).toString(), "7-255");
  EXPECT_LT(HwShadowKey(1, 9), HwShadowKey(2, 0));
  EXPECT_LT(HwShadowKey(1, 8), HwShadowKey(1, 9));
  EXPECT_NE(HwShadowKey(1, 2).hash(3), HwShadowKey(2, 1).hash(3));
  EXPECT_NE(HwShadowKey(1, 2).hash(3), HwShadowKey(1, 2).hash(4));
  EXPECT_EQ(fmt::format("{}", HwShadowKey(1, 2)), "1-2");
}

}  // namespace
