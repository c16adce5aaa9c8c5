// What every exact-match table owes its users.
#include "platform/switch/LoamAsicUtils/HwFlushTableHolderContext.h"
#include "tests/LoamSharedHwTables/ExactMatchRig.h"
#include "tests/support/Message.h"

namespace {

using LoamAsicUtils::emCommandDelete;
using LoamAsicUtils::emCommandWrite;
using LoamAsicUtils::FlushCmdType;
using TestSupport::countOf;
using TestSupport::KeyListener;
using TestSupport::maskOf;
using TestSupport::messageOf;
using TestSupport::numberedEntry;
using TestSupport::numberedKey;
using TestSupport::onChip;
using TestSupport::resultsOnChip;
using TestSupport::ShadowKey;
using TestSupport::shadowKeyOf;
using TestSupport::TableRig;

template <class T>
class ExactMatchContract : public testing::Test {
 protected:
  using Entry = typename T::Entry;
  using Shadow = typename T::Shadow;
  using WriteCommand = typename T::WriteCommand;

  auto key(std::uint64_t number) const { return numberedKey<typename T::EntryKey>(number); }
  Entry entry(std::uint64_t number, std::uint32_t result) const { return numberedEntry<T>(number, result); }
  ShadowKey at(unsigned fap = 0) const { return shadowKeyOf(table_, fap); }
  Shadow& shadow(unsigned fap = 0) { return *table_.shadow(at(fap)); }
  auto stored(std::uint64_t number) {
    bool found = false;
    Entry const& entry = shadow().entryStorage()->entryColl(key(number), found);
    return found ? std::optional<Entry>(entry) : std::nullopt;
  }
  // The one command of a list.
  Dovel::Ptr<WriteCommand> commandOf(Dovel::Ptr<Sluice::SchanCmds> const& cmds) {
    EXPECT_EQ(countOf(cmds), 1U);
    return Dovel::ptrDynamicCast<WriteCommand>(cmds->cmdDeq());
  }
  Sluice::schan_xmsg_user_ messageOfCommand(WriteCommand& cmd) {
    Sluice::schan_xmsg_user_ message;
    cmd.fillCmdIntoBuf({reinterpret_cast<std::uint32_t*>(&message), sizeof message / 4});
    return message;
  }
  std::uint64_t errors() const {
    return LoamAsicUtils::DmaMemBufferMgrSingleton::singleton().schanErrCounter(T::tableName());
  }

