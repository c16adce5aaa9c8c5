// Exact-match entries that come in bulk transfers.
#include <gtest/gtest.h>

#include "platform/chip/SchanChannel.h"
#include "tests/platform/chip/ExactMatchSupport.h"

namespace {

using namespace TestSupport;
using Sluice::BulkTransfer;
using Sluice::SchanResponse;
using Sluice::SchanStatus;

struct ExactMatchBulk : ExactMatchRig {
  void expectAnswer(SchanResponse const& answer, SchanStatus status, std::uint32_t refused,
                    std::uint32_t first) const {
    EXPECT_EQ(answer.status, status);
    EXPECT_EQ(bulkAnswer(answer).refused, refused);
    EXPECT_EQ(bulkAnswer(answer).first, first);
  }
  // Refused as a whole.
  template <class Change>
  void expectRefused(Change const& change, SchanStatus status) const {
    BulkTransfer transfer = transferOf(kMpls, {entryOf(kMpls, 1), entryOf(kMpls, 2), entryOf(kMpls, 3)});
    change(transfer);
    expectAnswer(answerTo(*chip, transfer), status, transfer.rows, 0);
    EXPECT_FALSE(chip->programmed(0));
    EXPECT_TRUE(entries(kMpls).empty());
  }
};

TEST_F(ExactMatchBulk, TakesEveryEntry) {
  std::vector<Entry> given;
  for (std::uint64_t key = 0; key < 500; ++key) given.push_back(entryOf(kMpls, key, key + 7));
  expectAnswer(bulk(kMpls, given), SchanStatus::ok, 0, 0);
  for (std::uint64_t key = 0; key < 500; ++key) EXPECT_EQ(look(kMpls, key), given[key]);
  EXPECT_EQ(entries(kMpls).size(), 500U);
}

TEST_F(ExactMatchBulk, TakesThemInTheirOrder) {
  bulk(kSrv6, {entryOf(kSrv6, 1, 1), entryOf(kSrv6, 2, 1), entryOf(kSrv6, 1, 2),
               entryOf(kSrv6, 2, 0, kDelete), entryOf(kSrv6, 3, 0, kDelete), entryOf(kSrv6, 3, 4)});
  EXPECT_EQ(resultOf(kSrv6, 1), 2U);
  EXPECT_FALSE(has(kSrv6, 2));
  EXPECT_EQ(resultOf(kSrv6, 3), 4U);
}

TEST_F(ExactMatchBulk, TakesEntriesOfAllDatabasesOfThePhysicalTable) {
  bulk(kMpls, {entryOf(kMpls, 1), entryOf(kSrv6, 2), entryOf(kIp4Udp, 3)});
  EXPECT_TRUE(has(kMpls, 1));
  EXPECT_TRUE(has(kSrv6, 2));
  EXPECT_TRUE(has(kIp4Udp, 3));
}

TEST_F(ExactMatchBulk, TellsTheFirstRefusalAndTakesTheOthers) {
  Entry const unknown = entryOf(kSVlan, 1);
  expectAnswer(bulk(kMpls, {entryOf(kMpls, 1), unknown, entryOf(kMpls, 2), unknown, entryOf(kMpls, 3)}),
               SchanStatus::badDatabase, 2, 1);
  for (std::uint64_t key : {1U, 2U, 3U}) EXPECT_TRUE(has(kMpls, key));
  EXPECT_EQ(chip->counters(0).refused, 1U);
}

TEST_F(ExactMatchBulk, TheStatusIsThatOfTheFirstRefusal) {
  chipIs({1, {}, 4});
  std::vector<Entry> given;
  for (std::uint64_t key = 0; key < 7; ++key) given.push_back(entryOf(kMpls, key));
  given[5] = entryOf(kSVlan, 5);
  expectAnswer(bulk(kMpls, given), SchanStatus::bucketFull, 3, 4);
  EXPECT_EQ(entries(kMpls).size(), 4U);
}

TEST_F(ExactMatchBulk, IsRefusedWhereThereIsNoSuchDatabase) {
  expectRefused([](auto& transfer) { transfer.physicalTableId = 63; }, SchanStatus::badDatabase);
  expectRefused([](auto& transfer) { transfer.block = 281; }, SchanStatus::badDatabase);
  expectRefused([](auto& transfer) { transfer.core = 1; }, SchanStatus::badDatabase);
}

TEST_F(ExactMatchBulk, IsRefusedWhereItReachesOutsideTheBuffer) {
  constexpr auto kBad = SchanStatus::badAddress;
  expectRefused([](auto& transfer) { transfer.dmaAddress -= 1; }, kBad);
  expectRefused([](auto& transfer) { transfer.dmaAddress += 65536 - 71; }, kBad);
  expectRefused([](auto& transfer) { transfer.rows = ~0U; }, kBad);
  chip->dmaPoolIs(nullptr);
  expectRefused([](auto&) {}, kBad);
}

TEST_F(ExactMatchBulk, IsRefusedWhereItHasNoEntriesOrOthersThanOf24Bytes) {
  expectRefused([](auto& transfer) { transfer.rows = 0; }, SchanStatus::badAddress);
  expectRefused([](auto& transfer) { transfer.rowBytes = 20; }, SchanStatus::badAddress);
}

TEST_F(ExactMatchBulk, ReachesTheEndOfTheBuffer) {
  BulkTransfer transfer = transferOf(kMpls, {});
  std::size_t const last = 65536 - 24;
  std::memcpy(dma.bytes() + last, entryOf(kMpls, 4).data(), 24);
  transfer.dmaAddress += last;
  transfer.rows = 1;
  expectAnswer(answerTo(*chip, transfer), SchanStatus::ok, 0, 0);
  EXPECT_TRUE(has(kMpls, 4));
}

TEST_F(ExactMatchBulk, CommandsOfAFapRunInTheOrderSent) {
  auto const channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);
  auto const one = [](auto const& what) { return cmd(fapsOf({0, 1}), what); };
  auto const list = [&] {
    return listOf({one(messageOf(kMpls, entryOf(kMpls, 1, 1))),
                   one(std::vector{transferOf(kMpls, {entryOf(kMpls, 1, 2), entryOf(kMpls, 2, 2)})}),
                   one(markOf(kMpls)), one(messageOf(kMpls, entryOf(kMpls, 2, 3))), one(sweepOf(kMpls)),
                   one(messageOf(kMpls, entryOf(kMpls, 3, 4)))});
  };
  for (unsigned round = 0; round < 2; ++round) {
    Sluice::SendOutcome const outcome = channel->send(list());
    EXPECT_TRUE(outcome.ok());
    EXPECT_EQ(outcome.flushPasses, 4U);
    EXPECT_EQ(outcome.flushed, 2U * (round == 0 ? 2 + 1 : 3 + 2));
    for (unsigned fap : {0U, 1U}) {
      EXPECT_FALSE(look(kMpls, 1, fap).has_value());
      EXPECT_EQ(look(kMpls, 2, fap), entryOf(kMpls, 2, 3));
      EXPECT_EQ(look(kMpls, 3, fap), entryOf(kMpls, 3, 4));
    }
  }
}

}  // namespace
