#include "runtime/Orlo/EnumType.h"

#include <gmock/gmock.h>

namespace {

constexpr Orlo::EnumType::Enumerator kColours[] = {{"red", 0}, {"green", 7}};
constexpr Orlo::EnumType kColour("Paint", 2, "Paint::Colour", kColours);

TEST(EnumType, FindsEnumeratorsByNameAndNumber) {
  EXPECT_EQ(kColour.instance("green").value, 7U);
  EXPECT_EQ(kColour.instance(7).name, "green");
  Orlo::CharRange range("red,");
  EXPECT_EQ(kColour.sequenceToValue(range).value, 0U);
  EXPECT_EQ(range.rest(), ",");
}

TEST(EnumType, RefusesAnUnknownEnumeratorAndListsTheLegalOnes) {
  try {
    kColour.instance("blue");
    FAIL() << "nothing was thrown";
  } catch (Dovel::RangeException const& caught) {
    EXPECT_EQ(caught.msg(), "Paint::Colour has no value blue: red (0), green (7)");
  }
  EXPECT_THROW(kColour.instance(1), Dovel::RangeException);
}

TEST(EnumType, PrintsANumberThatHasNoName) {
  EXPECT_EQ(kColour.stringValue(0), "red");
  EXPECT_EQ(kColour.stringValue(5), "5");
}

}  // namespace
