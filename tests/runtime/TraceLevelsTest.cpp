#include <gmock/gmock.h>

#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/TraceChannel.h"
#include "runtime/Orlo/TraceHandle.h"
#include "tests/support/ChildProcess.h"

namespace {

using Dovel::Trace::parseRules;
using Dovel::Trace::Rule;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(TraceList, GivesEachPatternItsLevels) {
  auto const parsed = parseRules("MplsIsem*/0-3,Vault*/0,8");
  EXPECT_EQ(parsed.error, "");
  EXPECT_THAT(parsed.rules, ElementsAre(Rule{"MplsIsem*", 0x000f}, Rule{"Vault*", 0x0101}));
}

TEST(TraceList, TakesTheHighestLevelAndBlanksAroundElements) {
  EXPECT_THAT(parseRules(" A/0-15 , B/15\n").rules, ElementsAre(Rule{"A", 0xffff}, Rule{"B", 0x8000}));
  EXPECT_THAT(parseRules("A/3,5-6,9").rules, ElementsAre(Rule{"A", 0x0268}));
}

TEST(TraceList, DividesAtTheLastSlash) {
  EXPECT_THAT(parseRules("store/a*/2").rules, ElementsAre(Rule{"store/a*", 0x0004}));
}

TEST(TraceList, HasNoRulesWhereItIsBlank) {
  for (char const* list : {"", "  "}) {
    EXPECT_THAT(parseRules(list).rules, IsEmpty());
    EXPECT_EQ(parseRules(list).error, "");
  }
}

TEST(TraceList, IsRefusedWithElementAndReasonWhereItIsMalformed) {
  struct Malformed {
    char const* list;
    char const* error;
  };
  for (auto const& [list, error] :
       {Malformed{"3", "element 1 \"3\": no channel/levels stands before it"},
        Malformed{"A/0,,B/1", "element 2 \"\": it is empty"},
        Malformed{"A/0,", "element 2 \"\": it is empty"},
        Malformed{"A/0,/3", "element 2 \"/3\": no channel stands before the slash"},
        Malformed{"A/16", "element 1 \"A/16\": \"16\" is not a level of 0 to 15"},
        Malformed{"A/", "element 1 \"A/\": \"\" is not a level of 0 to 15"},
        Malformed{"A/all", "element 1 \"A/all\": \"all\" is not a level of 0 to 15"},
        Malformed{"A/2x", "element 1 \"A/2x\": \"2x\" is not a level of 0 to 15"},
        Malformed{"A/-3", "element 1 \"A/-3\": \"\" is not a level of 0 to 15"},
        Malformed{"A/99999999999", "element 1 \"A/99999999999\": \"99999999999\" is not a level of 0 to 15"},
        Malformed{"A/0,B/5-3", "element 2 \"B/5-3\": the range \"5-3\" runs downwards"}}) {
    auto const parsed = parseRules(list);
    EXPECT_EQ(parsed.error, error);
    EXPECT_THAT(parsed.rules, IsEmpty());
  }
}

TEST(TraceMask, IsOneCellForAllHandlesOfAName) {
  Orlo::TraceHandle const unit("MaskShared", false);
  auto const handler = Dovel::Platform::getDebugHandler("MaskShared", true);
  EXPECT_EQ(unit.mask(), handler.mask());
  EXPECT_NE(unit.mask(), Orlo::TraceHandle("MaskOther", false).mask());
  EXPECT_EQ(handler.name(), "MaskShared");
}

TEST(TraceMask, StaysWhereItIsWhenManyChannelsAreMade) {
  auto const* const before = Orlo::TraceHandle("MaskStable", false).mask();
  for (int i = 0; i < 1000; ++i) Orlo::TraceHandle("MaskMany" + std::to_string(i), true);
  EXPECT_EQ(Orlo::TraceHandle("MaskStable", false).mask(), before);
}

TEST(TraceMask, HasLevelZeroAloneByDefault) {
  Orlo::TraceHandle const handle("MaskDefault", false);
  EXPECT_EQ(*handle.mask(), 1);
  EXPECT_TRUE(handle.isOn(0));
  for (unsigned short const level : std::initializer_list<unsigned short>{1, 9, 15, 16, 32})
    EXPECT_FALSE(handle.isOn(level)) << level;
}

TEST(TraceMask, FollowsRulesSetAtRunTimeOnOldAndNewChannels) {
  Orlo::TraceHandle const old("RunTimeOld", false);
  Dovel::Trace::levelsIs("RunTime*", 0x8002);
  EXPECT_EQ(*old.mask(), 0x8002);
  EXPECT_EQ(*Orlo::TraceHandle("RunTimeNew", false).mask(), 0x8002);
  EXPECT_TRUE(old.isOn(15));
  EXPECT_FALSE(old.isOn(0));
}

TEST(TraceMask, FollowsTheRuleSetLast) {
  Dovel::Trace::levelsIs("LastRule*", 0x0002);
  Dovel::Trace::levelsIs("LastRuleX", 0x0004);
  EXPECT_EQ(*Orlo::TraceHandle("LastRuleX", false).mask(), 0x0004);
  EXPECT_EQ(*Orlo::TraceHandle("LastRuleY", false).mask(), 0x0002);
  // Set once more, the older rule is the last one.
  Dovel::Trace::levelsIs("LastRule*", 0x0008);
  EXPECT_EQ(*Orlo::TraceHandle("LastRuleX", false).mask(), 0x0008);
  EXPECT_EQ(*Orlo::TraceHandle("LastRuleXX", false).mask(), 0x0008);
}

TEST(TraceMask, TakesNothingOfAMalformedList) {
  Orlo::TraceHandle const handle("RefusedList", false);
  EXPECT_THAT(Dovel::Trace::rulesIs("RefusedList/0-9,Refused/x"), HasSubstr("element 2"));
  EXPECT_EQ(*handle.mask(), 1);
  EXPECT_EQ(Dovel::Trace::rulesIs("RefusedList/0-9"), "");
  EXPECT_EQ(*handle.mask(), 0x03ff);
}

TEST(TraceMask, IsListedWithItsChannel) {
  Orlo::TraceHandle("ListedUnit", false);
  Orlo::TraceHandle("ListedObject", true);
  int seen = 0;
  for (auto const& channel : Dovel::Trace::channels()) {
    if (channel.name == "ListedUnit") seen += channel.perObject ? 0 : 1;
    if (channel.name == "ListedObject") seen += channel.perObject && channel.mask == 1 ? 1 : 0;
  }
  EXPECT_EQ(seen, 2);
}

TEST(TraceHandleName, JoinsBaseAndCollection) {
  using Dovel::Util::traceHandleName;
  EXPECT_EQ(traceHandleName("Vault", "MplsIsemHwEm", false), "Vault-MplsIsemHwEm");
  EXPECT_EQ(traceHandleName("Vault", "MplsIsemHwEm", true), "Vault");
  EXPECT_EQ(traceHandleName("", "MplsIsemHwEm", false), "MplsIsemHwEm");
  EXPECT_EQ(traceHandleName("Vault", "", false), "Vault");
  EXPECT_EQ(traceHandleName("Vault", "a b,c\nd/e", false), "Vault-a_b_c_d/e");
}

class Shadow : public Dovel::Debuggable {
 public:
  using Debuggable::Debuggable;
  static ORLO_DEFAULT_TRACE_HANDLE("ShadowClass")
};

TEST(DefaultTraceHandle, IsOneForAllCallsAndNamesItsChannel) {
  EXPECT_EQ(&Shadow::_defaultTraceHandle(), &Shadow::_defaultTraceHandle());
  EXPECT_EQ(Shadow::_defaultTraceHandle().name(), "ShadowClass");
}

TEST(Debuggable, TracesToTheChannelItWasMadeWith) {
  auto handler = Dovel::Platform::getDebugHandler("DebuggableBase", true);
  EXPECT_EQ(Shadow(handler).debugHandler().mask(), handler.mask());
  EXPECT_EQ(Shadow("DebuggableBase", true).debugHandler().mask(), handler.mask());
}

void showMasks() {
  for (char const* name : {"MplsIsemHwEm", "VaultX", "Other"}) {
    std::string const line = std::to_string(*Orlo::TraceHandle(name, false).mask()) + " ";
    ::fputs(line.c_str(), stderr);
  }
}
TestSupport::ChildRole const showMasksRole("showMasks", showMasks);

TEST(TraceEnvironment, GivesChannelsTheirLevels) {
  EXPECT_EQ(TestSupport::runChild("showMasks", {{"HWTABLES_TRACE", "MplsIsem*/0-3,Vault*/0,8"}}).errors(),
            "15 257 1 ");
  EXPECT_EQ(TestSupport::runChild("showMasks").errors(), "1 1 1 ");
}

TEST(TraceEnvironment, IsToldOnceAndIgnoredWhereItIsMalformed) {
  EXPECT_EQ(TestSupport::runChild("showMasks", {{"HWTABLES_TRACE", "Vault*/0-3,Vault*/0,18"}}).errors(),
            "hwtables: HWTABLES_TRACE is malformed and has no effect: element 3 \"18\": \"18\" is not a "
            "level of 0 to "
            "15\n1 1 1 ");
}

TestSupport::ChildRole const tracesNothingRole("tracesNothing", [] {});

TEST(TraceEnvironment, IsToldWhereItIsMalformedAlsoByAProcessThatTracesNothing) {
  EXPECT_THAT(TestSupport::runChild("tracesNothing", {{"HWTABLES_TRACE", "nonsense"}}).errors(),
              testing::StartsWith("hwtables: HWTABLES_TRACE is malformed"));
}

}  // namespace
