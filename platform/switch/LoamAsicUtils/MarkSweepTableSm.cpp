#include "platform/switch/LoamAsicUtils/MarkSweepTableSm.h"

#include <array>
#include <utility>

#include "platform/switch/LoamAsicUtils/TableManager.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("MarkSweepTableSm")

}  // namespace

std::string_view stringValue(MarkSweepState state) {
  static constexpr std::array<std::string_view, kMarkSweepStates> kNames{"idle",     "marking", "downloading",
                                                                         "sweeping", "done",    "failed"};
  return kNames[static_cast<std::size_t>(state)];
}

void MarkSweepTableSm::requestIs(Sluice::Fapmask const& fapmask) {
  if (isActive()) {
    waiting_ |= fapmask;
  } else {
    begin(fapmask);
  }
  if (ShadowWatcher* const watcher = manager_->shadowWatcher()) watcher->markAndSweepDue(*table_);
}

void MarkSweepTableSm::begin(Sluice::Fapmask const& fapmask) {
  request_ = {request_.number + 1, fapmask};
  stateIs(State::marking);
}

void MarkSweepTableSm::stepDone(bool good) {
  DOVEL_ASSERT(isActive(), "MarkSweepTableSm", "table {} has no step in the state {}", table_->name(),
               stringValue(state_));
  if (!good) return end(State::failed);
  if (state_ == State::sweeping) return end(State::done);
  stateIs(state_ == State::marking ? State::downloading : State::sweeping);
}

void MarkSweepTableSm::fapGone(Sluice::FapId fap) {
  waiting_.fapIdIs(fap, false);
  if (isActive() && request_.fapmask.fapId(fap)) end(State::failed);
}

void MarkSweepTableSm::end(State state) {
  stateIs(state);
  if (state == State::done) table_->handleGlobalStatus(request_);
  Sluice::Fapmask const waiting = std::exchange(waiting_, Sluice::Fapmask());
  if (waiting != Sluice::Fapmask()) begin(waiting);
}

void MarkSweepTableSm::stateIs(State state) {
  DOVEL_TRACE(_defaultTraceHandle(), state == State::failed ? 1 : 5, "MarkSweepTableSm",
              "table {} run {} FAPs {}: {} -> {}", table_->name(), request_.number, request_.fapmask,
              stringValue(state_), stringValue(state));
  state_ = state;
  stats_->markSweepCntInc(state);
}

}  // namespace LoamAsicUtils
