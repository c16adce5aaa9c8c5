#include "runtime/Orlo/BoundedInteger.h"

#include <gmock/gmock.h>

#include "runtime/Dovel/Format.h"
#include "tests/support/Message.h"

namespace {

using namespace Orlo;

template <class Call>
std::string rangeMessage(Call call) {
  return TestSupport::messageOf<Dovel::RangeException>(call);
}

TEST(BoundedInteger, TellsItsRangeInTheDigitsOfItsStorage) {
  EXPECT_EQ(rangeMessage([] { U1(2); }), "U1::value < 0 or > 0x01 not allowed");
  EXPECT_EQ(rangeMessage([] { U2(4); }), "U2::value < 0 or > 0x03 not allowed");
  EXPECT_EQ(rangeMessage([] { U3(8); }), "U3::value < 0 or > 0x07 not allowed");
  EXPECT_EQ(rangeMessage([] { U5(32); }), "U5::value < 0 or > 0x1f not allowed");
  EXPECT_EQ(rangeMessage([] { U6(64); }), "U6::value < 0 or > 0x3f not allowed");
  EXPECT_EQ(rangeMessage([] { U7(128); }), "U7::value < 0 or > 0x7f not allowed");
  EXPECT_EQ(rangeMessage([] { U9(512); }), "U9::value < 0 or > 0x01ff not allowed");
  EXPECT_EQ(rangeMessage([] { U11(2048); }), "U11::value < 0 or > 0x07ff not allowed");
  EXPECT_EQ(rangeMessage([] { U12(4096); }), "U12::value < 0 or > 0x0fff not allowed");
  EXPECT_EQ(rangeMessage([] { U17(131072); }), "U17::value < 0 or > 0x0001ffff not allowed");
  EXPECT_EQ(rangeMessage([] { U21(2097152); }), "U21::value < 0 or > 0x001fffff not allowed");
  EXPECT_EQ(rangeMessage([] { U22(4194304); }), "U22::value < 0 or > 0x003fffff not allowed");
  EXPECT_EQ(rangeMessage([] { U39(std::uint64_t{1} << 39); }),
            "U39::value < 0 or > 0x0000007fffffffff not allowed");
  EXPECT_EQ(rangeMessage([] { U60(~std::uint64_t{0}); }),
            "U60::value < 0 or > 0x0fffffffffffffff not allowed");
}

TEST(BoundedInteger, RefusesNegativeNumbersAndNumbersThatWouldBeCut) {
  EXPECT_EQ(rangeMessage([] { U5(-1); }), "U5::value < 0 or > 0x1f not allowed");
  EXPECT_EQ(rangeMessage([] { U5(256 + 3); }), "U5::value < 0 or > 0x1f not allowed");
  EXPECT_EQ(rangeMessage([] { U20((std::uint64_t{1} << 32) + 3); }),
            "U20::value < 0 or > 0x000fffff not allowed");
}

TEST(BoundedInteger, TakesEveryValueOfItsRange) {
  for (unsigned value = 0; value < 512; ++value) EXPECT_EQ(U9(value).value(), value);
  EXPECT_EQ(U60::max().value(), 0x0fffffffffffffffU);
  EXPECT_EQ(U1::max().value(), 1);
}

TEST(BoundedInteger, TakesABoolAsZeroOrOne) {
  EXPECT_EQ(U1(true), U1(1));
  EXPECT_EQ(U20(false), U20(0));
}

TEST(BoundedInteger, IsStoredInTheSmallestIntegerThatFits) {
  EXPECT_EQ(sizeof(U7), 1U);
  EXPECT_EQ(sizeof(U9), 2U);
  EXPECT_EQ(sizeof(U17), 4U);
  EXPECT_EQ(sizeof(U39), 8U);
}

TEST(BoundedInteger, RoundTripsThroughText) {
  U20 read;
  strepToValue(valueToStrep(U20(1048575)), &read);
  EXPECT_EQ(read, U20(1048575));
  strepToValue(Dovel::String("0x1f"), &read);
  EXPECT_EQ(read, U20(31));
  EXPECT_EQ(Dovel::fmtracestr(false, "", "", "", 0, "label {}", U20(77)), "label 77");
}

TEST(BoundedInteger, RefusesTextOutOfRangeAndKeepsTheOldValue) {
  U5 kept(7);
  EXPECT_EQ(rangeMessage([&] { strepToValue(Dovel::String("32"), &kept); }),
            "U5::value < 0 or > 0x1f not allowed");
  EXPECT_EQ(rangeMessage([&] { strepToValue(Dovel::String("99999999999999999999999"), &kept); }),
            "U5::value < 0 or > 0x1f not allowed");
  EXPECT_THROW(strepToValue(Dovel::String("5 "), &kept), ParseException);
  EXPECT_THROW(strepToValue(Dovel::String("-1"), &kept), ParseException);
  EXPECT_THROW(strepToValue(Dovel::String(""), &kept), ParseException);
  EXPECT_THROW(strepToValue(Dovel::String("0x"), &kept), ParseException);
  EXPECT_EQ(kept, U5(7));
}

}  // namespace
