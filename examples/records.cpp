// A row of the MPLS termination table: set in fields, stored in bits, found again by its key.
#include <fmt/format.h>

#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"

int main() {
  using Table = bcm88490_a0::MplsIsemHwEm;

  Table::Entry entry(Table::EntryKey(100, 1));  // label 100, bottom of stack
  entry.inLifIs(42);
  fmt::print("label {} goes to interface {}\n", entry.mplsLabel(), entry.inLif());
  fmt::print("{}\n", entry);

  Table::Entry fromChip;  // bytes without a key, as they come back from the chip
  fromChip.entryIs(entry.entry());
  fromChip.setKeyFromBuffer();
  fmt::print("found again: {}\n", fromChip.entryKey() == entry.entryKey());

  try {
    entry.inLifIs(1 << 19);
  } catch (Dovel::RangeException const& refused) {
    fmt::print("refused: {}\n", refused.msg());
  }
}