  TableRig rig_;
  T& table_ = rig_.makeWithFaps<T>();
};

TYPED_TEST_SUITE(ExactMatchContract, TestSupport::ExactMatchTables::Types);

TYPED_TEST(ExactMatchContract, WhatIsWrittenIsReadAndReachesEveryFap) {
  auto const written = this->entry(77, 5);
  for (unsigned fap = 0; fap < 2; ++fap) {
    if (fap == 0 || !this->table_.sharedShadow()) this->table_.setEntry(this->at(fap), written);
    EXPECT_EQ(this->table_.getEntry(this->at(fap), written.entryKey()), written);
  }
  this->rig_.writer->flush();
  for (unsigned fap = 0; fap < 2; ++fap) {
    EXPECT_EQ(resultsOnChip(this->rig_, this->table_, fap),
              (std::map<typename TypeParam::EntryKey, std::uint32_t>{{this->key(77), 5}}));
  }
}

TYPED_TEST(ExactMatchContract, AWriteForOneFapLeavesTheOthersAloneUnlessTheyShareTheShadow) {
  this->table_.setEntry(this->at(1), this->entry(3, 9));
  this->rig_.writer->flush();
  EXPECT_EQ(onChip(this->rig_, this->table_, 0).size(), this->table_.sharedShadow() ? 1U : 0U);
}

TYPED_TEST(ExactMatchContract, AddingAShadowASecondTimeLeavesTheFirstAndItsEntries) {
  auto const* const first = &this->shadow();
  this->table_.setEntry(this->at(), this->entry(1, 2));
  EXPECT_EQ(this->table_.addShadow(this->at()), 0);
  EXPECT_EQ(&this->shadow(), first);
  EXPECT_TRUE(this->stored(1).has_value());
}

TYPED_TEST(ExactMatchContract, AnEntryForAnUnknownShadowIsRefusedAndCountedAllTheSame) {
  ShadowKey const unknown(99, 0);
  auto const before = this->table_.hwTableStats()->entryAddCnt();
  auto const message =
      messageOf<Asic::GracefulAssertException>([&] { this->table_.setEntry(unknown, this->entry(1, 2)); });
  EXPECT_THAT(message, testing::HasSubstr("hwShadowCollHas( shadowKey )"));
  EXPECT_THAT(message, testing::HasSubstr("shadowKey 99-0 does not exist in the shadow collection"));
  EXPECT_EQ(this->table_.hwTableStats()->entryAddCnt(), before + 1);
  EXPECT_THROW(this->table_.getEntry(unknown, this->key(1)), Asic::GracefulAssertException);
  EXPECT_THROW(this->table_.deleteEntry(unknown, this->key(1)), Asic::GracefulAssertException);
  EXPECT_THROW(this->table_.schanCmds(unknown, this->key(1), nullptr), Asic::GracefulAssertException);
}

TYPED_TEST(ExactMatchContract, DeletingAnAbsentKeyChangesNothingAndIsCounted) {
  KeyListener listener(this->shadow());
  auto const before = this->table_.hwTableStats()->entryDelCnt();
  this->table_.deleteEntry(this->at(), this->key(4));
  EXPECT_FALSE(this->stored(4).has_value());
  EXPECT_TRUE(listener.keys.empty());
  EXPECT_EQ(this->table_.hwTableStats()->entryDelCnt(), before + 1);
}

TYPED_TEST(ExactMatchContract, ADeletedEntryStaysMarkedUntilItsCommandIsMade) {
  auto const written = this->entry(5, 6);
  this->table_.setEntry(this->at(), written);
  this->table_.deleteEntry(this->at(), written.entryKey());
  auto read = this->table_.getEntry(this->at(), written.entryKey());
  EXPECT_EQ(read.command(), emCommandDelete);
  read.commandIs(0);
  EXPECT_EQ(read, written);
  auto const cmd = this->commandOf(this->table_.schanCmds(this->at(), written.entryKey(), nullptr));
  EXPECT_TRUE(cmd->isDelete());
  EXPECT_FALSE(this->stored(5).has_value());
  EXPECT_EQ(this->table_.getEntry(this->at(), written.entryKey()), typename TypeParam::Entry(this->key(5)));
}

TYPED_TEST(ExactMatchContract, ASecondCommandForADeletedKeyDeletesTheFreshEntry) {
  this->table_.setEntry(this->at(), this->entry(5, 6));
  this->table_.deleteEntry(this->at(), this->key(5));
  EXPECT_EQ(TestSupport::resultOf(
                this->commandOf(this->table_.schanCmds(this->at(), this->key(5), nullptr))->entry()),
            6U);
  auto const second = this->commandOf(this->table_.schanCmds(this->at(), this->key(5), nullptr));
  EXPECT_TRUE(second->isDelete());
  EXPECT_EQ(TestSupport::resultOf(second->entry()), 0U);
}

TYPED_TEST(ExactMatchContract, AKeyThatWasNeverHeldIsDeletedWithItsPresets) {
  auto const cmd = this->commandOf(this->table_.schanCmds(this->at(), this->key(8), nullptr));
  typename TypeParam::Entry fresh(this->key(8));
  fresh.commandIs(emCommandDelete);
  EXPECT_TRUE(cmd->isDelete());
  EXPECT_EQ(cmd->entry(), fresh);
  EXPECT_EQ(cmd->entry().vmv(), 1U);
}

TYPED_TEST(ExactMatchContract, AShadowDeletesAPresentKeyOnDemandAndKeepsItsEntry) {
  auto const written = this->entry(9, 1);
  this->table_.setEntry(this->at(), written);
  auto const cmd = this->commandOf(
      this->shadow().schanCmds(maskOf({0}), TestSupport::kRevision, written.entryKey(), true, nullptr));
  EXPECT_TRUE(cmd->isDelete());
  EXPECT_EQ(this->stored(9), written);
}

TYPED_TEST(ExactMatchContract, ATablesOwnCommandsWriteWhatIsThere) {
  this->table_.setEntry(this->at(), this->entry(9, 1));
  auto const cmd = this->commandOf(this->table_.schanCmds(this->at(), this->key(9), nullptr));
  EXPECT_FALSE(cmd->isDelete());
  EXPECT_EQ(cmd->entry().command(), emCommandWrite);
}

TYPED_TEST(ExactMatchContract, TheMessageHoldsTheEntryAndTheCommandOfItsFlag) {
  auto const& memory = this->table_.bcmGroupAddrInfo()->memories().front();
  auto written = this->entry(11, 3);
  for (bool const isDelete : {false, true}) {
    written.commandIs(isDelete ? emCommandWrite : emCommandDelete);  // which doesn't count
    auto const cmd = Dovel::ptrIsImpl<typename TypeParam::WriteCommand>(
        maskOf({0}), nullptr, LoamMdb::PhysicalTableId{64}, Hardware::Loam::CoreInfo{0}, nullptr, isDelete,
        true, TestSupport::kRevision, memory, written);
    auto const message = this->messageOfCommand(*cmd);
    auto image = written;
    image.commandIs(isDelete ? emCommandDelete : emCommandWrite);
    EXPECT_EQ(message.opcode(), Sluice::SchanOpcode::exactMatch);
    EXPECT_EQ(message.length(), 64U);
    EXPECT_EQ(message.block, 282U);
    EXPECT_EQ(message.physicalTableId, 64U);
    EXPECT_EQ(message.responseRequested, 1U);
    EXPECT_EQ(std::memcmp(message.data, image.dataBytes().data(), 24), 0);
    for (std::size_t word = 6; word < std::size(message.data); ++word) EXPECT_EQ(message.data[word], 0U);
    EXPECT_EQ(cmd->loam_dwc_write(TestSupport::kRevision), 16U);
  }
}

TYPED_TEST(ExactMatchContract, ACommandThatAsksForNoAnswerSaysSo) {
  auto const cmd = Dovel::ptrIsImpl<typename TypeParam::WriteCommand>(
      maskOf({0}), nullptr, LoamMdb::PhysicalTableId{64}, Hardware::Loam::CoreInfo{0}, nullptr, false, false,
      TestSupport::kRevision, this->table_.bcmGroupAddrInfo()->memories().front(), this->entry(1, 1));
  EXPECT_EQ(this->messageOfCommand(*cmd).responseRequested, 0U);
}

// A log entry that keeps what it is told.
class LogEntry final : public Dovel::Tracked<LogEntry, Asic::LogEntryWrapperBase> {
 public:
  Dovel::String text() const override { return "test"; }
  void errorCodeIs(unsigned int code) override { codes.push_back(code); }
  std::vector<unsigned> codes;
};

TYPED_TEST(ExactMatchContract, ARefusalIsCountedTracedAndToldToTheLogEntryAndTheStoreKeepsTheEntry) {
  auto const log = Dovel::ptrIsImpl<LogEntry>();
  auto const written = this->entry(12, 4);
  this->table_.setEntry(this->at(), written);
  auto const before = this->errors();
  for (unsigned number = 1; number <= 2; ++number) {
    this->rig_.chip->faults().faultIs({.status = Sluice::SchanStatus::bucketFull});
    // The second one without a log entry.
    this->rig_.channel->send(this->table_.schanCmds(
        this->at(), written.entryKey(),
        number == 1 ? Dovel::Ptr<Asic::LogEntryWrapperBase>(log) : Dovel::Ptr<Asic::LogEntryWrapperBase>()));
    EXPECT_EQ(this->errors(), before + number);
  }
  EXPECT_THAT(log->codes, testing::ElementsAre(1U));
  EXPECT_EQ(this->stored(12), written);
}

TYPED_TEST(ExactMatchContract, ACommandThatWasNeverSentCountsNothing) {
  auto const before = this->errors();
  this->table_.schanCmds(this->at(), this->key(1), nullptr);
  EXPECT_EQ(this->errors(), before);
}

TYPED_TEST(ExactMatchContract, OneFapThatRefusesIsAnErrorOfTheWholeCommand) {
  auto const before = this->errors();
  this->rig_.chip->faults().faultIs({.fap = 1, .status = Sluice::SchanStatus::bucketFull});
  auto const cmds =
      this->shadow().schanCmds(maskOf({0, 1}), TestSupport::kRevision, this->key(1), false, nullptr);
  if (this->table_.sharedShadow()) {
    EXPECT_EQ(this->rig_.channel->send(cmds).failed, maskOf({1}));
    EXPECT_EQ(this->errors(), before + 1);
  } else {
    EXPECT_TRUE(this->rig_.channel->send(cmds).ok());  // the FAP 1 isn't the shadow's
  }
}

TYPED_TEST(ExactMatchContract, TheRequiredStatusIsMadeOnDemandAndHandedOutOnce) {
  auto const made = this->table_.loamCmdletRequiredStatusIs();
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(this->table_.loamCmdletRequiredStatusIs(), made);
  EXPECT_EQ(this->table_.loamCmdletRequiredStatusDel(), made);
  EXPECT_EQ(this->table_.loamCmdletRequiredStatusDel(), nullptr);
  EXPECT_NE(this->table_.loamCmdletRequiredStatusIs(), nullptr);
}

TYPED_TEST(ExactMatchContract, AShadowOverAnOldStoreStartsEmpty) {
  this->table_.setEntry(this->at(), this->entry(1, 1));
  this->rig_.writer->close();
  this->shadow().unmountVault();
  this->table_.delShadow(this->at());
  this->table_.addShadow(this->at());
  EXPECT_FALSE(this->stored(1).has_value());
}

TYPED_TEST(ExactMatchContract, ADeletedKeyIsDeletedFromTheChipByOneCommand) {
  this->table_.setEntry(this->at(), this->entry(6, 1));
  this->rig_.writer->flush();
  auto const before = this->rig_.writer->figures(this->table_);
  this->table_.deleteEntry(this->at(), this->key(6));
  this->rig_.writer->flush();
  this->rig_.writer->flush();
  auto const after = this->rig_.writer->figures(this->table_);
  EXPECT_EQ(after.commands, before.commands + 1);
  EXPECT_EQ(after.deletes, before.deletes + 1);
  EXPECT_TRUE(onChip(this->rig_, this->table_, 0).empty());
}

TYPED_TEST(ExactMatchContract, ADownloadBringsABlankChipInLine) {
  for (std::uint32_t number = 0; number < 500; ++number)
    this->table_.setEntry(this->at(), this->entry(number, number));
  this->rig_.writer->flush();
  auto const before = resultsOnChip(this->rig_, this->table_, 0);
  EXPECT_EQ(before.size(), 500U);
  this->rig_.chip->reset(0);
  EXPECT_TRUE(this->rig_.writer->download(this->table_, maskOf({0})).ok());
  EXPECT_EQ(resultsOnChip(this->rig_, this->table_, 0), before);
}

TYPED_TEST(ExactMatchContract, ClearingEmptiesTheStoreAndTheChip) {
  for (std::uint32_t number = 0; number < 20; ++number)
    this->table_.setEntry(this->at(), this->entry(number, number));
  EXPECT_TRUE(this->rig_.writer->clear(this->table_, this->at()).ok());
  EXPECT_FALSE(this->stored(1).has_value());
  EXPECT_TRUE(onChip(this->rig_, this->table_, 0).empty());
  EXPECT_EQ(this->rig_.writer->dirtyKeys(), 0U);
}

TYPED_TEST(ExactMatchContract, AReconciliationRemovesWhatIsStaleAndKeepsTheRest) {
  for (std::uint32_t number = 0; number < 40; ++number)
    this->table_.setEntry(this->at(), this->entry(number, number));
  this->rig_.writer->flush();
  // As after a restart: another shadow has other entries, and the chip still has those of before.
  this->rig_.writer->dirtyKeysDel(this->shadow());
  this->shadow().collCleanup();
  for (std::uint32_t number = 30; number < 50; ++number)
    this->table_.setEntry(this->at(), this->entry(number, number + 1));
  this->rig_.writer->dirtyKeysDel(this->shadow());
  EXPECT_TRUE(this->rig_.writer->reconcile(this->table_, maskOf({0})).ok());
  EXPECT_EQ(this->table_.markSweepTableSm()->state(), LoamAsicUtils::MarkSweepState::done);
  auto const results = resultsOnChip(this->rig_, this->table_, 0);
  EXPECT_EQ(results.size(), 20U);
  EXPECT_EQ(results.at(this->key(30)), 31U);
  auto const figures = this->rig_.writer->figures(this->table_);
  EXPECT_EQ(figures.flushed + figures.staleDeleted, 30U);
}

TYPED_TEST(ExactMatchContract, ItsFlushTableIsRegisteredForEveryRevisionOfItsChip) {
  for (auto const& revision : LoamAsicUtils::SupportedFapRevList::fapRevisionList()) {
    auto const factory = LoamAsicUtils::HwFlushTableHolderContext::singleton().hwFlushFactory(
        LoamAsicUtils::HwTableKey(TypeParam::tableName(), revision));
    EXPECT_EQ(static_cast<bool>(factory), revision.chipType() == Hardware::ChipType{25});
    if (!factory) continue;
    EXPECT_EQ(factory(revision, nullptr, nullptr)->hwTableKey().tableName(), TypeParam::tableName());
  }
}

}  // namespace
