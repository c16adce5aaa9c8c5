// Lists of commands. A null Ptr<SchanCmds> means that there is nothing to do, which is not the same as an
// empty list. A list belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <vector>

#include "platform/switch/Sluice/SchanCmd.h"
#include "runtime/Dovel/PtrIs.h"

namespace Sluice {

// First in, first out. A command is in one list at most, so that the links stand in the commands and a list
// of any length takes no memory of its own.
class SchanCmds : public Dovel::Tracked<SchanCmds> {
 public:
  ~SchanCmds() override;

  // A null command, or one that is in a list, is a fault of the program and ends the process.
  void cmdEnq(Dovel::Ptr<SchanCmd> const& cmd);
  // Removes the oldest command; null when the list is empty.
  Dovel::Ptr<SchanCmd> cmdDeq();
  // Moves all commands of another list to the end of this one, in their order.
  void cmdsEnq(SchanCmds& source);

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

 private:
  // Each command in the list has one use from it.
  SchanCmd* first_ = nullptr;
  SchanCmd* last_ = nullptr;
  std::size_t size_ = 0;
};

Dovel::Ptr<SchanCmds> schanCmdsFactory();

// Groups of command lists, for the audit of a table.
class SchanCmdBatches : public Dovel::Tracked<SchanCmdBatches> {
 public:
  ~SchanCmdBatches() override;

  void batchIs(Dovel::Ptr<SchanCmds> const& batch) { batches_.push_back(batch); }
  std::vector<Dovel::Ptr<SchanCmds>> const& batches() const { return batches_; }

 private:
  std::vector<Dovel::Ptr<SchanCmds>> batches_;
};

}  // namespace Sluice
