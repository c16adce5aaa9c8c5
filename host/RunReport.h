// What a run tells while it goes on, as text for people or as JSON Lines, and its summary. One thread.
#pragma once

#include <string>
#include <vector>

#include "host/ChipVerify.h"
#include "host/ControlPlane.h"
#include "host/InputError.h"
#include "host/Output.h"

namespace Host {

class RunReport {
 public:
  explicit RunReport(bool json) : json_(json) {}

  // What an operation has done. Empty texts are left out.
  void event(Json const& event, std::string const& text);
  void formerStore(FormerStore const& former);
  void started(ControlPlane::Start const& start);
  // A chip has reset itself.
  void resetItself(Sluice::FapId fap);
  void entry(LiveTable const& table, LoamAsicUtils::HwShadowKey shadow, std::vector<std::uint64_t> const& key,
             LoamAsicUtils::RowImage const& row, bool stored);
  void verdict(Verdict const& verdict, Sluice::Fapmask const& faps);
  // What was sent and how the chips took it.
  void sent(std::string_view operation, Sluice::SendOutcome const& outcome);
  // Tables that were brought back in step: for people how many, and by name those that have failed or of
  // which something was removed.
  void reconciled(std::vector<ControlPlane::Reconciliation> const& tables);
  void syncDone(std::vector<ControlPlane::Reconciliation> const& tables);
  // A line of input that was refused, on standard error.
  void refused(std::string const& where, std::string_view why);
  // Of the tables for which anything was done.
  void summary(ControlPlane const& plane, std::chrono::nanoseconds time);
  // Everything so far has been written when this returns.
  void finish() { output_.finish(); }

 private:
  void eachReconciled(std::vector<ControlPlane::Reconciliation> const& tables);

  bool const json_;
  Output output_;
};

}  // namespace Host
