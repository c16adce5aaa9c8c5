#include "platform/switch/Sluice/ResponseSlots.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace {

using Sluice::FapId;
using Sluice::ResponseSlots;
using Sluice::SchanResponse;
using Sluice::SchanStatus;

auto resetsAre(std::uint64_t count) {
  return [count](FapId) { return count; };
}

TEST(ResponseSlots, GiveOutResponsesWithoutAnAnswer) {
  ResponseSlots slots;
  SchanResponse& response = slots.take();
  EXPECT_FALSE(isAnswered(response));
  responseIs(response, {.status = SchanStatus::bucketFull, .image = {1, 2, 3, 4, 5, 6}});
  EXPECT_TRUE(isAnswered(response));
  EXPECT_EQ(response.image[5], 6U);
  slots.give(response);
  SchanResponse& again = slots.take();
  EXPECT_EQ(&again, &response);
  EXPECT_FALSE(isAnswered(again));
  EXPECT_EQ(again.image[5], 0U);
}

TEST(ResponseSlots, ManyAreHeldAtOnceEachByOneHolderOnly) {
  ResponseSlots slots;
  std::set<SchanResponse*> held;
  for (unsigned number = 0; number < 1000; ++number) held.insert(&slots.take());
  EXPECT_EQ(held.size(), 1000U);
  for (SchanResponse* response : held) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(response) % sizeof(SchanResponse), 0U);
    slots.give(*response);
  }
  std::size_t const size = slots.size();
  for (unsigned number = 0; number < 1000; ++number) EXPECT_EQ(held.count(&slots.take()), 1U);
  EXPECT_EQ(slots.size(), size);
}

TEST(ResponseSlots, WhatWasPutAsideIsGivenToNobodyBeforeItsAnswerCame) {
  ResponseSlots slots;
  SchanResponse& unanswered = slots.take();
  slots.putAside(unanswered, 3, 0);
  slots.lookAgain(resetsAre(0));
  for (unsigned number = 0; number < 200; ++number) EXPECT_NE(&slots.take(), &unanswered);
  EXPECT_EQ(slots.aside().size(), 1U);
  responseIs(unanswered, {.status = SchanStatus::ok});
  slots.lookAgain(resetsAre(0));
  EXPECT_TRUE(slots.aside().empty());
  EXPECT_EQ(slots.late(), 1U);
  EXPECT_EQ(&slots.take(), &unanswered);
}

TEST(ResponseSlots, AResetOfTheFapSetsFreeWhatItOwed) {
  ResponseSlots slots;
  SchanResponse& first = slots.take();
  slots.putAside(first, 3, 0);
  SchanResponse& second = slots.take();
  slots.putAside(second, 4, 0);
  slots.lookAgain([](FapId fap) { return fap == FapId(3) ? 1U : 0U; });
  ASSERT_EQ(slots.aside().size(), 1U);
  EXPECT_EQ(slots.aside()[0].response, &second);
  EXPECT_EQ(&slots.take(), &first);
  EXPECT_EQ(slots.late(), 0U);
}

TEST(ResponseSlots, AResetBeforeTheCommandSetsNothingFree) {
  ResponseSlots slots;
  slots.putAside(slots.take(), 3, 7);
  slots.lookAgain(resetsAre(7));
  EXPECT_EQ(slots.aside().size(), 1U);
}

TEST(ResponseSlots, AnAnswerOfAnotherThreadIsWholeWhenItIsSeen) {
  ResponseSlots slots;
  std::vector<SchanResponse*> owed;
  for (unsigned number = 0; number < 2000; ++number) owed.push_back(&slots.take());
  std::thread chip([&owed] {
    for (unsigned number = 0; number < owed.size(); ++number)
      responseIs(*owed[number], {.status = SchanStatus::ok, .image = {number, 0, 0, 0, 0, number}});
  });
  for (unsigned number = 0; number < owed.size(); ++number) {
    while (!isAnswered(*owed[number])) std::this_thread::yield();
    EXPECT_EQ(owed[number]->image[0], number);
    EXPECT_EQ(owed[number]->image[5], number);
  }
  chip.join();
}

}  // namespace
