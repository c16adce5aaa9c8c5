// Tables that are brought back in step with their shadows.
#include <functional>

#include "tests/LoamSharedHwTables/ExactMatchRig.h"

namespace {

using namespace bcm88490_a0;
using LoamAsicUtils::MarkSweepState;
using Sluice::SchanStatus;
using TestSupport::maskOf;
using TestSupport::numberedEntry;
using TestSupport::numberedKey;
using TestSupport::resultsOnChip;
using TestSupport::ShadowKey;
using TestSupport::shadowKeyOf;
using TestSupport::TableRig;

// Writes 20 entries to the chips; then the shadow holds the last 10 of them alone, as after a restart.
template <class T>
void leaveStale(TableRig& rig, T& table, unsigned faps = 2) {
  for (unsigned fap = 0; fap < (table.sharedShadow() ? 1 : faps); ++fap)
    for (std::uint32_t number = 0; number < 20; ++number)
      table.setEntry(shadowKeyOf(table, fap), numberedEntry<T>(number, number));
  rig.writer->flush();
  for (auto const& [key, shadow] : table.hwShadowColl()) {
    auto& typed = static_cast<typename T::Shadow&>(*shadow);
    typed.collCleanup();
    for (std::uint32_t number = 10; number < 20; ++number) typed.setEntry(numberedEntry<T>(number, number));
    rig.writer->dirtyKeysDel(typed);
  }
}

struct Reconcile : testing::Test {
  MarkSweepState state() { return table.markSweepTableSm()->state(); }
  std::uint64_t count(MarkSweepState state) { return table.hwTableStats()->markSweepCnt(state); }
  bool step() { return rig.writer->reconcileStep(table, outcome); }
  std::size_t onChip(unsigned fap = 0) { return resultsOnChip(rig, table, fap).size(); }
  // Refuses so many commands of the FAP from now on.
  void refuse(unsigned times, SchanStatus status, unsigned fap = 0) {
    for (unsigned nth = 1; nth <= times; ++nth)
      rig.chip->faults().faultIs({.fap = fap, .nth = nth, .status = status});
  }
  void loseAnswers(unsigned times) {
    for (unsigned nth = 1; nth <= times; ++nth)
      rig.chip->faults().faultIs({.kind = Chip::ChipFault::Kind::loseAnswer, .nth = nth});
  }

  TableRig rig;
  MplsIsemHwEm& table = rig.makeWithFaps<MplsIsemHwEm>();
  ShadowKey const shared = shadowKeyOf(table, 0);
  Sluice::SendOutcome outcome;
};

TEST_F(Reconcile, MarksDownloadsAndSweepsAndIsDone) {
  leaveStale(rig, table);
  EXPECT_EQ(state(), MarkSweepState::idle);
  table.scheduleMarkAndSweep(maskOf({0, 1}));
  EXPECT_EQ(state(), MarkSweepState::marking);
  EXPECT_TRUE(step());
  EXPECT_EQ(state(), MarkSweepState::downloading);
  EXPECT_EQ(onChip(), 20U);
  EXPECT_TRUE(step());
  EXPECT_EQ(state(), MarkSweepState::sweeping);
  EXPECT_EQ(onChip(), 20U);
  EXPECT_FALSE(step());
  EXPECT_EQ(state(), MarkSweepState::done);
  EXPECT_EQ(onChip(0), 10U);
  EXPECT_EQ(onChip(1), 10U);
  for (auto const each :
       {MarkSweepState::marking, MarkSweepState::downloading, MarkSweepState::sweeping, MarkSweepState::done})
    EXPECT_EQ(count(each), 1U) << stringValue(each);
  EXPECT_EQ(table.reconciled().number, 1U);
  EXPECT_EQ(table.reconciled().fapmask, maskOf({0, 1}));
  EXPECT_FALSE(step());
}

TEST_F(Reconcile, TouchesTheFapsThatAreMeantAndNoOther) {
  leaveStale(rig, table);
  rig.writer->reconcile(table, maskOf({1, 9}));
  EXPECT_EQ(onChip(0), 20U);
  EXPECT_EQ(onChip(1), 10U);
  EXPECT_EQ(table.reconciled().fapmask, maskOf({1}));
}

TEST_F(Reconcile, OfNoFapOfTheTableIsNothingToDo) {
  rig.writer->reconcile(table, maskOf({9}));
  EXPECT_EQ(state(), MarkSweepState::idle);
}

TEST_F(Reconcile, IsRunAtTheEndOfAFlushWhereItWasAskedForElsewhere) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  rig.writer->flush();
  EXPECT_EQ(state(), MarkSweepState::done);
  EXPECT_EQ(onChip(), 10U);
}

TEST_F(Reconcile, AFullBucketDoesntKeepItFromSweeping) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  step();
  refuse(2, SchanStatus::bucketFull);  // the buffer, and the first key of it
  step();
  EXPECT_EQ(state(), MarkSweepState::sweeping);
  EXPECT_EQ(rig.writer->refusals(*table.shadow(shared)).size(), 1U);
  step();
  EXPECT_EQ(state(), MarkSweepState::done);
}

