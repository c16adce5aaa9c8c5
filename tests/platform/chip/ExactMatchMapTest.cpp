#include "platform/chip/ExactMatchMap.h"

#include <gtest/gtest.h>

#include "tests/platform/chip/ExactMatchSupport.h"

namespace {

using Chip::ExactMatchDatabase;
using Chip::ExactMatchMap;

TEST(ExactMatchMap, HasTheDatabasesThatTablesAskFor) {
  EXPECT_EQ(ExactMatchMap::databases().size(), TestSupport::kDatabases.size());
  for (TestSupport::Database const& wanted : TestSupport::kDatabases) {
    ExactMatchDatabase const* const database = ExactMatchMap::find(wanted.physicalTable, wanted.tid);
    ASSERT_NE(database, nullptr);
    EXPECT_EQ(database->physicalTable, wanted.physicalTable);
    EXPECT_EQ(database->tid, wanted.tid);
    EXPECT_EQ(database->entryType, wanted.entryType);
    EXPECT_EQ(database->keyEnd, 9 + wanted.keyBits - 1);
    EXPECT_EQ(database->keyMask(), ((std::uint64_t{1} << wanted.keyBits) - 1) << 9);
  }
}

TEST(ExactMatchMap, HasNoOther) {
  std::size_t count = 0;
  for (std::uint32_t table = 0; table < 100; ++table)
    for (std::uint32_t tid = 0; tid < 100; ++tid)
      if (ExactMatchMap::find(table, tid) != nullptr) ++count;
  EXPECT_EQ(count, TestSupport::kDatabases.size());
  EXPECT_EQ(ExactMatchMap::find(~0U, ~0U), nullptr);
}

TEST(ExactMatchMap, NumbersPhysicalTables) {
  for (std::size_t number = 0; number < ExactMatchMap::kPhysicalTables; ++number)
    EXPECT_EQ(ExactMatchMap::numberOf(ExactMatchMap::physicalTable(number)), number);
  EXPECT_EQ(ExactMatchMap::numberOf(0), ExactMatchMap::kPhysicalTables);
}

}  // namespace
