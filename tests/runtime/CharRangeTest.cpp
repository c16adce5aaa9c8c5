#include "runtime/Orlo/CharRange.h"

#include <gtest/gtest.h>

#include "tests/support/Message.h"

namespace {

using Orlo::CharRange;
using Orlo::ParseException;

template <class Call>
std::string failure(Call call) {
  return TestSupport::messageOf<Dovel::RuntimeException>(call);
}

TEST(CharRange, ReadsTheAttributesOfAValueInOrder) {
  CharRange range("a::Point(x:5,y:0x10)!");
  {
    range.needPre("a::Point", "x");
    Orlo::DesAttrPost const post(range);
    EXPECT_EQ(range.needNumber(), 5U);
    range.needSep("y");
    EXPECT_EQ(range.needNumber(), 16U);
  }
  EXPECT_EQ(range.rest(), "!");
}

TEST(CharRange, TakesTheLastComponentsOfATypeNameForTheWhole) {
  CharRange("Point(x:").needPre("a::b::Point", "x");
  CharRange("b::Point(x:").needPre("a::b::Point", "x");
  EXPECT_THROW(CharRange("oint(x:").needPre("a::b::Point", "x"), ParseException);
  EXPECT_THROW(CharRange("c::Point(x:").needPre("a::b::Point", "x"), ParseException);
  EXPECT_THROW(CharRange("(x:").needPre("a::b::Point", "x"), ParseException);
}

TEST(CharRange, SaysWhatItExpectedAndWhere) {
  CharRange range("Point(z:1)");
  EXPECT_EQ(failure([&] { range.needPre("a::Point", "x"); }),
            "cannot read \"Point(z:1)\": expected x at offset 6");
  EXPECT_EQ(failure([] { CharRange("").needNumber(); }), "cannot read \"\": expected a number at offset 0");
}

TEST(CharRange, FailsWhereTheEndOfAValueIsMissing) {
  CharRange range("Point(x:1");
  EXPECT_EQ(failure([&] {
              range.needPre("Point", "x");
              Orlo::DesAttrPost const post(range);
              range.needNumber();
            }),
            "cannot read \"Point(x:1\": expected ) at offset 9");
}

TEST(CharRange, TellsTheFirstErrorWhereTheEndIsMissingToo) {
  CharRange range("Point(x:q");
  EXPECT_EQ(failure([&] {
              range.needPre("Point", "x");
              Orlo::DesAttrPost const post(range);
              range.needNumber();
            }),
            "cannot read \"Point(x:q\": expected a number at offset 8");
}

TEST(CharRange, ReadsAnOnlyAttributeAlsoAsABareNumber) {
  CharRange bare("17");
  EXPECT_EQ(bare.deserializeOnlyAttr("a::Index", "value", 20), 17U);
  CharRange whole("Index(value:0x11)");
  EXPECT_EQ(whole.deserializeOnlyAttr("a::Index", "value", 20), 17U);
  EXPECT_TRUE(whole.atEnd());
  EXPECT_EQ(CharRange("20").deserializeOnlyAttr("a::Index", "value", 20), 20U);
  EXPECT_EQ(failure([] { CharRange("21").deserializeOnlyAttr("a::Index", "value", 20); }),
            "value: 21 not allowed, 0 to 20");
}

TEST(CharRange, ReadsANumberPast64BitsAsTheLargest) {
  EXPECT_EQ(CharRange("18446744073709551614").needNumber(), 18446744073709551614U);
  CharRange range("0x1ffffffffffffffff,");
  EXPECT_EQ(range.needNumber(), 18446744073709551615U);
  EXPECT_EQ(range.rest(), ",");
}

TEST(CharRange, RefusesTextThatIsLeftOver) {
  CharRange range("12 ");
  range.needNumber();
  EXPECT_EQ(failure([&] { CharRangeCheckAllDataConsumed(range); }),
            "cannot read \"12 \": expected the end of the text at offset 2");
}

}  // namespace