TEST_F(Reconcile, AnyOtherRefusalOfAKeyIsAFailureAndNothingIsSwept) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  step();
  refuse(2, SchanStatus::badDatabase);
  EXPECT_FALSE(step());
  EXPECT_EQ(state(), MarkSweepState::failed);
  EXPECT_EQ(onChip(), 20U);
  EXPECT_EQ(count(MarkSweepState::sweeping), 0U);
  EXPECT_EQ(table.reconciled().number, 0U);
}

TEST_F(Reconcile, AnAnswerThatDoesntComeIsAFailureAndNothingIsSwept) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  step();
  loseAnswers(2);
  EXPECT_FALSE(step());
  EXPECT_EQ(state(), MarkSweepState::failed);
  EXPECT_EQ(onChip(), 20U);
}

TEST_F(Reconcile, ABufferThatFailsIsMadeUpForByItsKeys) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  step();
  loseAnswers(1);
  step();
  EXPECT_EQ(state(), MarkSweepState::sweeping);
}

TEST_F(Reconcile, AKeyThatFailsWhereThereWasNoBufferIsSentAgain) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  step();
  rig.pool->failNthIs(1);
  refuse(1, SchanStatus::badDatabase);
  step();
  EXPECT_EQ(state(), MarkSweepState::sweeping);
  step();
  EXPECT_EQ(onChip(), 10U);
}

TEST_F(Reconcile, APassThatFailsIsTriedAgainTwice) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  refuse(2, SchanStatus::badDatabase);
  step();
  EXPECT_EQ(state(), MarkSweepState::downloading);
  step();
  refuse(3, SchanStatus::badDatabase);
  step();
  EXPECT_EQ(state(), MarkSweepState::failed);
}

TEST_F(Reconcile, TriesAPassAgainOnTheFapsAloneThatFailed) {
  leaveStale(rig, table);
  refuse(1, SchanStatus::badDatabase, 1);
  auto const passes =
      rig.writer->flushPasses(table, maskOf({0, 1}), LoamAsicUtils::FlushCmdType::flushCmdMark);
  EXPECT_TRUE(passes.ok());
  EXPECT_EQ(passes.commands, 2U);
  EXPECT_EQ(passes.flushPasses, 2U);
}

TEST_F(Reconcile, ClearTellsOfAllItsTriesAndOfTheEndThatTheLastHad) {
  leaveStale(rig, table);
  refuse(1, SchanStatus::badDatabase, 1);
  auto const cleared = rig.writer->clear(table, shadowKeyOf(table, 0));
  EXPECT_TRUE(cleared.ok());
  EXPECT_EQ(cleared.commands, 2U);
  EXPECT_EQ(cleared.refused, 1U);
  EXPECT_EQ(cleared.flushPasses, 2U);
}

TEST_F(Reconcile, AChipThatIsResetInBetweenIsAFailure) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0, 1}));
  step();
  rig.chip->reset(1);
  EXPECT_FALSE(step());
  EXPECT_EQ(state(), MarkSweepState::failed);
}

TEST_F(Reconcile, AResetOfAnotherFapDoesntMatter) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  step();
  rig.chip->reset(1);
  EXPECT_TRUE(step());
}

TEST_F(Reconcile, AFapThatGoesIsAFailure) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0, 1}));
  step();
  table.processFapIdDel(1);
  EXPECT_EQ(state(), MarkSweepState::failed);
  EXPECT_FALSE(step());
}

TEST_F(Reconcile, ASecondRequestBecomesOneRunAfterTheFirst) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  step();
  table.scheduleMarkAndSweep(maskOf({1}));
  table.scheduleMarkAndSweep(maskOf({0}));
  EXPECT_EQ(state(), MarkSweepState::downloading);
  step();
  step();
  EXPECT_EQ(state(), MarkSweepState::marking);
  EXPECT_EQ(table.markSweepTableSm()->request().number, 2U);
  EXPECT_EQ(table.markSweepTableSm()->request().fapmask, maskOf({0, 1}));
  while (step()) {
  }
  EXPECT_EQ(count(MarkSweepState::done), 2U);
}

TEST_F(Reconcile, CanBeAskedForAgainAfterAFailure) {
  leaveStale(rig, table);
  table.scheduleMarkAndSweep(maskOf({0}));
  refuse(3, SchanStatus::badDatabase);
  step();
  EXPECT_EQ(state(), MarkSweepState::failed);
  rig.writer->reconcile(table, maskOf({0}));
  EXPECT_EQ(state(), MarkSweepState::done);
  EXPECT_EQ(onChip(), 10U);
}

