// The checker of histories, given right ones and wrong ones.
#include "tests/Vault/TortureHistory.h"

#include <gmock/gmock.h>

#include <array>

#include "tests/Vault/TortureRecord.h"

namespace {

using namespace Torture;
using testing::HasSubstr;
using testing::IsEmpty;

// A key that has version 1, then 3.
struct Written : KeyHistory {
  Written() {
    begin(true);
    acknowledge();
    begin(true);
    acknowledge();
  }
};

TEST(TortureHistory, TakesTheCurrentVersion) {
  Written key;
  EXPECT_THAT(Question(key).found(3), IsEmpty());
}

TEST(TortureHistory, TellsAStaleVersion) {
  Written key;
  EXPECT_THAT(Question(key).found(1), HasSubstr("found version 1, though 3 had been current"));
}

TEST(TortureHistory, TakesAVersionThatWasCurrentWhenTheQuestionBegan) {
  Written key;
  Question question(key);
  key.begin(true);
  key.acknowledge();
  EXPECT_THAT(question.found(3), IsEmpty());
}

TEST(TortureHistory, TellsAVersionFromTheFuture) {
  Written key;
  EXPECT_THAT(Question(key).found(5), HasSubstr("found version 5, of which only 3 was begun"));
}

TEST(TortureHistory, TakesAVersionThatIsBegunAndThenNoOlderOne) {
  Written key;
  Question before(key);
  key.begin(true);
  EXPECT_THAT(Question(key).found(3), IsEmpty());
  EXPECT_THAT(Question(key).found(5), IsEmpty());
  EXPECT_THAT(Question(key).found(3), HasSubstr("found version 3, though 5"));
  EXPECT_THAT(before.found(3), IsEmpty()) << "asked before any reader was told of 5";
}

TEST(TortureHistory, TellsAVersionThatWasNeverARecord) {
  Written key;
  key.begin(false);
  EXPECT_THAT(Question(key).found(4), HasSubstr("never a record"));
}

TEST(TortureHistory, TellsAMissWithoutARemoval) {
  Written key;
  EXPECT_THAT(Question(key).missed(), HasSubstr("missed, though version 3 was current"));
}

TEST(TortureHistory, TellsAMissWhileTheRecordIsOverwritten) {
  Written key;
  Question question(key);
  key.begin(true);
  EXPECT_THAT(question.missed(), HasSubstr("missed"));
  key.acknowledge();
  EXPECT_THAT(question.missed(), HasSubstr("missed"));
}

TEST(TortureHistory, TellsAMissThatOnlyAnOlderRemovalWouldExplain) {
  Written key;
  key.begin(false);
  key.acknowledge();
  EXPECT_THAT(Question(key).missed(), IsEmpty());
  key.begin(true);
  key.acknowledge();
  EXPECT_THAT(Question(key).missed(), HasSubstr("no removal begun since 4"));
}

TEST(TortureHistory, TakesAMissBeforeTheFirstWriteAndWhileOneIsUnderWay) {
  KeyHistory key;
  EXPECT_THAT(Question(key).missed(), IsEmpty());
  Question question(key);
  key.begin(true);
  EXPECT_THAT(question.missed(), IsEmpty());
  EXPECT_THAT(Question(key).missed(), IsEmpty());
}

TEST(TortureHistory, TakesAMissThatWasTrueForAMomentOfTheQuestion) {
  Written key;
  Question question(key);
  key.begin(false);
  key.acknowledge();
  key.begin(true);
  key.acknowledge();
  EXPECT_THAT(question.missed(), IsEmpty());
}

TEST(TortureHistory, TellsARecordAfterAReaderWasToldOfItsRemoval) {
  Written key;
  key.begin(false);
  EXPECT_THAT(Question(key).found(3), IsEmpty());
  EXPECT_THAT(Question(key).missed(), IsEmpty());
  EXPECT_THAT(Question(key).found(3), HasSubstr("found version 3, though 4"));
}

TEST(TortureHistory, TellsAMissAfterAReaderWasToldOfTheRecord) {
  KeyHistory key;
  key.begin(true);
  EXPECT_THAT(Question(key).found(1), IsEmpty());
  EXPECT_THAT(Question(key).missed(), HasSubstr("missed, though version 1"));
}

TEST(TortureHistory, TakesFromASlotWhatNothingLeadsToYetOrAnyMore) {
  Written key;
  key.begin(false);
  EXPECT_THAT(Question(key).missed(), IsEmpty());
  EXPECT_THAT(Question(key).foundInSlot(3), IsEmpty());
  key.acknowledge();
  EXPECT_THAT(Question(key).foundInSlot(3), HasSubstr("found in its slot version 3, though 4"));
  key.begin(true);
  EXPECT_THAT(Question(key).foundInSlot(5), IsEmpty());
  EXPECT_THAT(Question(key).missed(), IsEmpty());
  EXPECT_THAT(Question(key).foundInSlot(7), HasSubstr("only 5 was begun"));
}

TEST(TortureHistory, TellsARecordThatANewWriterDoesNotFind) {
  Written key;
  key.beginWipe();
  EXPECT_THAT(key.recovered(0, false), HasSubstr("version 3 is lost"));
}

TEST(TortureHistory, TakesTheLossOfARecordWithItsTableOrByTheRemovalThatWasUnderWay) {
  Written wiped;
  wiped.beginWipe();
  EXPECT_THAT(wiped.recovered(0, true), IsEmpty());
  EXPECT_THAT(Question(wiped).missed(), IsEmpty());
  EXPECT_THAT(Question(wiped).found(3), HasSubstr("found version 3, though 4"));
  Written removed;
  removed.begin(false);
  removed.beginWipe();
  EXPECT_THAT(removed.recovered(0, false), IsEmpty());
}

TEST(TortureHistory, TellsAnOldVersionThatANewWriterFinds) {
  Written key;
  key.begin(true);
  EXPECT_THAT(Question(key).found(5), IsEmpty());
  key.beginWipe();
  EXPECT_THAT(key.recovered(3, false), HasSubstr("a new writer found version 3, though 5"));
}

TEST(TortureHistory, TellsAMissThatOnlyARemovalThatNeverCameWouldExplain) {
  Written key;
  key.begin(false);
  key.beginWipe();
  EXPECT_THAT(key.recovered(3, false), IsEmpty());
  EXPECT_THAT(Question(key).missed(), HasSubstr("missed"));
  EXPECT_GT(key.begin(true), 4U);
}

TEST(TortureHistory, TellsAWalkThatLeavesOutARecord) {
  std::array<KeyHistory, 2> keys;
  keys[1].begin(true);
  keys[1].acknowledge();
  EXPECT_THAT(Walk(keys).ended(), HasSubstr("walked past key 1 of version 1"));
  Walk whole(keys);
  EXPECT_THAT(whole.returned(1, {7, 1}, 1), IsEmpty());
  EXPECT_THAT(whole.ended(), IsEmpty());
}

TEST(TortureHistory, TakesAWalkThatLeavesOutWhatIsRemovedMeanwhile) {
  std::array<KeyHistory, 1> keys;
  keys[0].begin(true);
  keys[0].acknowledge();
  Walk walk(keys);
  keys[0].begin(false);
  keys[0].acknowledge();
  keys[0].begin(true);
  EXPECT_THAT(walk.ended(), IsEmpty());
}

TEST(TortureHistory, TellsAWalkThatGoesBackOrComesTwice) {
  std::array<KeyHistory, 2> keys;
  for (KeyHistory& key : keys) {
    key.begin(true);
    key.acknowledge();
  }
  Walk walk(keys);
  EXPECT_THAT(walk.returned(0, {8, 0}, 1), IsEmpty());
  EXPECT_THAT(walk.returned(0, {8, 0}, 1), HasSubstr("walked to key 0 at 8, which is not behind 8"));
  EXPECT_THAT(walk.returned(1, {7, 1}, 1), HasSubstr("which is not behind"));
}

TEST(TortureHistory, TellsAWalkToAStaleVersionAndOneFromTheFuture) {
  std::array<KeyHistory, 2> keys;
  for (KeyHistory& key : keys) {
    key.begin(true);
    key.begin(true);
    key.acknowledge();
  }
  Walk walk(keys);
  EXPECT_THAT(walk.returned(0, {1, 0}, 1), HasSubstr("walked to version 1, though 3"));
  EXPECT_THAT(walk.returned(1, {2, 1}, 5), HasSubstr("walked to version 5, of which only 3"));
  EXPECT_THAT(walk.returned(2, {3, 2}, 1), HasSubstr("never written"));
}

TEST(TortureRecord, TellsEachTornWord) {
  Record const one = Record::of({9}, 3);
  Record const other = Record::of({9}, 5);
  Record const alien = Record::of({10}, 3);
  EXPECT_TRUE(one.isWhole());
  for (std::size_t word = 0; word < one.words.size(); ++word) {
    Record torn = one;
    torn.words[word] = other.words[word];
    EXPECT_FALSE(torn.isWhole()) << word;
    torn.words[word] = alien.words[word];
    // The version is the same for both keys.
    EXPECT_EQ(torn.isWhole(), word == 0) << word;
  }
  Record torn = one;
  torn.theKey = alien.theKey;
  EXPECT_FALSE(torn.isWhole());
}

}  // namespace
