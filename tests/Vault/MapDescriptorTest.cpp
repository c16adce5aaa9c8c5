#include "Vault/MapDescriptor.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>

namespace {

using Vault::MapDescriptor;
using Vault::VaultType;

TEST(MapDescriptorTest, StandsForTheWriterOfALocalTableOfThatSize) {
  MapDescriptor const made(100);
  EXPECT_EQ(made.maxSize, 100U);
  EXPECT_TRUE(made.localMem);
  EXPECT_EQ(made.vaultType(), VaultType::writer);
  EXPECT_FALSE(made.fixedSize);
}

TEST(MapDescriptorTest, TextTellsSizeTypeAndWhatIsOn) {
  MapDescriptor descriptor(100);
  EXPECT_EQ(fmt::format("{}", descriptor),
            "type:writer maxSize:100 coreDump:1 localMem shrink shrinkBuckets");
  descriptor.localMem = descriptor.shrink = descriptor.shrinkBuckets = false;
  descriptor.vaultTypeIs(VaultType::keyShadow);
  descriptor.asynchronous = true;
  EXPECT_EQ(fmt::format("{}", descriptor), "type:keyShadow maxSize:100 coreDump:1 asynchronous");
}

TEST(MapDescriptorTest, TypeThatNamesNoneIsKeptAndToldAsItsNumber) {
  MapDescriptor descriptor(1);
  descriptor.type = 7;
  EXPECT_EQ(fmt::format("{}", descriptor.vaultType()), "7");
}

struct Change {
  char const* field;
  std::function<void(MapDescriptor&)> apply;
  char const* refusal;  // null where the change is accepted
};

void PrintTo(Change const& change, std::ostream* out) { *out << change.field; }

class MapDescriptorChangeTest : public testing::TestWithParam<Change> {};

TEST_P(MapDescriptorChangeTest, IsAcceptedOnlyWhereTheClientGetsWhatItAsksFor) {
  MapDescriptor const current(100);
  MapDescriptor incoming(100);
  GetParam().apply(incoming);
  Dovel::String reason;
  bool const accepted = current.supportsReinitWith(incoming, reason);
  EXPECT_EQ(accepted, GetParam().refusal == nullptr);
  EXPECT_EQ(reason, GetParam().refusal == nullptr ? "" : GetParam().refusal);
}

INSTANTIATE_TEST_SUITE_P(
    , MapDescriptorChangeTest,
    testing::Values(
        Change{"nothing", [](MapDescriptor&) {}, nullptr},
        Change{"maxSize", [](MapDescriptor& d) { d.maxSize = 101; },
               "maxSize differs: current 100, incoming 101"},
        Change{"type", [](MapDescriptor& d) { d.vaultTypeIs(VaultType::reader); },
               "type differs: current writer, incoming reader"},
        Change{"localMem", [](MapDescriptor& d) { d.localMem = false; },
               "localMem differs: current true, incoming false"},
        Change{"useHeap", [](MapDescriptor& d) { d.useHeap = true; },
               "useHeap differs: current false, incoming true"},
        Change{"fixedSize", [](MapDescriptor& d) { d.fixedSize = true; },
               "fixedSize differs: current false, incoming true"},
        Change{"dummyHerald", [](MapDescriptor& d) { d.dummyHerald = true; },
               "dummyHerald differs: current false, incoming true"},
        Change{"keyNotifications", [](MapDescriptor& d) { d.keyNotifications = true; },
               "keyNotifications differs: current false, incoming true"},
        Change{"captureNotifyValues", [](MapDescriptor& d) { d.captureNotifyValues = true; },
               "captureNotifyValues differs: current false, incoming true"},
        Change{"prevValue", [](MapDescriptor& d) { d.prevValue = true; },
               "prevValue differs: current false, incoming true"},
        Change{"asynchronous", [](MapDescriptor& d) { d.asynchronous = true; },
               "asynchronous differs: current false, incoming true"},
        Change{"shrink", [](MapDescriptor& d) { d.shrink = false; }, nullptr},
        Change{"shrinkBuckets", [](MapDescriptor& d) { d.shrinkBuckets = false; }, nullptr},
        Change{"noPrune", [](MapDescriptor& d) { d.noPrune = true; }, nullptr},
        Change{"trackMemory", [](MapDescriptor& d) { d.trackMemory = true; }, nullptr},
        Change{"criticalTaskCheck", [](MapDescriptor& d) { d.criticalTaskCheck = true; }, nullptr},
        Change{"coreDump", [](MapDescriptor& d) { d.coreDump = Mem::CoreDump::excluded; }, nullptr}),
    [](auto const& change) { return std::string(change.param.field); });

TEST(MapDescriptorTest, DescriptorOfAnotherKindIsRefused) {
  Dovel::String reason;
  EXPECT_FALSE(MapDescriptor(100).supportsReinitWith(Mem::CollectionDescriptor(100), reason));
  EXPECT_EQ(reason, "the incoming descriptor is not one of a map");
}

}  // namespace