TEST_F(Reconcile, SendsWhatTheAgentHasWrittenMeanwhile) {
  leaveStale(rig, table);
  table.setEntry(shared, numberedEntry<MplsIsemHwEm>(3, 99));
  table.deleteEntry(shared, numberedKey<MplsIsemHwEm::EntryKey>(12));
  rig.writer->reconcile(table, maskOf({0}));
  auto const results = resultsOnChip(rig, table, 0);
  EXPECT_EQ(results.size(), 10U);
  EXPECT_EQ(results.at(numberedKey<MplsIsemHwEm::EntryKey>(3)), 99U);
  EXPECT_FALSE(results.contains(numberedKey<MplsIsemHwEm::EntryKey>(12)));
}

TEST(ReconcileByReading, DeletesKeyByKeyWhatTheShadowDoesntHold) {
  TableRig rig;
  auto& table = rig.makeWithFaps<EsemFodoPortCvidEm>();
  leaveStale(rig, table);
  auto const before = rig.writer->figures(table);
  EXPECT_TRUE(rig.writer->reconcile(table, maskOf({0})).ok());
  EXPECT_EQ(resultsOnChip(rig, table, 0).size(), 10U);
  EXPECT_EQ(resultsOnChip(rig, table, 1).size(), 20U);
  EXPECT_EQ(rig.writer->figures(table).staleDeleted - before.staleDeleted, 10U);
  EXPECT_EQ(table.markSweepTableSm()->state(), MarkSweepState::done);
}

TEST(ReconcileByReading, FailsWhereTheChipCantBeRead) {
  TableRig rig;
  auto& table = rig.makeWithFaps<EsemFodoPortCvidEm>();
  leaveStale(rig, table);
  rig.chip->faults().faultIs({.kind = Chip::ChipFault::Kind::loseAnswer});
  rig.writer->reconcile(table, maskOf({0}));
  EXPECT_EQ(table.markSweepTableSm()->state(), MarkSweepState::failed);
  rig.pool->failNthIs(1);
  rig.writer->reconcile(table, maskOf({0}));
  EXPECT_EQ(table.markSweepTableSm()->state(), MarkSweepState::failed);
  EXPECT_EQ(resultsOnChip(rig, table, 0).size(), 20U);
}

// Tables of one memory differ by their ids alone, which no rule sees.
template <class A, class B>
void expectNeighboursApart() {
  TableRig rig({.faps = 1});
  auto& one = rig.makeWithFaps<A>(TestSupport::kRevision, 1);
  auto& other = rig.makeWithFaps<B>(TestSupport::kRevision, 1);
  std::function<void()> const flushes[] = {
      [&] { rig.writer->flushPasses(one, maskOf({0}), LoamAsicUtils::FlushCmdType::flushCmdMark); },
      [&] {
        rig.writer->flushPasses(other, maskOf({0}), LoamAsicUtils::FlushCmdType::flushCmdMark);
        rig.writer->flushPasses(one, maskOf({0}), LoamAsicUtils::FlushCmdType::flushCmdSweep);
      },
      [&] { rig.writer->reconcile(one, maskOf({0})); },
      [&] { rig.writer->clear(one, shadowKeyOf(one, 0)); },
  };
  for (auto const& flush : flushes) {
    rig.chip->reset(0);
    for (std::uint32_t number = 0; number < 50; ++number) {
      one.setEntry(shadowKeyOf(one, 0), numberedEntry<A>(number, number));
      other.setEntry(shadowKeyOf(other, 0), numberedEntry<B>(number, number + 1));
    }
    rig.writer->flush();
    auto const before = TestSupport::onChip(rig, other, 0);
    ASSERT_EQ(before.size(), 50U);
    flush();
    auto after = TestSupport::onChip(rig, other, 0);
    if (&flush == &flushes[1]) {
      ASSERT_EQ(after.size(), before.size());
    } else {
      EXPECT_EQ(after, before) << A::tableName() << " beside " << B::tableName();
    }
  }
}

TEST(Neighbours, OnOneMemoryAreNeverTouched) {
  expectNeighboursApart<MplsIsemHwEm, Srv6LocalSidIsemHwEm>();
  expectNeighboursApart<MplsIsemHwEm, Ip4UdpTtMpIsemHwEm>();
  expectNeighboursApart<Srv6LocalSidIsemHwEm, MplsIsemHwEm>();
  expectNeighboursApart<Srv6LocalSidIsemHwEm, Ip4UdpTtMpIsemHwEm>();
  expectNeighboursApart<Ip4UdpTtMpIsemHwEm, MplsIsemHwEm>();
  expectNeighboursApart<Ip4UdpTtMpIsemHwEm, Srv6LocalSidIsemHwEm>();
  expectNeighboursApart<InAcSVlanHwEm, InAcUntaggedHwEm>();
  expectNeighboursApart<InAcUntaggedHwEm, InAcSVlanHwEm>();
  expectNeighboursApart<VsiToVniEsemHwEm, EsemFodoPortCvidEm>();
  expectNeighboursApart<EsemFodoPortCvidEm, VsiToVniEsemHwEm>();
}

}  // namespace
