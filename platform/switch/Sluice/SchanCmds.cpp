#include "platform/switch/Sluice/SchanCmds.h"

#include <utility>

#include "runtime/Dovel/Format.h"

namespace Sluice {

SchanCmds::~SchanCmds() {
  markBeingDestroyed();
  while (cmdDeq()) {
  }
}
SchanCmdBatches::~SchanCmdBatches() { markBeingDestroyed(); }

void SchanCmds::cmdEnq(Dovel::Ptr<SchanCmd> const& cmd) {
  DOVEL_ASSERT(cmd != nullptr, "Sluice::SchanCmds", "a null command for a list");
  DOVEL_ASSERT(cmd->next_ == nullptr, "Sluice::SchanCmds", "a command that is in a list already");
  cmd->incUseCount();
  cmd->next_ = cmd.ptr();
  (empty() ? first_ : last_->next_) = cmd.ptr();
  last_ = cmd.ptr();
  ++size_;
}

Dovel::Ptr<SchanCmd> SchanCmds::cmdDeq() {
  if (empty()) return nullptr;
  Dovel::Ptr<SchanCmd> oldest(first_);
  first_ = std::exchange(first_->next_, nullptr);
  --size_;
  oldest->decUseImpl();
  return oldest;
}

void SchanCmds::cmdsEnq(SchanCmds& source) {
  if (&source == this || source.empty()) return;
  (empty() ? first_ : last_->next_) = source.first_;
  last_ = source.last_;
  size_ += std::exchange(source.size_, 0);
}

Dovel::Ptr<SchanCmds> schanCmdsFactory() { return Dovel::ptrIsImpl<SchanCmds>(); }

}  // namespace Sluice
