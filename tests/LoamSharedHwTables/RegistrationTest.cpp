#include <set>

#include "platform/switch/LoamAsicUtils/HwTableHolderContext.h"
#include "tests/LoamSharedHwTables/TableRig.h"
#include "tests/support/ChildProcess.h"

namespace {

using namespace bcm88490_a0;
using Hardware::Loam::FapRevision;
using LoamAsicUtils::HwTableHolderContext;
using LoamAsicUtils::HwTableKey;
using TestSupport::ShadowKey;
using TestSupport::TableRig;

constexpr auto kChipType = Hardware::ChipType::qumran3a;

TEST(Registration, FactoriesAreThereOnceTheLoaderHasLoaded) {
  HwTableHolderContext context;
  HwTableKey const key("MainHdrProfMapHwDirect", TestSupport::kRevision);
  EXPECT_FALSE(context.hwTableFactory("Default", key));
  LoamAsicUtils::HwTablePlugin::DefaultHwTableLoader().load(&context);
  EXPECT_TRUE(context.hwTableFactory("Default", key));
  EXPECT_EQ(context.hwTableTag("Default", key), "excludeUdpHdrMapTableWriter");
  EXPECT_EQ(context.hwTableTag("Default", {"IpkgvHwDirect", TestSupport::kRevision}), "noTag");
  EXPECT_FALSE(context.hwTableFactory("Other", key));
  EXPECT_FALSE(context.hwTableFactory("Default", {"TcamHwDirect", TestSupport::kRevision}));
  // Seven tables in the four revisions of the chip.
  EXPECT_EQ(context.hwTableFactories().size(), 28U);
}

TEST(Registration, PluginsAreKnownToTheirLoaderByName) {
  std::set<std::string> names;
  for (auto const& plugin : LoamAsicUtils::HwTablePlugin::DefaultHwTableLoader().plugins()) {
    names.emplace(plugin.plugin.view());
    EXPECT_EQ(plugin.loader, "DefaultHwTableLoader");
    EXPECT_TRUE(plugin.description.empty() && plugin.version.empty());
    EXPECT_NE(plugin.caller, nullptr);
  }
  EXPECT_TRUE(names.contains("bcm88490_a0::MainHdrProfMapHwDirectPlugin"));
  EXPECT_EQ(names.size(), 7U);
}

TEST(Registration, OnlyRevisionsOfTheChipTypeAreRegistered) {
  LoamAsicUtils::PluginHwTable<IpkgvHwDirect, kChipType> plugin("Other");
  HwTableHolderContext context;
  plugin.registerAll(context, {});
  EXPECT_TRUE(context.hwTableFactories().empty());
  plugin.registerAll(context,
                     {FapRevision::fapRevJericho3A0(), TestSupport::kRevision, TestSupport::kAiRevision});
  auto const registered = context.hwTableFactories();
  ASSERT_EQ(registered.size(), 2U);
  for (auto const& [writer, key] : registered) {
    EXPECT_EQ(writer, "Other");
    EXPECT_EQ(key.fapRevision().chipType(), kChipType);
  }
}

TEST(Registration, ASecondRegistrationOfAKeyReplacesTheFirst) {
  HwTableHolderContext context;
  HwTableKey const key("Any", TestSupport::kRevision);
  auto const none = [](auto const&, auto const&,
                       auto const&) -> Dovel::Ptr<LoamAsicUtils::HwCommonTableBase> { return nullptr; };
  context.registerHwTableFactory("Default", key, none, "first");
  context.registerHwTableFactory("Default", key, none, "second");
  EXPECT_EQ(context.hwTableTag("Default", key), "second");
  EXPECT_EQ(context.hwTableFactories().size(), 1U);
}

TEST(Registration, AFactoryGivesTheTableThatLives) {
  TableRig rig;
  auto const first = MainHdrProfMapHwDirect::factory(TestSupport::kRevision, rig.manager, nullptr);
  auto const unstored = MainHdrProfMapHwDirect::factory(TestSupport::kRevision, rig.manager, nullptr);
  EXPECT_NE(first, unstored);
  rig.manager->tableIs(first->hwTableKey(), first);
  EXPECT_EQ(MainHdrProfMapHwDirect::factory(TestSupport::kRevision, rig.manager, nullptr), first);
  EXPECT_NE(MainHdrProfMapHwDirect::factory(TestSupport::kAiRevision, rig.manager, nullptr), first);
}

template <class T>
std::pair<bool, bool> optionsOf(TableRig const& rig) {
  auto const table = T::factory(TestSupport::kRevision, rig.manager, nullptr);
  auto const& direct = static_cast<LoamAsicUtils::HwDirectTableBase const&>(*table);
  return {direct.firstOption(), direct.secondOption()};
}

TEST(Registration, FactoriesOfThreeTablesSetOptions) {
  TableRig rig;
  EXPECT_EQ(optionsOf<MainHdrProfMapHwDirect>(rig), std::pair(true, false));
  EXPECT_EQ(optionsOf<EtppbTrapForwardActionTableHwDirect>(rig), std::pair(true, false));
  EXPECT_EQ(optionsOf<IpkgvHwDirect>(rig), std::pair(true, true));
  EXPECT_EQ(optionsOf<EmAccessCmdHwDirect>(rig), std::pair(false, false));
}

TEST(Registration, ExportedFactoriesMakeTables) {
  TableRig rig;
  HwTableKey const key("TcamHwDirect", TestSupport::kRevision);
  Dovel::Ptr<TcamHwDirect> const table = tcamHwDirectFactory("TcamHwDirect", key, rig.manager);
  EXPECT_EQ(table->name(), "TcamHwDirect");
  EXPECT_EQ(table->hwTableKey(), key);
  EXPECT_TRUE(table->hwShadowColl().empty());
}

TEST(Registration, ALoaderRunsEachCallerOnceAContext) {
  struct Context {
    int runs = 0;
  };
  struct Caller final : Plugin::PluginInitCaller<Context> {
    void operator()(Context* context) override { ++context->runs; }
  } first, second;
  Plugin::Loader<Context> loader("test");
  loader.callerIs(first);
  Context context;
  loader.load(&context);
  loader.load(&context);
  EXPECT_EQ(context.runs, 1);
  auto& late = loader.callerIs(second);
  loader.load(&context);
  EXPECT_EQ(context.runs, 2);
  Context other;
  loader.load(&other);
  EXPECT_EQ(other.runs, 2);
  loader.callerDel(late);
  Context third;
  loader.load(&third);
  EXPECT_EQ(third.runs, 1);
}

void nothingIsMade() {
  for (auto const* const tracker : Orlo::AllocTrackTypeInfo::trackers())
    if (tracker->typeName().view().starts_with("bcm88490_a0::")) std::_Exit(3);
  std::_Exit(TcamHwDirect::memAllocationTracker_ == nullptr ? 0 : 4);
}
TestSupport::ChildRole const nothingIsMadeRole("nothingIsMade", nothingIsMade);

TEST(Registration, LoadingTheBundleMakesNoTableAndNoShadow) {
  EXPECT_EQ(TestSupport::runChild("nothingIsMade").exitCode, 0);
}

void useWithoutShadow() {
  auto const manager = Dovel::ptrIsImpl<LoamAsicUtils::TableManager>(nullptr, nullptr, nullptr, nullptr);
  auto const table =
      ipkgvHwDirectFactory("IpkgvHwDirect", {"IpkgvHwDirect", TestSupport::kRevision}, manager);
  try {
    table->setEntry(ShadowKey(0, 0), IpkgvHwDirect::Entry());
  } catch (Asic::GracefulAssertException const&) {
    std::_Exit(7);
  }
  std::_Exit(0);
}
TestSupport::ChildRole const useWithoutShadowRole("useWithoutShadow", useWithoutShadow);

TEST(Registration, TablesAssertInTheStyleOfTheProcess) {
  auto const aborting = TestSupport::runChild("useWithoutShadow", {{"GRACEFUL_ASSERT_MODE", "assert"}});
  EXPECT_EQ(aborting.signal, SIGABRT);
  EXPECT_NE(aborting.errors().find("does not exist in the shadow collection"), std::string::npos)
      << aborting.errors();
  for (char const* const other : {"ASSERT", "assert ", ""})
    EXPECT_EQ(TestSupport::runChild("useWithoutShadow", {{"GRACEFUL_ASSERT_MODE", other}}).exitCode, 7)
        << other;
  EXPECT_EQ(TestSupport::runChild("useWithoutShadow").exitCode, 7);
}

}  // namespace
