// The sequence that brings an exact-match table of the chip back in step with its shadow without taking it
// down: every entry of the table is marked, the shadow is downloaded, which takes the mark off what belongs
// there, and what is still marked is swept out.
//
// It says what is to be done next and is told how that went; whoever owns the way to the chips does it
// (TableWriter does). Belongs to the table's thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/switch/LoamAsicUtils/HwTableStats.h"
#include "platform/switch/Sluice/Fapmask.h"

namespace LoamAsicUtils {

class HwCommonTableBase;
class TableManager;

// One run of the sequence.
struct MarkSweepRequestKey {
  std::uint64_t number = 0;  // counts the runs of the table, from 1
  Sluice::Fapmask fapmask;
};

class MarkSweepTableSm : public Dovel::Tracked<MarkSweepTableSm> {
 public:
  using State = MarkSweepState;

  // What it is made for outlives it.
  MarkSweepTableSm(TableManager const* manager, HwCommonTableBase* table, HwTableStats* stats)
      : manager_(manager), table_(table), stats_(stats) {}
  ~MarkSweepTableSm() override { markBeingDestroyed(); }

  State state() const { return state_; }
  bool isActive() const {
    return state_ == State::marking || state_ == State::downloading || state_ == State::sweeping;
  }
  // The run that is under way, or was the last.
  MarkSweepRequestKey const& request() const { return request_; }

  // Asks for a run over the FAPs, and tells the manager's watcher. One that is under way isn't disturbed: all
  // that is asked for meanwhile becomes one further run.
  void requestIs(Sluice::Fapmask const& fapmask);

  // The commands of the state's step were all answered: well enough to go on, or not. Done reaches the
  // table's handleGlobalStatus(). After either end the run that was asked for meanwhile begins.
  void stepDone(bool good);
  // The FAP has gone or has become blank: a run over it has failed.
  void fapGone(Sluice::FapId fap);

 private:
  void begin(Sluice::Fapmask const& fapmask);
  void end(State state);
  void stateIs(State state);

  TableManager const* manager_;
  HwCommonTableBase* table_;
  HwTableStats* stats_;
  State state_ = State::idle;
  MarkSweepRequestKey request_;
  Sluice::Fapmask waiting_;
};

std::string_view stringValue(MarkSweepState state);

}  // namespace LoamAsicUtils
