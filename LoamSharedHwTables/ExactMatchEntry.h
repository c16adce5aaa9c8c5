// The row of an exact-match table: at once the software record and the image that goes to the chip. Its
// layout is
//     0..8 command | 9.. key, gap, payload, up to 144 vmv | 145..180 chip's answer, entry type, table id
// and bits 9..144 are the image that flush rules and the bulk download work on. See EntryRecord.h for the
// thread rule.
#pragma once

#include "LoamSharedHwTables/EntryRecord.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamSharedHwTables {

// Entry has the fields of the skeleton and initPresetFields().
template <class Entry, class Traits, class Key>
class ExactMatchEntry : public EntryRecord<Traits, Key> {
 public:
  // Writes one half of a flush rule, its values or its mask, into an entry that holds its presets or zeroes:
  // the sweep bit (1 in both halves; where the table has none, nothing), then vmv and entryType, and the
  // result type where it is asked for and the table has one.
  void formEntryForFlush(bool isMask, bool useSweepBit, bool useEntryType, bool useResultType) {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, "Entry", " useSweepBit {} useEntryType {} useResultType {}",
                useSweepBit, useEntryType, useResultType);
    auto& entry = static_cast<Entry&>(*this);
    if constexpr (requires { entry.sweepBitIs(1); }) {
      if (useSweepBit) entry.sweepBitIs(1);
    }
    if (!useEntryType && !useResultType) return;
    Entry preset;
    preset.initPresetFields();
    entry.vmvIs(half(isMask, preset.vmv()));
    entry.entryTypeIs(half(isMask, preset.entryType()));
    if constexpr (requires { entry.resultType(); }) {
      if (useResultType) entry.resultTypeIs(half(isMask, preset.resultType()));
    }
  }

 protected:
  using EntryRecord<Traits, Key>::EntryRecord;

 private:
  template <class Field>
  static Field half(bool isMask, Field value) {
    return isMask ? Field::max() : value;
  }
};

}  // namespace LoamSharedHwTables
