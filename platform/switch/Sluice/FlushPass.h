// A pass of the chip's flush machine over one exact-match database. Plain values.
#pragma once

#include <cstdint>

#include "platform/switch/LoamAsicUtils/FlushTypes.h"

namespace Sluice {

// The database is that of the physical table, in the instance, with the table id: tables that share a
// physical table are told apart by the id, and a pass never sees the entries of another one.
struct FlushPass {
  enum class Action : std::uint8_t {
    remove,  // entries that match go
    merge,   // they stay, with the payload merged into them
    read,    // they stay as they are and are copied into the buffer
  };

  Action action = Action::remove;
  std::uint32_t block = 0;
  std::uint32_t location = 0;
  std::uint32_t physicalTableId = 0;
  std::uint32_t core = 0;
  std::uint32_t tid = 0;
  std::uint32_t entryType = 0;
  LoamAsicUtils::FlushRuleEntryType rule{};
  LoamAsicUtils::FlushCmdPayloadType payload{};  // merge

  // Where a read puts entries of 24 bytes, as their writers gave them but for the chip's own fields, and how
  // many at most; and where in the database it goes on, 0 for its start.
  std::uint64_t dmaAddress = 0;
  std::uint32_t capacity = 0;
  std::uint32_t from = 0;
};

// In the image of a pass's answer.
struct FlushAnswer {
  std::uint32_t entries;  // that matched, and were removed, merged or read
  std::uint32_t next;     // where a read goes on that had no room for more; 0 when it is at the end
};

}  // namespace Sluice
