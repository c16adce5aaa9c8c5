#include "host/ChipVerify.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "host/ExactMatchVerify.h"
#include "host/MemoryRead.h"
#include "platform/switch/LoamAsicUtils/DirectShadowBase.h"

namespace Host {
namespace {

using LoamAsicUtils::BcmRegMemInfo;
using LoamAsicUtils::DirectShadowBase;
using LoamAsicUtils::HwShadowBase;
using LoamAsicUtils::KeyImage;
using LoamAsicUtils::ShadowType;
using Sluice::FapId;
using Sluice::Fapmask;
using Row = std::span<std::uint8_t const>;

bool isZero(Row row) {
  return std::ranges::all_of(row, [](std::uint8_t byte) { return byte == 0; });
}

// The row of a key, counted from the memory's first one; nothing where it names none.
std::optional<std::uint32_t> rowOf(BcmRegMemInfo const& memory, std::vector<std::uint64_t> const& key) {
  bool const indexed = key.size() == 2;
  auto const array = indexed ? static_cast<std::uint8_t>(key[0]) : memory.firstArray();
  auto const entry = static_cast<std::uint32_t>(key.back());
  if (!memory.hasRow(array, entry)) return std::nullopt;
  return std::uint32_t{static_cast<std::uint8_t>(array - memory.firstArray())} * memory.entryCount() +
         (entry - memory.firstEntry());
}

std::vector<std::uint64_t> keyOf(BcmRegMemInfo const& memory, std::uint32_t row, bool indexed) {
  std::uint64_t const entry = memory.firstEntry() + row % memory.entryCount();
  if (!indexed) return {entry};
  return {std::uint64_t{memory.firstArray()} + row / memory.entryCount(), entry};
}

// What a shadow wants its memories to hold. All of them have the same rows.
class WantedRows {
 public:
  WantedRows(ControlPlane& plane, LiveTable const& live, DirectShadowBase const& shadow)
      : memory_(shadow.bcmGroupAddrInfo()->firstMemory()),
        rowBytes_(memory_.entrySize()),
        default_(shadow.defaultEntry(), rowBytes_),
        data_(std::size_t{memory_.rowCount()} * rowBytes_),
        rows_(memory_.rowCount()) {
    for (std::uint32_t row = 0; row < rows_.size(); ++row) put(row, default_);
    auto const& access = live.access();
    bool const full = live.table->shadowMode() == ShadowType::keyBasedFull;
    for (Wanted& row : rows_) row.ours = full;
    for (KeyImage const& key : plane.writer().touchedKeys(shadow))
      if (auto const row = rowOf(memory_, access.keyMembers(key))) rows_[*row].ours = true;
    access.forEachEntry(shadow, [&](KeyImage const& key, std::uint32_t view, Row payload) {
      auto const row = rowOf(memory_, access.keyMembers(key));
      if (!row) return;
      put(*row, payload);
      rows_[*row] = {.ours = true, .stored = true, .view = view};
    });
    for (auto const& [key, refusal] : plane.writer().refusals(shadow))
      if (auto const row = rowOf(memory_, access.keyMembers(key))) refusals_[*row] = &refusal;
  }

  std::uint32_t count() const { return static_cast<std::uint32_t>(rows_.size()); }
  bool isOurs(std::uint32_t row) const { return rows_[row].ours; }
  std::uint32_t view(std::uint32_t row) const { return rows_[row].view; }
  Row wanted(std::uint32_t row) const { return {data_.data() + std::size_t{row} * rowBytes_, rowBytes_}; }

  // Of a row that holds something else than wanted.
  RowState stateOf(std::uint32_t row, Row found, FapId fap) const {
    if (auto const refusal = refusals_.find(row);
        refusal != refusals_.end() && refusal->second->fapmask.fapId(fap))
      return Host::stateOf(*refusal->second);
    if (isZero(found) || std::ranges::equal(found, default_)) return RowState::missing;
    return rows_[row].stored ? RowState::different : RowState::stale;
  }

