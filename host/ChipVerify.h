// Compares what chips hold with what the tables want them to, row by row, read through the same channel as
// everything else. One thread, that of the control plane.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ControlPlane.h"

namespace Host {

// What is the matter with a row.
enum class RowState : std::uint8_t {
  missing,    // the chip has nothing, or a default, where something else belongs
  stale,      // the chip still has something where nothing was written, or what was has been deleted
  different,  // the chip has something else
  refused,    // it isn't right, and the chip has refused to take it
  pending,    // it isn't right, and the chip has not answered
  unread,     // the chip didn't let it be read
  marked,     // it is right, but a reconciliation that has begun would sweep it out
};
inline constexpr std::size_t kRowStates = 7;
std::string_view nameOf(RowState state);

// Of a row that isn't right and was refused.
RowState stateOf(LoamAsicUtils::TableWriter::Refusal const& refusal);

struct BadRow {
  RowState state;
  Sluice::FapId fap;
  LiveTable const* table;
  std::string_view memory;
  std::vector<std::uint64_t> key;  // members; none where all of a table can't be read and nothing is stored
  std::uint32_t view;
  std::vector<std::uint8_t> wanted;  // empty where nothing is
  std::vector<std::uint8_t> found;   // empty where there is nothing, or it couldn't be read
};

struct Verdict {
  std::uint64_t rows = 0;  // that were compared, those that couldn't be read among them
  std::array<std::uint64_t, kRowStates> counts{};
  std::vector<BadRow> bad;

  std::uint64_t count(RowState state) const { return counts[static_cast<std::size_t>(state)]; }
  // Rows that are known not to be on the chip are no surprise; those that can't be read may be one.
  bool clean() const {
    return count(RowState::missing) + count(RowState::stale) + count(RowState::different) +
               count(RowState::unread) + count(RowState::marked) ==
           0;
  }
};

// Sends what is left, then compares the tables on those FAPs of the mask that are up: whole memories, of
// tables that are written in part the rows that stand in the store or were written since it was made, and all
// entries of exact-match tables. A stored key that names no row is passed over. Every table is told to `seen`
// once it is done.
Verdict verifyChips(ControlPlane& plane, std::vector<LiveTable const*> const& tables,
                    Sluice::Fapmask const& faps, std::function<void()> const& seen = {});

}  // namespace Host
