// What tables take memory for, and what not.
#include "tests/LoamSharedHwTables/ExactMatchRig.h"
#include "tests/support/Sanitizers.h"

#if !HWTABLES_ASAN && !HWTABLES_TSAN
#include "tests/support/CountedMalloc.h"

namespace {

using bcm88490_a0::SmallBbHwDirect;
using TestSupport::allocations;
using TestSupport::keyOfRow;
using TestSupport::maskOf;
using TestSupport::ShadowKey;
using TestSupport::TableRig;

ShadowKey const kShared(Sluice::FapId::null(), 0);

class DirectCost : public testing::Test {
 protected:
  static SmallBbHwDirect::Entry entryAt(SmallBbHwDirect::EntryKey const& key, std::uint8_t content) {
    SmallBbHwDirect::Entry entry(key);
    entry.data0Is(content);
    return entry;
  }

  TableRig rig_{{.bufSize = 65536, .buffers = 64}};
  SmallBbHwDirect& table_ = rig_.makeWithFaps<SmallBbHwDirect>();
};

TEST_F(DirectCost, RewritingEntriesAndSendingThemTakesNoMemory) {
  std::uint32_t const rows = 3000;
  auto const writeAll = [&](std::uint8_t content) {
    for (std::uint32_t row = 0; row < rows; ++row)
      table_.setEntry(kShared, entryAt(keyOfRow(table_, row), content));
    rig_.writer->flush();
  };
  writeAll(1);
  writeAll(2);
  std::uint64_t const before = allocations;
  writeAll(3);
  EXPECT_EQ(allocations, before);
}

TEST_F(DirectCost, ADownloadTakesMemoryForItsCommandsAndNoneForItsRows) {
  for (std::uint32_t row = 0; row < 8000; ++row) table_.setEntry(kShared, entryAt(keyOfRow(table_, row), 1));
  rig_.writer->download(table_, maskOf({0}));
  std::uint64_t const before = allocations;
  auto const cmds = table_.download("generation4", maskOf({0}));
  // 16,384 rows of 64 bytes in buffers of 64 KiB.
  EXPECT_EQ(cmds->size(), 16U);
  EXPECT_LE(allocations - before, 4 * cmds->size());
}

struct ExactMatchCost : testing::Test {
  void writeAll(std::uint32_t result) {
    for (std::uint32_t number = 0; number < 3000; ++number)
      table.setEntry(kShared, TestSupport::numberedEntry<bcm88490_a0::MplsIsemHwEm>(number, result));
  }

  TableRig rig{{.bufSize = 65536, .buffers = 64}};
  bcm88490_a0::MplsIsemHwEm& table = rig.makeWithFaps<bcm88490_a0::MplsIsemHwEm>();
};

TEST_F(ExactMatchCost, RewritingEntriesAndSendingThemTakesNoMemory) {
  for (std::uint32_t const result : {1U, 2U}) {
    writeAll(result);
    rig.writer->flush();
  }
  std::uint64_t const before = allocations;
  writeAll(3);
  rig.writer->flush();
  EXPECT_EQ(allocations, before);
}

TEST_F(ExactMatchCost, ADownloadTakesMemoryForItsCommandsAndNoneForItsEntries) {
  writeAll(1);
  rig.writer->download(table, maskOf({0}));
  std::uint64_t const before = allocations;
  auto const cmds = table.download("generation4", maskOf({0}));
  // 2,730 entries of 24 bytes to a buffer of 64 KiB.
  EXPECT_EQ(cmds->size(), 2U);
  EXPECT_LE(allocations - before, 6 * cmds->size());
}

}  // namespace

#endif
