#include "platform/switch/Sluice/SchanCmds.h"

#include <utility>

namespace Sluice {

SchanCmds::~SchanCmds() { markBeingDestroyed(); }
SchanCmdBatches::~SchanCmdBatches() { markBeingDestroyed(); }

void SchanCmds::cmdEnq(Dovel::Ptr<SchanCmd> const& cmd) { cmds_.push_back(cmd); }

Dovel::Ptr<SchanCmd> SchanCmds::cmdDeq() {
  if (empty()) return nullptr;
  Dovel::Ptr<SchanCmd> oldest = std::move(cmds_[oldest_++]);
  if (empty()) {
    cmds_.clear();
    oldest_ = 0;
  }
  return oldest;
}

void SchanCmds::cmdsEnq(SchanCmds& source) {
  if (&source == this) return;
  cmds_.reserve(cmds_.size() + source.size());
  while (Dovel::Ptr<SchanCmd> cmd = source.cmdDeq()) cmds_.push_back(std::move(cmd));
}

Dovel::Ptr<SchanCmds> schanCmdsFactory() { return Dovel::ptrIsImpl<SchanCmds>(); }

}  // namespace Sluice
