#include <gmock/gmock.h>

#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace {

TEST(Throw, CarriesTheFormattedMessageInTheNamedException) {
  try {
    DOVEL_THROW(Dovel::RangeException, "Slots", "slot {} of {}", 7, Dovel::String("five"));
    FAIL() << "nothing was thrown";
  } catch (Dovel::RuntimeException const& caught) {
    EXPECT_EQ(caught.msg(), "slot 7 of five");
    EXPECT_NE(dynamic_cast<Dovel::RangeException const*>(&caught), nullptr);
  }
}

TEST(Text, ShowsThePlaceOnlyWhenAsked) {
  EXPECT_EQ(Dovel::fmtracestr(false, "Slots", "a.cpp", "grow", 12, "to {}", 4), "to 4");
  EXPECT_EQ(Dovel::fmtracestr(true, "Slots", "a.cpp", "grow", 12, "to {}", 4), "a.cpp:12 Slots::grow to 4");
  EXPECT_EQ(Dovel::fmtracestr(true, nullptr, "a.cpp", "grow", 12, "to {}", 4), "a.cpp:12 grow to 4");
}

TEST(Assert, EndsTheProcessWithItsMessage) {
  EXPECT_DEATH(DOVEL_ASSERT(1 + 1 == 3, "Slots", "lost {} slots", 3), "^lost 3 slots\n$");
}

}  // namespace
