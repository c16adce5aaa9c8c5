#include "platform/chip/SoftwareChip.h"

#include <gtest/gtest.h>

#include "runtime/Dovel/Exception.h"
#include "tests/platform/chip/ChipSupport.h"
#include "tests/support/Message.h"

namespace {

using namespace TestSupport;
using Sluice::BulkTransfer;
using Sluice::SchanOpcode;
using Sluice::SchanResponse;
using Sluice::SchanStatus;

struct SoftwareChip : testing::Test {
  Dovel::Ptr<Chip::SoftwareChip> const chip = chipOf(2);
  Dma const dma;

  SoftwareChip() { chip->dmaPoolIs(dma.pool()); }

  template <class Command>
  SchanStatus statusOf(Command const& command, unsigned fap = 0) {
    return answerTo(*chip, command, fap).status;
  }
  // A message with one thing changed is refused, and the chip stays as it is.
  template <class Change>
  void expectRefused(Change const& change) {
    Sluice::schan_xmsg_user_ message = writeOf(kAds, 3);
    change(message);
    EXPECT_EQ(statusOf(message), SchanStatus::badAddress);
    EXPECT_FALSE(chip->programmed(0));
    EXPECT_EQ(rowIn(*chip, kAds), RowBytes(16));
  }
  template <class Change>
  void expectTransferRefused(Change const& change) {
    dma.fill(kAds, 4, 1);
    BulkTransfer transfer = dma.write(kAds, 4);
    change(transfer);
    EXPECT_EQ(statusOf(transfer), SchanStatus::badAddress);
    EXPECT_FALSE(chip->programmed(0));
    for (std::uint32_t row = 0; row < 4; ++row) EXPECT_EQ(rowIn(*chip, after(kAds, row)), RowBytes(16));
  }
};

TEST_F(SoftwareChip, KeepsARowThatAMessageWrites) {
  EXPECT_EQ(statusOf(writeOf(kTcam, 5)), SchanStatus::ok);
  EXPECT_EQ(rowIn(*chip, kTcam), rowOf(kTcam, 5));
  EXPECT_EQ(rowIn(*chip, after(kTcam, 1)), RowBytes(24));
}

TEST_F(SoftwareChip, AnswersAReadWithTheImageOfTheRow) {
  statusOf(writeOf(kAds, 9));
  SchanResponse const answer = answerTo(*chip, readOf(kAds));
  EXPECT_EQ(answer.status, SchanStatus::ok);
  EXPECT_EQ(std::memcmp(answer.image, rowOf(kAds, 9).data(), 16), 0);
  EXPECT_EQ(answer.image[4], 0U);
}

TEST_F(SoftwareChip, ARowThatNobodyWroteReadsZero) {
  SchanResponse const answer = answerTo(*chip, readOf(kTcam));
  EXPECT_EQ(answer.status, SchanStatus::ok);
  for (std::uint32_t word : answer.image) EXPECT_EQ(word, 0U);
}

TEST_F(SoftwareChip, ARowWiderThanAnImageIsReadByBulkOnly) {
  EXPECT_EQ(statusOf(writeOf(kBuckets, 1)), SchanStatus::ok);
  EXPECT_EQ(statusOf(readOf(kBuckets)), SchanStatus::badAddress);
  EXPECT_EQ(statusOf(dma.read(kBuckets, 1)), SchanStatus::ok);
  EXPECT_EQ(dma.row(kBuckets, 0), rowOf(kBuckets, 1));
}

TEST_F(SoftwareChip, TheWidestRowFitsAMessage) {
  EXPECT_EQ(statusOf(writeOf(kSniff, 1)), SchanStatus::ok);
  EXPECT_EQ(rowIn(*chip, kSniff), rowOf(kSniff, 1));
}

TEST_F(SoftwareChip, ARegisterIsReachedByTheOpcodesOfRegistersOnly) {
  EXPECT_EQ(statusOf(writeOf(kRegister, 4)), SchanStatus::ok);
  EXPECT_EQ(rowIn(*chip, kRegister), rowOf(kRegister, 4));
  EXPECT_EQ(statusOf(message(SchanOpcode::memoryWrite, kRegister, rowOf(kRegister, 5))),
            SchanStatus::badAddress);
  EXPECT_EQ(statusOf(message(SchanOpcode::registerWrite, kAds, rowOf(kAds, 5))), SchanStatus::badAddress);
  EXPECT_EQ(statusOf(message(SchanOpcode::registerRead, kAds)), SchanStatus::badAddress);
  EXPECT_EQ(rowIn(*chip, kRegister), rowOf(kRegister, 4));
}

TEST_F(SoftwareChip, ARegisterIsReadAndWrittenByBulkToo) {
  dma.fill(kRegister, 1, 6);
  EXPECT_EQ(statusOf(dma.transfer(SchanOpcode::registerWrite, kRegister, 1)), SchanStatus::ok);
  dma.fill(kRegister, 1, 0);
  EXPECT_EQ(statusOf(dma.transfer(SchanOpcode::registerRead, kRegister, 1)), SchanStatus::ok);
  EXPECT_EQ(dma.row(kRegister, 0), rowOf(kRegister, 6));
  EXPECT_EQ(statusOf(dma.read(kRegister, 1)), SchanStatus::badAddress);
}

TEST_F(SoftwareChip, ARegisterTooWideForAnImageIsNotReadByMessage) {
  EXPECT_EQ(statusOf(message(SchanOpcode::registerRead, kRegister)), SchanStatus::badAddress);
}

TEST_F(SoftwareChip, RefusesAMessageForARowThatItDoesNotHave) {
  expectRefused([](auto& message) { message.block = 283; });
  expectRefused([](auto& message) { message.address = 0x312FFFF; });
  expectRefused([](auto& message) { message.address = kAds.row + 4096; });
  expectRefused([](auto& message) { message.addressHigh = 1; });
  expectRefused([](auto& message) { message.location = 1; });
}

TEST_F(SoftwareChip, RefusesAMessageOfAnotherLengthThanTheRowHas) {
  expectRefused([](auto& message) { message.header += 4; });
  expectRefused([](auto& message) { message.header -= 4; });
  EXPECT_EQ(statusOf(message(SchanOpcode::memoryWrite, kAds, rowOf(kTcam, 1))), SchanStatus::badAddress);
}

TEST_F(SoftwareChip, RefusesAnOpcodeThatItDoesNotKnow) {
  expectRefused([](auto& message) { message.header = 10U << 24 | 56; });
}

TEST_F(SoftwareChip, AnswersNothingThatDoesNotAskForIt) {
  Sluice::schan_xmsg_user_ message = writeOf(kAds, 3);
  message.responseRequested = 0;
  EXPECT_EQ(statusOf(message), SchanStatus::noResponse);
  EXPECT_EQ(rowIn(*chip, kAds), rowOf(kAds, 3));
}

TEST_F(SoftwareChip, BulkWritesRowByRowFromTheBuffer) {
  dma.fill(kTcam, 100, 7);
  EXPECT_EQ(statusOf(dma.write(after(kTcam, 50), 100)), SchanStatus::ok);
  for (std::uint32_t row = 0; row < 100; ++row)
    EXPECT_EQ(rowIn(*chip, after(kTcam, 50 + row)), rowOf(kTcam, 7 + row));
  EXPECT_EQ(rowIn(*chip, after(kTcam, 49)), RowBytes(24));
  EXPECT_EQ(rowIn(*chip, after(kTcam, 150)), RowBytes(24));
}

TEST_F(SoftwareChip, BulkGoesOnFromOneArrayIntoTheNext) {
  dma.fill(kTcam, 4, 1);
  EXPECT_EQ(statusOf(dma.write(after(kTcam, 4094), 4)), SchanStatus::ok);
  EXPECT_EQ(rowIn(*chip, after(kTcam, 4095)), rowOf(kTcam, 2));
  EXPECT_EQ(rowIn(*chip, after(kTcam, 4096)), rowOf(kTcam, 3));
}

TEST_F(SoftwareChip, BulkReachesTheLastRowAndNotThePastOne) {
  dma.fill(kTcam, 2, 1);
  EXPECT_EQ(statusOf(dma.write(after(kTcam, 8190), 2)), SchanStatus::ok);
  EXPECT_EQ(rowIn(*chip, after(kTcam, 8191)), rowOf(kTcam, 2));
  dma.fill(kTcam, 2, 5);
  EXPECT_EQ(statusOf(dma.write(after(kTcam, 8191), 2)), SchanStatus::badAddress);
  EXPECT_EQ(rowIn(*chip, after(kTcam, 8191)), rowOf(kTcam, 2));
}

TEST_F(SoftwareChip, BulkReadsWhatMessagesWrote) {
  for (unsigned row = 0; row < 3; ++row) statusOf(writeOf(after(kSniff, row), row));
  EXPECT_EQ(statusOf(dma.read(kSniff, 4)), SchanStatus::ok);
  for (unsigned row = 0; row < 3; ++row) EXPECT_EQ(dma.row(kSniff, row), rowOf(kSniff, row));
  EXPECT_EQ(dma.row(kSniff, 3), RowBytes(68));
}

TEST_F(SoftwareChip, RefusesABulkTransferThatFitsNoMemory) {
  expectTransferRefused([](BulkTransfer& transfer) { transfer.block = 7; });
  expectTransferRefused([](BulkTransfer& transfer) { transfer.row += 4093; });
  expectTransferRefused([](BulkTransfer& transfer) { transfer.row -= 1; });
  expectTransferRefused([](BulkTransfer& transfer) { transfer.rowBytes = 24; });
  expectTransferRefused([](BulkTransfer& transfer) { transfer.rows = 0; });
  expectTransferRefused([](BulkTransfer& transfer) { transfer.rows = ~0U; });
  expectTransferRefused([](BulkTransfer& transfer) { transfer.opcode = SchanOpcode::exactMatch; });
}

TEST_F(SoftwareChip, RefusesABulkTransferThatReachesOutsideTheBuffer) {
  expectTransferRefused([](BulkTransfer& transfer) { transfer.dmaAddress -= 1; });
  expectTransferRefused([](BulkTransfer& transfer) { transfer.dmaAddress += 65536 - 63; });
  expectTransferRefused([this](BulkTransfer& transfer) {
    transfer.dmaAddress = reinterpret_cast<std::uintptr_t>(dma.bytes());
  });
}

TEST_F(SoftwareChip, AReadThatIsRefusedLeavesTheBufferAsItIs) {
  statusOf(writeOf(kAds, 9));
  dma.fill(kAds, 1, 3);
  EXPECT_EQ(statusOf(dma.read(kAds, 4097)), SchanStatus::badAddress);
  EXPECT_EQ(dma.row(kAds, 0), rowOf(kAds, 3));
}

TEST_F(SoftwareChip, SeesThePoolThatItWasLastGiven) {
  Dma const other(128);
  chip->dmaPoolIs(other.pool());
  other.fill(kBuckets, 2, 1);
  EXPECT_EQ(statusOf(other.write(kBuckets, 2)), SchanStatus::ok);
  EXPECT_EQ(statusOf(dma.write(kBuckets, 3)), SchanStatus::badAddress);
  chip->dmaPoolIs(nullptr);
  EXPECT_EQ(statusOf(other.write(kBuckets, 2)), SchanStatus::badAddress);
}

TEST_F(SoftwareChip, FapsKeepTheirOwnRows) {
  statusOf(writeOf(kAds, 1), 0);
  statusOf(writeOf(kAds, 2), 1);
  EXPECT_EQ(rowIn(*chip, kAds, 0), rowOf(kAds, 1));
  EXPECT_EQ(rowIn(*chip, kAds, 1), rowOf(kAds, 2));
}

TEST_F(SoftwareChip, BlocksWithTheSameAddressesKeepTheirOwnRows) {
  statusOf(writeOf(kSniff, 1));
  EXPECT_EQ(rowIn(*chip, {144, 0x30000, 68}), RowBytes(68));
}

TEST_F(SoftwareChip, AResetMakesTheFapBlankAndNoOther) {
  statusOf(writeOf(kAds, 1), 0);
  statusOf(writeOf(kAds, 2), 1);
  EXPECT_TRUE(chip->programmed(0));
  EXPECT_EQ(chip->resets(0), 0U);
  chip->reset(0);
  EXPECT_FALSE(chip->programmed(0));
  EXPECT_EQ(chip->resets(0), 1U);
  EXPECT_EQ(rowIn(*chip, kAds, 0), RowBytes(16));
  EXPECT_TRUE(chip->programmed(1));
  EXPECT_EQ(rowIn(*chip, kAds, 1), rowOf(kAds, 2));
}

TEST_F(SoftwareChip, IsProgrammedByAWriteAndByNothingElse) {
  statusOf(readOf(kAds));
  statusOf(dma.read(kAds, 4));
  statusOf(message(SchanOpcode::memoryWrite, kAds, rowOf(kTcam, 1)));
  EXPECT_FALSE(chip->programmed(0));
  statusOf(writeOf(kRegister, 0));
  EXPECT_TRUE(chip->programmed(0));
  chip->reset(0);
  statusOf(dma.write(kAds, 1));
  EXPECT_TRUE(chip->programmed(0));
}

TEST_F(SoftwareChip, AFapThatIsNotThereNeverAnswers) {
  EXPECT_TRUE(chip->present(1));
  EXPECT_FALSE(chip->present(2));
  EXPECT_FALSE(chip->present(Sluice::FapId::null()));
  EXPECT_EQ(statusOf(writeOf(kAds, 1), 2), SchanStatus::noResponse);
  EXPECT_EQ(statusOf(dma.write(kAds, 1), 128), SchanStatus::noResponse);
  EXPECT_FALSE(chip->programmed(2));
  chip->reset(2);
  chip->forget(2);
  EXPECT_EQ(chip->resets(2), 0U);
  EXPECT_EQ(chip->counters(2).messages, 0U);
  EXPECT_TRUE(rowIn(*chip, kAds, 2).empty());
}

TEST_F(SoftwareChip, CountsWhatAFapWasGiven) {
  statusOf(writeOf(kAds, 1));
  statusOf(readOf(kAds));
  statusOf(readOf(kBuckets));
  statusOf(dma.write(kTcam, 10));
  statusOf(dma.write(kTcam, 10000));
  Chip::ChipCounters const counters = chip->counters(0);
  EXPECT_EQ(counters.messages, 3U);
  EXPECT_EQ(counters.bulkTransfers, 2U);
  EXPECT_EQ(counters.bytes, 16U + 16U + 240U);
  EXPECT_EQ(counters.refused, 2U);
  EXPECT_EQ(chip->counters(1).messages, 0U);
}

TEST(SoftwareChipOptions, ThereAreAsManyFapsAsAskedFor) {
  EXPECT_FALSE(chipOf(0)->present(0));
  EXPECT_TRUE(chipOf(128)->present(127));
  EXPECT_EQ(messageOf<Dovel::RangeException>([] { chipOf(129); }), "129 FAPs, where 128 is the most");
}

struct Watched {
  unsigned fap;
  std::uint32_t row;
  RowBytes before;
  RowBytes after;
};

class Watcher : public Chip::ChipObserver {
 public:
  void rowWritten(Sluice::FapId fap, std::uint32_t block, std::uint32_t row,
                  std::span<std::byte const> before, std::span<std::byte const> after) override {
    EXPECT_EQ(block, 282U);
    rows.push_back({fap.value(), row, {before.begin(), before.end()}, {after.begin(), after.end()}});
  }
  void wasReset(Sluice::FapId fap) override { resets.push_back(fap.value()); }

