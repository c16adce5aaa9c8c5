#include <gmock/gmock.h>

#include <csignal>
#include <sstream>

#include "platform/switch/Hardware/ChipType.h"
#include "platform/switch/LoamAsicUtils/HwTableKey.h"
#include "platform/switch/LoamAsicUtils/SupportedFapRevList.h"
#include "platform/switch/LoamAsicUtils/Types.h"
#include "runtime/Asic/GracefulAssert.h"
#include "runtime/Orlo/Hash.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Message.h"

namespace {

using Hardware::ChipType;
using Hardware::Loam::chipTypeToFapType;
using Hardware::Loam::FapRevision;
using Hardware::Loam::FapRevMajor;
using Hardware::Loam::FapRevMinor;
using LoamAsicUtils::HwTableKey;
using LoamAsicUtils::SupportedFapRevList;

int fapType(int chipType) { return static_cast<int>(chipTypeToFapType(static_cast<ChipType>(chipType))); }

TEST(ChipType, BelongsToAGeneration) {
  EXPECT_EQ(fapType(25), 4);
  EXPECT_EQ(fapType(28), 5);
  EXPECT_EQ(fapType(29), 4);
  std::vector<int> all;
  for (int chipType = 0; chipType <= 36; ++chipType) all.push_back(fapType(chipType));
  EXPECT_THAT(all, testing::ElementsAre(0, 1, 1, 1, 2, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4,
                                        4, 4, 4, 4, 5, 5, 4, 4, 4, 4, 4, 4, 4, 4));
}

std::string gracefulText(int chipType) {
  return TestSupport::messageOf<Asic::GracefulAssertException>([chipType] { fapType(chipType); });
}

TEST(ChipType, AnUnknownOneFailsWithItsNumber) {
  EXPECT_THAT(gracefulText(37),
              testing::MatchesRegex("AssertionError at .*ChipType\\.cpp:[0-9]+ \\(false\\) - "
                                    "Unhandled chipType 37"));
  EXPECT_THAT(gracefulText(255), testing::EndsWith("Unhandled chipType 255"));
}

TestSupport::ChildRole const unknownChipTypeRole("unknownChipType", [] { fapType(37); });

// The style is chosen by the environment before main.
TEST(ChipType, AnUnknownOneEndsTheProcessInAssertMode) {
  auto const child = TestSupport::runChild("unknownChipType", {{"GRACEFUL_ASSERT_MODE", "assert"}});
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_EQ(child.errors(), "Unhandled chipType 37\n");
}

TEST(FapRevision, OfMinorZeroHasTheShortenedMajorNameAsItsShortForm) {
  EXPECT_EQ(FapRevision(FapRevMajor::majorQumran3aB0).shortForm(), "Qumran3aB0");
  EXPECT_EQ(FapRevision::fapRevJericho3A0().shortForm(), "Jericho3A0");
  EXPECT_EQ(FapRevision(FapRevMajor::majorQumran3aB0, FapRevMinor::minorAi).shortForm(), "Qumran3aB0Ai");
}

TEST(FapRevision, TellsItsChipTypeAndVariant) {
  FapRevision const ai(FapRevMajor::majorQumran3aA0, FapRevMinor::minorAi);
  EXPECT_EQ(ai.chipType(), ChipType{25});
  EXPECT_TRUE(ai.isAiVariant());
  EXPECT_FALSE(FapRevision(FapRevMajor::majorQumran3aA0).isAiVariant());
  EXPECT_NE(FapRevision::fapRevJericho3A0().chipType(), ChipType{25});
  EXPECT_EQ(chipTypeToFapType(FapRevision::fapRevJericho3A0().chipType()), Hardware::Loam::FapType{4});
}

TEST(FapRevision, PrintsItsNames) {
  FapRevision const ai(FapRevMajor::majorQumran3aA0, FapRevMinor::minorAi);
  EXPECT_EQ(ai.revString(), "majorQumran3aA0/minorAi");
  EXPECT_EQ(stringValue(FapRevMajor::majorJericho3A0), "majorJericho3A0");
  EXPECT_EQ(stringValue(FapRevMinor::minorBase), "minorBase");
  EXPECT_EQ(stringValue(FapRevMajor{77}), "77");
  EXPECT_EQ(fmt::format("{}", ai), "Qumran3aA0Ai");
}

TEST(FapRevision, IsOrderedByMajorThenMinor) {
  FapRevision const a0(FapRevMajor::majorQumran3aA0);
  FapRevision const a0Ai(FapRevMajor::majorQumran3aA0, FapRevMinor::minorAi);
  FapRevision const b0(FapRevMajor::majorQumran3aB0);
  EXPECT_LT(a0, a0Ai);
  EXPECT_LT(a0Ai, b0);
  EXPECT_TRUE(isEq(a0, FapRevision(FapRevMajor::majorQumran3aA0)));
  EXPECT_FALSE(isEq(a0, a0Ai));
}

TEST(SupportedFapRevList, HoldsJericho3A0AndTheFourRevisionsOfChipType25InAscendingOrder) {
  std::vector<std::string> names;
  for (FapRevision revision : SupportedFapRevList::fapRevisionList())
    names.emplace_back(revision.shortForm().view());
  EXPECT_THAT(names,
              testing::ElementsAre("Jericho3A0", "Qumran3aA0", "Qumran3aA0Ai", "Qumran3aB0", "Qumran3aB0Ai"));
  EXPECT_TRUE(std::ranges::is_sorted(SupportedFapRevList::fapRevisionList()));
  EXPECT_EQ(std::ranges::count(SupportedFapRevList::fapRevisionList(), ChipType{25}, &FapRevision::chipType),
            4);
  EXPECT_EQ(&SupportedFapRevList::fapRevisionList(), &SupportedFapRevList::fapRevisionList());
}

TEST(HwTableKey, IsATableNameAndARevision) {
  FapRevision const a0(FapRevMajor::majorQumran3aA0);
  HwTableKey const key("TcamHwDirect", a0);
  EXPECT_EQ(key, HwTableKey("TcamHwDirect", a0));
  EXPECT_NE(key, HwTableKey("TcamHwDirect", FapRevision::fapRevJericho3A0()));
  EXPECT_LT(HwTableKey("SmallBbHwDirect", a0), key);
  EXPECT_EQ(fmt::format("{}", key), "TcamHwDirect/Qumran3aA0");
}

TEST(HwTableKey, HashesEveryCharacterAndBothPartsOfTheRevision) {
  FapRevision const a0(FapRevMajor::majorQumran3aA0);
  std::set<std::uint32_t> hashes;
  for (char const* name :
       {"", "T", "TcamHwDirect", "TcamHwDirecu", "tcamHwDirect", "TcamBHwDirect", "TcamHwDirect1"})
    for (FapRevision revision : SupportedFapRevList::fapRevisionList())
      hashes.insert(HwTableKey(name, revision).hash(1));
  EXPECT_EQ(hashes.size(), 7 * SupportedFapRevList::fapRevisionList().size());
  HwTableKey const key("TcamHwDirect", a0);
  EXPECT_NE(key.hash(1), key.hash(2));
  EXPECT_EQ(LoamAsicUtils::HwTableKeyHash()(key), key.hash(Orlo::HashHelper::hashSeed32() ^ 0xae8ef3e1));
}

TEST(FlushCmdType, PrintsItsFiveNamesAndAnyOtherNumber) {
  std::ostringstream out;
  for (unsigned number = 0; number < 6; ++number)
    out << static_cast<LoamAsicUtils::FlushCmdType>(number) << ' ';
  EXPECT_EQ(out.str(), "flushCmdClear flushCmdMark flushCmdSweep flushCmdReadFirst flushCmdReadSecond 5 ");
}

}  // namespace
