#include <gmock/gmock.h>

#include <csignal>

#include "runtime/Asic/GracefulAssert.h"
#include "tests/support/ChildProcess.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

// A unit's own static initialiser may already depend on the mode.
bool const modeWhenThisUnitStarted = Asic::mode;

void showMode() {
  ::fputs(Asic::mode ? "true" : "false", stderr);
  ::setenv("GRACEFUL_ASSERT_MODE", Asic::mode ? "" : "assert", 1);
  if (Asic::Impl::modeOfProcess() != Asic::mode || modeWhenThisUnitStarted != Asic::mode) std::_Exit(1);
}
TestSupport::ChildRole const showModeRole("showMode", showMode);

std::string modeUnder(std::map<std::string, std::string> const& environment) {
  auto const child = TestSupport::runChild("showMode", environment);
  EXPECT_EQ(child.exitCode, 0) << "the mode changed in the life of the process";
  return child.errors();
}

TEST(GracefulMode, IsTrueForExactlyAssert) {
  EXPECT_EQ(modeUnder({{"GRACEFUL_ASSERT_MODE", "assert"}}), "true");
}

TEST(GracefulMode, IsFalseForEveryOtherValue) {
  for (char const* value : {"assert2", "asser", "", "Assert", " assert", "1"}) {
    EXPECT_EQ(modeUnder({{"GRACEFUL_ASSERT_MODE", value}}), "false") << "value \"" << value << '"';
  }
}

TEST(GracefulMode, IsFalseWithoutTheVariable) { EXPECT_EQ(modeUnder({}), "false"); }

TEST(GracefulException, SaysPlaceConditionAndText) {
  try {
    Asic::throwGracefulAssertException("x", 7, "ok", "{}", "t");
    FAIL() << "nothing was thrown";
  } catch (Asic::OrderedTableException const& caught) {
    EXPECT_STREQ(caught.what(), "AssertionError at x:7 (ok) - t");
    EXPECT_NE(dynamic_cast<Asic::GracefulAssertException const*>(&caught), nullptr);
    EXPECT_NE(dynamic_cast<std::exception const*>(&caught), nullptr);
  }
}

// Holds from the n-th evaluation on.
struct Condition {
  int holdsAt;
  int evaluated = 0;
  bool holds() { return ++evaluated >= holdsAt; }
};

void check(Condition& condition, int& formatted) {
  ASIC_GRACEFUL_ASSERT(condition.holds(), "hwShadowCollHas( hwShadowKey )", "hwShadowKey {}{}", ++formatted,
                       " does not exist in the shadow collection");
}

[[noreturn]] void failAlways() { ASIC_GRACEFUL_FAIL("false", "no such chip {}", 3); }

TEST(GracefulAssert, EvaluatesAHoldingConditionOnceAndNoArguments) {
  Condition condition{.holdsAt = 1};
  int formatted = 0;
  check(condition, formatted);
  EXPECT_EQ(condition.evaluated, 1);
  EXPECT_EQ(formatted, 0);
}

TEST(GracefulAssert, ThrowsWithTheNamedConditionAfterOneEvaluation) {
  Condition condition{.holdsAt = 2};
  int formatted = 0;
  try {
    check(condition, formatted);
    FAIL() << "nothing was thrown";
  } catch (Asic::GracefulAssertException const& caught) {
    EXPECT_THAT(caught.what(), MatchesRegex("AssertionError at tests/runtime/GracefulAssertTest.cpp:[0-9]+ "
                                            "\\(hwShadowCollHas\\( hwShadowKey \\)\\) - "
                                            "hwShadowKey 1 does not exist in the shadow collection"));
  }
  EXPECT_EQ(condition.evaluated, 1);
}

TEST(GracefulAssert, ThrowsWhereNoConditionIsLeft) {
  try {
    failAlways();
  } catch (Asic::GracefulAssertException const& caught) {
    EXPECT_THAT(
        caught.what(),
        MatchesRegex(
            "AssertionError at tests/runtime/GracefulAssertTest.cpp:[0-9]+ \\(false\\) - no such chip 3"));
  }
}

void checkTwice() {
  Condition condition{.holdsAt = 2};
  int formatted = 0;
  check(condition, formatted);
  if (condition.evaluated != 2 || formatted != 0) std::_Exit(1);
}
TestSupport::ChildRole const checkTwiceRole("checkTwice", checkTwice);

void checkInVain() {
  Condition condition{.holdsAt = 3};
  int formatted = 0;
  check(condition, formatted);
}
TestSupport::ChildRole const checkInVainRole("checkInVain", checkInVain);
TestSupport::ChildRole const failAlwaysRole("failAlways", [] { failAlways(); });

std::map<std::string, std::string> const assertMode{{"GRACEFUL_ASSERT_MODE", "assert"}};

TEST(GracefulAssertInAssertMode, GoesOnWhereTheConditionHoldsTheSecondTime) {
  auto const child = TestSupport::runChild("checkTwice", assertMode);
  EXPECT_EQ(child.exitCode, 0);
  EXPECT_THAT(child.writes, IsEmpty());
}

TEST(GracefulAssertInAssertMode, EndsTheProcessWithTheMessageAlone) {
  auto const child = TestSupport::runChild("checkInVain", assertMode);
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.writes, ElementsAre("hwShadowKey 1 does not exist in the shadow collection\n"));
}

TEST(GracefulAssertInAssertMode, EndsTheProcessWhereNoConditionIsLeft) {
  auto const child = TestSupport::runChild("failAlways", assertMode);
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.writes, ElementsAre("no such chip 3\n"));
}

}  // namespace
