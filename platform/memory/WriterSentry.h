// Guards the files of a table for its writer, against whoever removes or replaces one of them.
//
// Thread rule: that of FileWatch. The notifiee is called by the scheduler, never from in here.
#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "platform/memory/FileIdentity.h"
#include "platform/memory/FileWatch.h"
#include "platform/memory/RootPath.h"
#include "runtime/Dovel/DebugHandler.h"
#include "runtime/Dovel/String.h"

namespace Mem {

class WriterSentry : private Dovel::Debuggable {
 public:
  class Notifiee {
   public:
    // Files of the table, whose path this is as it was given, are not the ones that they were. Told once for
    // a change. It may put files back in their place, and may destroy the sentry. What it replaces is not
    // told again: what else is replaced until the scheduler has gone round is taken for its work.
    virtual void handleFilesChanged(Dovel::String const& path) = 0;

   protected:
    ~Notifiee() = default;
  };

  // Knows the files as they are now. A file that is not there is no change, and neither is its coming; but if
  // the table is said to be complete, the scheduler's next turn tells of any that is missing already. A
  // writer that itself removes its files ends the sentry first.
  WriterSentry(Dovel::Platform::DebugHandler const& handler, Notifiee& notifiee, RootPath const& rootPath,
               bool isComplete);

 private:
  static constexpr std::size_t kFiles = 5;
  using Files = std::array<std::optional<FileIdentity>, kFiles>;

  Files find() const;
  bool isChange(std::optional<FileIdentity> const& known, std::optional<FileIdentity> const& found) const;
  void look();

  RootPath const rootPath_;
  Notifiee& notifiee_;
  // Of what was replaced, the last look's word stands: the notifiee has answered.
  bool answered_ = false;
  FileWatch::Subscription subscription_;
  Files known_;  // last: found when the directory is watched already
};

}  // namespace Mem
