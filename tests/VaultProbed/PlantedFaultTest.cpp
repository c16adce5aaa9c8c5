// Shows that each rule of the order in which a writer stores and a reader loads is needed: without it, the
// exploration of all schedules finds a reader that is told what is not there.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/VaultProbed/ScheduleFault.h"
#include "tests/VaultProbed/ScheduleScenarios.h"

namespace ScheduleTests {
namespace {

using Edit = void (*)(FaultyRecording&);

struct PlantedFault {
  char const* name;
  char const* scenario;
  Edit edit = nullptr;
  Hoist hoist = Hoist::none;

  friend void PrintTo(PlantedFault const& fault, std::ostream* out) { *out << fault.name; }
};

// Of a record that is changed in place.
constexpr PlantedFault kInPlace[] = {
    {"LookasideSlotIsNotFilled", "UpdateInPlace",
     [](FaultyRecording& steps) { steps.dropAll(Role::lookaside); }},
    {"LookasideSlotIsFilledAfterTheOpening", "UpdateInPlace",
     [](FaultyRecording& steps) { steps.moveBefore(steps.first(Role::open), steps.first(Role::lookaside)); }},
    {"LastWordOfTheLookasideSlotComesAfterTheOpening", "UpdateBesideTheHash",
     [](FaultyRecording& steps) { steps.moveBefore(steps.first(Role::open), steps.last(Role::lookaside)); }},
    {"ValueIsNotOpened", "UpdateInPlace",
     [](FaultyRecording& steps) { steps.drop(steps.first(Role::open)); }},
    {"ValueIsOpenedAfterItsFirstWord", "UpdateInPlace",
     [](FaultyRecording& steps) { steps.moveBehind(steps.first(Role::open), steps.first(Role::contents)); }},
    {"ValueIsClosedBeforeItsLastWord", "UpdateInPlace",
     [](FaultyRecording& steps) { steps.moveBefore(steps.first(Role::close), steps.last(Role::contents)); }},
    {"ValueBesideTheHashIsClosedBeforeItsLastWord", "UpdateBesideTheHash",
     [](FaultyRecording& steps) { steps.moveBefore(steps.first(Role::close), steps.last(Role::contents)); }},
    {"ClosedSequenceIsTheFormerOne", "UpdateInPlace",
     [](FaultyRecording& steps) {
       steps.step(steps.first(Role::close)).value = steps.before(steps.first(Role::open));
     }},
    {"NextCopyToTheLookasideSlotComesBeforeTheClosing", "TwoUpdatesInARow",
     [](FaultyRecording& steps) {
       std::size_t const close = steps.first(Role::close);
       steps.moveBehind(close, steps.first(Role::lookaside, close));
     }},
};

constexpr PlantedFault kDirect[] = {
    {"PreparedValueIsNotOpened", "DirectUpdate",
     [](FaultyRecording& steps) { steps.drop(steps.first(Role::open)); }},
    {"ValueIsOpenedBeforeItIsPrepared", "DirectUpdate",
     [](FaultyRecording& steps) { steps.moveBefore(steps.first(Role::open), steps.first(Role::lookaside)); }},
    {"PreparedValueHasNoHash", "DirectUpdateBesideTheHash",
     [](FaultyRecording& steps) { steps.forgetLookasideHash(); }},
    {"PreparedValueIsClosedBeforeItsLastWord", "DirectUpdate",
     [](FaultyRecording& steps) { steps.moveBefore(steps.first(Role::close), steps.last(Role::contents)); }},
    {"PreparedRecordIsPublishedBeforeItIsOccupied", "DirectInsertion",
     [](FaultyRecording& steps) { steps.moveBefore(steps.last(Role::slotLink), steps.last(Role::close)); }},
};

constexpr PlantedFault kInsertion[] = {
    {"RecordIsPublishedBeforeItsLinkLeadsOn", "InsertionInMidChain",
     [](FaultyRecording& steps) {
       steps.moveBefore(steps.last(Role::slotLink), steps.first(Role::slotLink));
     }},
    {"RecordIsPublishedBeforeItsValue", "InsertionInMidChain",
     [](FaultyRecording& steps) {
       steps.moveBefore(steps.last(Role::slotLink), steps.last(Role::contents));
     }},
    {"RecordIsPublishedBeforeItIsOccupied", "InsertionInMidChain",
     [](FaultyRecording& steps) { steps.moveBefore(steps.last(Role::slotLink), steps.last(Role::close)); }},
    {"RecordIsPublishedWithoutItsHash", "InsertionInMidChain",
     [](FaultyRecording& steps) { steps.drop(steps.first(Role::contents)); }},
    {"RecordIsPublishedBeforeItsHash", "InsertionInMidChain",
     [](FaultyRecording& steps) {
       steps.moveBehind(steps.first(Role::contents), steps.last(Role::slotLink));
     }},
    {"FirstRecordIsPublishedBeforeItsValue", "FirstRecord",
     [](FaultyRecording& steps) { steps.moveBefore(steps.last(Role::head), steps.last(Role::contents)); }},
};

constexpr PlantedFault kRemoval[] = {
    {"LinkAwayFromARemovedSlotHasTheFormerSequence", "RemovalAndReuseInTheChain",
     [](FaultyRecording& steps) { steps.keepSequence(steps.first(Role::slotLink)); }},
    {"LinkAwayFromASlotReusedElsewhereHasTheFormerSequence", "RemovalAndReuseElsewhere",
     [](FaultyRecording& steps) { steps.keepSequence(steps.first(Role::slotLink)); }},
    {"HeadThatLedToARemovedSlotHasTheFormerSequence", "RemovalOfAll",
     [](FaultyRecording& steps) { steps.keepSequence(steps.first(Role::head)); }},
    {"SlotIsVacatedBeforeItIsUnlinked", "RemovalAndReuseInTheChain",
     [](FaultyRecording& steps) {
       steps.moveBefore(steps.first(Role::vacate), steps.first(Role::slotLink));
     }},
    {"SlotIsFreedBeforeItIsUnlinked", "RemovalAndReuseElsewhere",
     [](FaultyRecording& steps) {
       std::size_t const unlink = steps.first(Role::slotLink);
       steps.moveBehind(unlink, steps.first(Role::slotLink, unlink + 1));
     }},
    {"ReusedSlotHasItsFormerSequence", "RemovalAndReuseElsewhere",
     [](FaultyRecording& steps) {
       std::size_t const vacate = steps.first(Role::vacate);
       std::size_t const freed = steps.nextOf(vacate);
       std::size_t const led = steps.nextOf(freed);
       steps.keepSequence(freed);
       steps.keepSequence(led);
       std::size_t const open = steps.nextOf(led);
       std::size_t const close = steps.nextOf(open);
       steps.step(close).value =
           (steps.step(close).value & ~0xffffffffULL) | static_cast<std::uint32_t>(steps.before(vacate));
     }},
};

constexpr PlantedFault kBuckets[] = {
    {"CountIsPublishedBeforeTheNewHead", "BucketsFrom1To2",
     [](FaultyRecording& steps) {
       steps.moveBefore(steps.first(Role::bucketCount), steps.first(Role::head));
     }},
    {"CountIsPublishedBeforeTheLastNewHead", "BucketsFrom4To8",
     [](FaultyRecording& steps) {
       std::size_t const count = steps.first(Role::bucketCount);
       steps.moveBefore(count, steps.linkBefore(count));
     }},
    {"NewHeadIsMissing", "BucketsFrom2To4",
     [](FaultyRecording& steps) { steps.drop(steps.linkBefore(steps.first(Role::bucketCount))); }},
    {"ChainIsCutBeforeTheCountIsPublished", "BucketsFrom2To4",
     [](FaultyRecording& steps) {
       std::size_t const count = steps.first(Role::bucketCount);
       steps.moveBehind(count, steps.last(Role::slotLink));
     }},
    {"NewCountIsNotPublished", "BucketsFrom2To4",
     [](FaultyRecording& steps) { steps.drop(steps.first(Role::bucketCount)); }},
    {"SmallerCountIsPublishedBeforeTheChainsAreJoined", "FewerBuckets",
     [](FaultyRecording& steps) {
       std::size_t const count = steps.first(Role::bucketCount);
       steps.moveBefore(count, steps.first(Role::vacate) + 1);
     }},
    {"ChainsAreNotJoined", "FewerBuckets",
     [](FaultyRecording& steps) { steps.drop(steps.linkBefore(steps.first(Role::bucketCount))); }},
};

constexpr PlantedFault kSlots[] = {
    {"SlotsArePublishedBeforeTheFileGrows", "SlotsAndBucketsFrom2To4",
     [](FaultyRecording& steps) {
       steps.moveBefore(steps.first(Role::slotCount), steps.first(Role::fileSize));
     }},
    {"RecordIsPublishedBeforeItsSlotIs", "SlotsAndBucketsFrom2To4",
     [](FaultyRecording& steps) {
       std::size_t const count = steps.first(Role::slotCount);
       steps.moveBehind(count, steps.linkBefore(steps.first(Role::bucketCount)));
     }},
    {"SlotsAreNotPublished", "SlotsAndBucketsFrom2To4",
     [](FaultyRecording& steps) { steps.drop(steps.first(Role::slotCount)); }},
    {"MovedRecordIsPublishedBeforeItsValue", "Compaction",
     [](FaultyRecording& steps) {
       std::size_t const moved = steps.first(Role::close);
       std::size_t const vacated = steps.first(Role::vacate, moved);
       steps.moveBefore(steps.linkBefore(vacated), steps.first(Role::contents));
     }},
    {"MovedRecordIsPublishedBeforeItsLink", "Compaction",
     [](FaultyRecording& steps) {
       std::size_t const moved = steps.first(Role::close);
       std::size_t const vacated = steps.first(Role::vacate, moved);
       steps.moveBefore(steps.linkBefore(vacated), moved + 1);
     }},
    {"SlotIsVacatedBeforeItsMoveIsPublished", "Compaction",
     [](FaultyRecording& steps) {
       std::size_t const vacated = steps.first(Role::vacate, steps.first(Role::close));
       steps.moveBefore(vacated, steps.linkBefore(vacated));
     }},
    {"LinkToAMovedSlotHasTheFormerSequence", "Compaction",
     [](FaultyRecording& steps) {
       std::size_t const vacated = steps.first(Role::vacate, steps.first(Role::close));
       steps.keepSequence(steps.linkBefore(vacated));
     }},
};

constexpr PlantedFault kGeneration[] = {
    {"OldGenerationIsNotTakenBack", "WipeAndRefill",
     [](FaultyRecording& steps) { steps.drop(steps.first(Role::generation)); }},
    {"FilesAreRemovedBeforeTheirGenerationIs", "WipeAndRefill",
     [](FaultyRecording& steps) {
       steps.moveBehind(steps.first(Role::generation), steps.first(Role::fileName));
     }},
    {"GenerationIsPublishedBeforeItsFiles", "WipeAndRefill",
     [](FaultyRecording& steps) {
       steps.moveBefore(steps.last(Role::generation), steps.first(Role::bucketCount));
     }},
    {"NewTableHasTheOldGeneration", "WipeAndRefill",
     [](FaultyRecording& steps) {
       steps.step(steps.last(Role::generation)).value = steps.before(steps.first(Role::generation));
     }},
    {"RemovedTableKeepsItsGeneration", "RemovalOfTheTable",
     [](FaultyRecording& steps) { steps.drop(steps.first(Role::generation)); }},
};

constexpr PlantedFault kReader[] = {
    {"SequenceIsCheckedBeforeTheCopy", "UpdateInPlace", nullptr, Hoist::ownSequence},
    {"SequenceIsCheckedBeforeTheCopyOfTheLookasideSlot", "TwoUpdatesInARow", nullptr, Hoist::ownSequence},
    {"PredecessorIsCheckedBeforeTheCopy", "RemovalAndReuseInTheChain", nullptr, Hoist::predecessorSequence},
    {"PredecessorIsCheckedBeforeTheCopyOfASlotReusedElsewhere", "RemovalAndReuseElsewhere", nullptr,
     Hoist::predecessorSequence},
    {"BucketCountIsCheckedBeforeTheWalk", "BucketsFrom2To4", nullptr, Hoist::bucketCount},
    {"SlotCountIsCheckedBeforeTheWalk", "SlotsAndBucketsFrom2To4", nullptr, Hoist::slotCount},
    {"GenerationIsCheckedBeforeTheWalk", "WipeAndRefill", nullptr, Hoist::generation},
};

std::vector<PlantedFault> all() {
  std::vector<PlantedFault> faults;
  auto const add = [&](auto const& some) { faults.insert(faults.end(), std::begin(some), std::end(some)); };
  add(kInPlace), add(kDirect), add(kInsertion), add(kRemoval), add(kBuckets), add(kSlots), add(kGeneration);
  add(kReader);
  return faults;
}

class Planted : public testing::TestWithParam<PlantedFault> {};

TEST_P(Planted, FaultIsFound) {
  constexpr std::uint64_t kBudget = 20'000;
  PlantedFault const& fault = GetParam();
  Scenario const& scenario = scenarioOf(fault.scenario);
  Fault plant;
  if (fault.edit != nullptr) {
    plant = [&](Recording& recording) {
      FaultyRecording steps(recording, slotCellsOf(scenario.table.records));
      fault.edit(steps);
    };
  }
  Explorer explorer(scenario, plant, fault.hoist);
  std::string found = explorer.reproach();
  for (Program const& program : explorer.programs()) {
    if (!found.empty()) break;
    found = explorer.explore(program, kBudget).reproach;
  }
  EXPECT_NE(found, "");
  fmt::print("{}: {}\n", fault.name, found);
}

INSTANTIATE_TEST_SUITE_P(, Planted, testing::ValuesIn(all()),
                         [](auto const& made) { return std::string(made.param.name); });

}  // namespace
}  // namespace ScheduleTests