 private:
  struct Wanted {
    bool ours = false;
    bool stored = false;
    std::uint32_t view = 0;
  };

  void put(std::uint32_t row, Row payload) {
    std::ranges::copy(payload, data_.begin() + std::ptrdiff_t{row} * static_cast<std::ptrdiff_t>(rowBytes_));
  }

  BcmRegMemInfo const& memory_;
  std::size_t rowBytes_;
  Row default_;
  std::vector<std::uint8_t> data_;
  std::vector<Wanted> rows_;
  std::map<std::uint32_t, LoamAsicUtils::TableWriter::Refusal const*> refusals_;
};

class Comparison {
 public:
  Comparison(ControlPlane& plane, LiveTable const& live, Verdict& verdict)
      : plane_(plane), live_(live), verdict_(verdict) {}

  void compare(HwShadowBase const& shadow, Fapmask const& faps) {
    auto const& direct = static_cast<DirectShadowBase const&>(shadow);
    WantedRows const wanted(plane_, live_, direct);
    for (FapId const fap : faps.fapIds()) {
      for (auto const& memory : shadow.bcmGroupAddrInfo()->memories()) {
        for (auto const& instance : memory->instances()) {
          if (shadow.instanceConvergentShadow() ||
              instance->instanceId() == shadow.hwShadowKey().instanceId())
            compare(wanted, fap, *memory, *instance);
        }
      }
    }
  }

 private:
  void compare(WantedRows const& wanted, FapId fap, BcmRegMemInfo const& memory,
               LoamAsicUtils::BcmInstanceInfo const& instance) {
    MemoryRead const read(plane_, fap, memory, instance);
    for (std::uint32_t row = 0; row < wanted.count(); ++row) {
      if (!wanted.isOurs(row)) continue;
      ++verdict_.rows;
      Row const found = read.row(row);
      if (std::ranges::equal(found, wanted.wanted(row))) continue;
      RowState const state = found.empty() ? RowState::unread : wanted.stateOf(row, found, fap);
      ++verdict_.counts[static_cast<std::size_t>(state)];
      Row const right = wanted.wanted(row);
      verdict_.bad.push_back({state,
                              fap,
                              &live_,
                              memory.name().view(),
                              keyOf(memory, row, live_.description->key.size() == 2),
                              wanted.view(row),
                              {right.begin(), right.end()},
                              {found.begin(), found.end()}});
    }
  }

  ControlPlane& plane_;
  LiveTable const& live_;
  Verdict& verdict_;
};

Fapmask masked(Fapmask mask, Fapmask const& by) {
  mask &= by;
  return mask;
}

}  // namespace

std::string_view nameOf(RowState state) {
  static constexpr std::array<std::string_view, kRowStates> kNames{
      "missing", "stale", "different", "refused", "pending", "unread", "marked"};
  return kNames[static_cast<std::size_t>(state)];
}

RowState stateOf(LoamAsicUtils::TableWriter::Refusal const& refusal) {
  return refusal.status == Sluice::SchanStatus::noResponse ? RowState::pending : RowState::refused;
}

Verdict verifyChips(ControlPlane& plane, std::vector<LiveTable const*> const& tables, Fapmask const& faps,
                    std::function<void()> const& seen) {
  plane.writer().flush();
  Verdict verdict;
  for (LiveTable const* const live : tables) {
    auto const begin = std::chrono::steady_clock::now();
    std::uint64_t const before = verdict.rows;
    for (auto const& [key, shadow] : live->table->hwShadowColl()) {
      Fapmask const applicable = shadow->applicableFapmask(masked(live->table->fapmask(), faps));
      if (live->isExactMatch()) {
        compareEntries(plane, *live, *shadow, applicable, verdict);
      } else {
        Comparison(plane, *live, verdict).compare(*shadow, applicable);
      }
    }
    plane.verified(*live, verdict.rows - before, std::chrono::steady_clock::now() - begin);
    if (seen) seen();
  }
  return verdict;
}

}  // namespace Host