  std::vector<Watched> rows;
  std::vector<unsigned> resets;
};

TEST_F(SoftwareChip, AnObserverIsToldOfEveryRowAndReset) {
  statusOf(writeOf(kAds, 1), 1);
  Watcher watcher;
  chip->observerIs(&watcher);
  dma.fill(kAds, 2, 5);
  statusOf(dma.write(kAds, 2), 1);
  statusOf(writeOf(after(kAds, 1), 8), 1);
  statusOf(readOf(kAds), 1);
  chip->reset(1);
  ASSERT_EQ(watcher.rows.size(), 3U);
  EXPECT_EQ(watcher.rows[0].fap, 1U);
  EXPECT_EQ(watcher.rows[0].before, rowOf(kAds, 1));
  EXPECT_EQ(watcher.rows[0].after, rowOf(kAds, 5));
  EXPECT_EQ(watcher.rows[1].row, kAds.row + 1);
  EXPECT_EQ(watcher.rows[1].before, RowBytes(16));
  EXPECT_EQ(watcher.rows[2].before, rowOf(kAds, 6));
  EXPECT_EQ(watcher.rows[2].after, rowOf(kAds, 8));
  EXPECT_EQ(watcher.resets, (std::vector<unsigned>{1}));
  chip->observerIs(nullptr);
  statusOf(writeOf(kAds, 8), 1);
  EXPECT_EQ(watcher.rows.size(), 3U);
}

class ProgrammedWatcher : public Chip::ChipObserver {
 public:
  explicit ProgrammedWatcher(Chip::SoftwareChip const& chip) : chip_(chip) {}
  void rowWritten(Sluice::FapId fap, std::uint32_t, std::uint32_t, std::span<std::byte const>,
                  std::span<std::byte const>) override {
    programmed.push_back(chip_.programmed(fap));
  }
  void wasReset(Sluice::FapId) override {}

  std::vector<bool> programmed;

 private:
  Chip::SoftwareChip const& chip_;
};

// A process that is killed between the two must not leave rows on a chip that passes for blank.
TEST_F(SoftwareChip, IsProgrammedBeforeTheFirstRowChanges) {
  ProgrammedWatcher watcher(*chip);
  chip->observerIs(&watcher);
  statusOf(writeOf(kAds, 1));
  chip->reset(0);
  statusOf(dma.write(kAds, 1));
  EXPECT_EQ(watcher.programmed, (std::vector<bool>{true, true}));
  chip->observerIs(nullptr);
}

}  // namespace
