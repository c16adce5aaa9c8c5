// The operations of a run: each a JSON object with the member "op". docs/run.md has them all. One thread,
// that of the control plane.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ControlPlane.h"
#include "host/InputError.h"
#include "host/RunReport.h"

namespace Host {

class RunOperations {
 public:
  RunOperations(ControlPlane& plane, unsigned faps, RunReport& report);

  // Brings up all FAPs.
  void start();
  // Runs the operation of a line. Throws InputError, and has done nothing then, where it isn't one.
  void run(std::string const& line);

  // No verify has found the chips otherwise than they should be.
  bool allClean() const { return allClean_; }
  // Called once in a while in long operations.
  void whileBusy(std::function<void()> call) { busy_ = std::move(call); }

  struct Member {
    std::string_view name;
    bool required;
  };
  struct Operation {
    std::string_view name;
    std::vector<Member> members;
    void (RunOperations::*run)(Json const& given);
  };
  static std::vector<Operation> const& operations();

 private:
  void set(Json const& given);
  void del(Json const& given);
  void get(Json const& given);
  void flush(Json const& given);
  void fapAdd(Json const& given);
  void fapDel(Json const& given);
  void chipReset(Json const& given);
  void download(Json const& given);
  void clear(Json const& given);
  void restart(Json const& given);
  void syncDone(Json const& given);
  void reconcile(Json const& given);
  void verify(Json const& given);
  void chipFault(Json const& given);

  LiveTable const& tableOf(Json const& given) const;
  // That of the name, or all of them.
  std::vector<LiveTable const*> tablesOf(Json const& given) const;
  // The null FAP where none is given.
  Sluice::FapId fapOf(Json const& given) const;
  // The one that is given, or all that are up.
  Sluice::Fapmask upFapsOf(Json const& given) const;
  void tellResets();

  ControlPlane& plane_;
  unsigned const faps_;
  RunReport& report_;
  ControlPlane::Tell const tell_;
  std::vector<std::uint64_t> resets_;
  std::function<void()> busy_;
  bool allClean_ = true;
};

}  // namespace Host
