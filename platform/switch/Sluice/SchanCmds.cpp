#include "platform/switch/Sluice/SchanCmds.h"

#include <utility>

#include "runtime/Dovel/Format.h"

namespace Sluice {

SchanCmds::~SchanCmds() { markBeingDestroyed(); }
SchanCmdBatches::~SchanCmdBatches() { markBeingDestroyed(); }

void SchanCmds::cmdEnq(Dovel::Ptr<SchanCmd> const& cmd) {
  DOVEL_ASSERT(cmd != nullptr, "Sluice::SchanCmds", "a null command for a list");
  cmds_.push_back(cmd);
}

Dovel::Ptr<SchanCmd> SchanCmds::cmdDeq() {
  if (empty()) return nullptr;
  Dovel::Ptr<SchanCmd> oldest = std::move(cmds_.front());
  cmds_.pop_front();
  return oldest;
}

void SchanCmds::cmdsEnq(SchanCmds& source) {
  if (&source == this) return;
  for (; !source.empty(); source.cmds_.pop_front()) cmds_.push_back(std::move(source.cmds_.front()));
}

Dovel::Ptr<SchanCmds> schanCmdsFactory() { return Dovel::ptrIsImpl<SchanCmds>(); }

}  // namespace Sluice
