#include "runtime/Keel/PerUnitBitmap.h"

#include <gmock/gmock.h>

#include <sstream>

#include "runtime/Dovel/Format.h"

namespace {

using Keel::PerUnitBitmap;
using testing::ElementsAre;

TEST(PerUnitBitmap, GrowsToHoldWhatIsPutInAlsoForZeroBytes) {
  PerUnitBitmap bitmap;
  bitmap.bitsOr(0, 0, 8);
  EXPECT_THAT(bitmap.bytes(), ElementsAre(0));
  bitmap.bitsOr(16, 0, 8);
  EXPECT_THAT(bitmap.bytes(), ElementsAre(0, 0, 0));
  bitmap.bitsOr(5, 0x1ff, 9);
  EXPECT_THAT(bitmap.bytes(), ElementsAre(0xe0, 0x3f, 0));
}

TEST(PerUnitBitmap, KeepsTheBitsThatAreSetAndIgnoresThoseAboveTheCount) {
  PerUnitBitmap bitmap(std::vector<std::uint8_t>{0x81});
  bitmap.bitsOr(1, 0xff, 2);
  EXPECT_THAT(bitmap.bytes(), ElementsAre(0x87));
  bitmap.bitsOr(4, ~std::uint64_t{0}, 64);
  EXPECT_THAT(bitmap.bytes(), ElementsAre(0xf7, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x0f));
}

TEST(PerUnitBitmap, ReadsBitsPastItsEndAsClear) {
  PerUnitBitmap const bitmap(std::vector<std::uint8_t>{0x02});
  EXPECT_FALSE(bitmap.bit(0));
  EXPECT_TRUE(bitmap.bit(1));
  EXPECT_FALSE(bitmap.bit(800));
}

TEST(PerUnitBitmap, PrintsItsBytesTheHighestFirst) {
  EXPECT_EQ(PerUnitBitmap().toString(), "0x0");
  PerUnitBitmap const bitmap(std::vector<std::uint8_t>{0x01, 0xab});
  EXPECT_EQ(bitmap.toString(), "0xab01");
  EXPECT_EQ(Dovel::fmtracestr(false, "", "", "", 0, "data {}", bitmap), "data 0xab01");
  std::ostringstream stream;
  stream << bitmap;
  EXPECT_EQ(stream.str(), "0xab01");
}

TEST(PerUnitBitmap, EndsTheProcessWhenAskedForMoreBitsThanAValueHas) {
  PerUnitBitmap bitmap;
  EXPECT_DEATH(bitmap.bitsOr(0, 1, 65), "affirm failed");
}

TEST(PerUnitBitmap, DiffersFromALongerOneWithTheSameBits) {
  EXPECT_EQ(PerUnitBitmap(std::vector<std::uint8_t>{1}), PerUnitBitmap(std::vector<std::uint8_t>{1}));
  EXPECT_NE(PerUnitBitmap(std::vector<std::uint8_t>{1}), PerUnitBitmap(std::vector<std::uint8_t>{1, 0}));
}

}  // namespace
