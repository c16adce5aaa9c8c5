// What every direct table owes its users.
#include <set>

#include "tests/LoamSharedHwTables/TableRig.h"
#include "tests/support/Message.h"

namespace {

using TestSupport::dataOf;
using TestSupport::entryOf;
using TestSupport::keyOfRow;
using TestSupport::maskOf;
using TestSupport::messageOf;
using TestSupport::Row;
using TestSupport::shadowKeyOf;
using TestSupport::TableRig;

template <class T>
class DirectContract : public testing::Test {
 protected:
  using Entry = typename T::Entry;

  std::uint32_t rows() const { return static_cast<std::uint32_t>(table_.size()); }
  typename T::EntryKey key(std::uint32_t row) const { return keyOfRow(table_, row); }
  Entry entry(std::uint32_t row, unsigned content) const {
    return entryOf<Entry>(key(row), static_cast<std::uint8_t>(content));
  }
  typename T::Shadow& shadow(unsigned fap = 0) { return *table_.shadow(shadowKeyOf(table_, fap)); }
  Row defaultRow() { return {shadow().defaultEntry(), shadow().defaultEntry() + Entry::kDataBytes}; }
  std::size_t memories() const { return table_.bcmGroupAddrInfo()->memories().size(); }

  TableRig rig_;
  T& table_ = rig_.makeWithFaps<T>();
};

TYPED_TEST_SUITE(DirectContract, TestSupport::DirectTables::Types);

TYPED_TEST(DirectContract, WhatIsWrittenIsReadAndReachesEveryMemoryOfEveryFap) {
  auto const written = this->entry(this->rows() - 1, 7);
  for (unsigned fap = 0; fap < 2; ++fap) {
    if (fap == 0 || !this->table_.sharedShadow())
      this->table_.setEntry(shadowKeyOf(this->table_, fap), written);
    EXPECT_EQ(this->table_.getEntry(shadowKeyOf(this->table_, fap), written.entryKey()), written);
  }
  this->rig_.writer->flush();
  for (unsigned fap = 0; fap < 2; ++fap)
    for (unsigned memory = 0; memory < this->memories(); ++memory)
      EXPECT_EQ(this->rig_.chipRow(this->table_, fap, written.entryKey(), memory), dataOf(written));
}

TYPED_TEST(DirectContract, AWriteForOneFapLeavesTheOthersAloneUnlessTheyShareTheShadow) {
  auto const written = this->entry(3, 9);
  this->table_.setEntry(shadowKeyOf(this->table_, 1), written);
  this->rig_.writer->flush();
  bool const reached = this->rig_.chipRow(this->table_, 0, written.entryKey()) == dataOf(written);
  EXPECT_EQ(reached, this->table_.sharedShadow());
}

TYPED_TEST(DirectContract, AnAbsentKeyReadsAsThatKeyWithTheDefaultPayload) {
  auto const key = this->key(this->rows() - 1);
  auto const read = this->table_.getEntry(shadowKeyOf(this->table_, 0), key);
  EXPECT_EQ(read.entryKey(), key);
  EXPECT_EQ(dataOf(read), this->defaultRow());
}

TYPED_TEST(DirectContract, ADeletedRowGetsTheDefaultOnTheChip) {
  auto const written = this->entry(this->rows() - 2, 5);
  auto const at = shadowKeyOf(this->table_, 0);
  this->table_.setEntry(at, written);
  this->rig_.writer->flush();
  this->table_.deleteEntry(at, written.entryKey());
  this->rig_.writer->flush();
  EXPECT_EQ(this->rig_.chipRow(this->table_, 0, written.entryKey()), this->defaultRow());
  EXPECT_FALSE(this->shadow().entryStorage()->entryColl(written.entryKey()) == written);
}

TYPED_TEST(DirectContract, OnlyTheLatestOfSeveralWritesIsSent) {
  auto const at = shadowKeyOf(this->table_, 0);
  this->rig_.writer->flush();
  auto const before = this->rig_.writer->figures(this->table_).commands;
  for (unsigned content = 0; content < 100; ++content) this->table_.setEntry(at, this->entry(2, content));
  this->rig_.writer->flush();
  EXPECT_EQ(this->rig_.writer->figures(this->table_).commands - before, this->memories());
  EXPECT_EQ(this->rig_.chipRow(this->table_, 0, this->key(2)), dataOf(this->entry(2, 99)));
}

TYPED_TEST(DirectContract, ADownloadBringsABlankChipInLineWithTheShadow) {
  std::set<std::uint32_t> const stored{0, 1, this->rows() / 2, this->rows() - 1};
  for (std::uint32_t const row : stored)
    this->table_.setEntry(shadowKeyOf(this->table_, 1), this->entry(row, row));
  this->rig_.writer->flush();
  this->rig_.chip->reset(1);
  auto const outcome = this->rig_.writer->download(this->table_, maskOf({1}));
  EXPECT_TRUE(outcome.ok());
  auto const at = shadowKeyOf(this->table_, 1);
  for (std::uint32_t row = 0; row < this->rows(); ++row) {
    for (unsigned memory = 0; memory < this->memories(); ++memory) {
      auto const expected = dataOf(this->table_.getEntry(at, this->key(row)));
      ASSERT_EQ(this->rig_.chipRow(this->table_, 1, this->key(row), memory), expected) << row;
    }
  }
}

TYPED_TEST(DirectContract, ClearingEmptiesShadowAndChip) {
  auto const at = shadowKeyOf(this->table_, 0);
  for (std::uint32_t row = 0; row < 5; ++row) this->table_.setEntry(at, this->entry(row, 40 + row));
  EXPECT_TRUE(this->rig_.writer->clear(this->table_, at).ok());
  EXPECT_EQ(this->shadow().entryStorage()->entryCollMap().interface().members(), 0U);
  EXPECT_EQ(this->rig_.writer->dirtyKeys(), 0U);
  for (std::uint32_t row = 0; row < 5; ++row)
    EXPECT_EQ(this->rig_.chipRow(this->table_, 0, this->key(row)), this->defaultRow());
}

TYPED_TEST(DirectContract, ClearingTheChipAloneKeepsTheShadow) {
  auto const at = shadowKeyOf(this->table_, 0);
  auto const written = this->entry(4, 44);
  this->table_.setEntry(at, written);
  this->rig_.writer->flush();
  auto const cmds = this->table_.clearTableInHw(at);
  EXPECT_TRUE(this->rig_.channel->send(cmds).ok());
  EXPECT_EQ(this->table_.getEntry(at, written.entryKey()), written);
  EXPECT_EQ(this->rig_.chipRow(this->table_, 0, written.entryKey()), this->defaultRow());
}

TYPED_TEST(DirectContract, AMaskWithoutTheTablesFapsGivesNoCommands) {
  auto const mask = maskOf({9});
  EXPECT_EQ(this->table_.download("generation4", mask), nullptr);
  // The shared shadow serves any FAP; that the table has no such FAP is for the table to know.
  bool const applicable = this->table_.sharedShadow();
  EXPECT_EQ(this->shadow().schanCmds(mask, TestSupport::kRevision, this->key(0), false, nullptr) != nullptr,
            applicable);
}

TYPED_TEST(DirectContract, WithoutAShadowTheAttemptIsCountedAndFailsWithTheKey) {
  TestSupport::ShadowKey const unknown(77, 3);
  auto const before = this->table_.hwTableStats()->entryAddCnt();
  std::string const message =
      messageOf<Asic::GracefulAssertException>([&] { this->table_.setEntry(unknown, this->entry(0, 1)); });
  EXPECT_NE(message.find("hwShadowCollHas( hwShadowKey )"), std::string::npos) << message;
  EXPECT_NE(message.find("hwShadowKey 77-3 does not exist in the shadow collection"), std::string::npos)
      << message;
  EXPECT_EQ(this->table_.hwTableStats()->entryAddCnt(), before + 1);
  EXPECT_THROW((void)this->table_.getEntry(unknown, this->key(0)), Asic::GracefulAssertException);
  EXPECT_THROW((void)this->table_.schanCmds(unknown, this->key(0), nullptr), Asic::GracefulAssertException);
  EXPECT_THROW(this->table_.deleteEntry(unknown, this->key(0)), Asic::GracefulAssertException);
}

TYPED_TEST(DirectContract, ConstantsAreThoseOfTheCatalogue) {
  auto const& described = TypeParam::Traits::description();
  EXPECT_EQ(this->table_.entryDataMaxSize(), described.entryDataMaxSize);
  EXPECT_EQ(this->table_.entryDataMaxSizeBits(), described.entryDataMaxSize * 8);
  EXPECT_EQ(this->table_.hasParitySupport(), described.hasParitySupport);
  EXPECT_EQ(this->table_.chipName(), "bcm88490_a0");
  EXPECT_EQ(TypeParam::bcmMemName(), described.chipName);
  EXPECT_EQ(this->table_.tableClass(), 1U);
  EXPECT_FALSE(this->table_.requiresEntryByEntryDeletion());
}

TYPED_TEST(DirectContract, EveryShadowHasAStoreOfItsOwnThatAnEndLeavesEmpty) {
  auto const at = shadowKeyOf(this->table_, 0);
  this->table_.setEntry(at, this->entry(1, 3));
  std::string const path = this->rig_.root.file(
      "shadow/Qumran3aA0/" + std::string(TypeParam::Traits::tableName) + "/" + at.toString().data());
  EXPECT_TRUE(std::filesystem::exists(path + "/slots")) << path;
  this->table_.delShadow(at);
  EXPECT_TRUE(std::filesystem::exists(path + "/slots"));
  this->table_.addShadow(at);
  EXPECT_FALSE(this->shadow().entryStorage()->entryColl(this->key(1)) == this->entry(1, 3));
}

}  // namespace
