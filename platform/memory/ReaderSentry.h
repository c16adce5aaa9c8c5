// Waits for a table to become complete, and for its end. A table is complete while its control file is there
// and its ember file holds a generation.
//
// Thread rule: that of FileWatch. The notifiee is called by the scheduler, never from in here.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/memory/FileIdentity.h"
#include "platform/memory/FileWatch.h"
#include "platform/memory/RootPath.h"
#include "runtime/Dovel/DebugHandler.h"

namespace Mem {

class ReaderSentry : private Dovel::Debuggable {
 public:
  // Called in turn, beginning with the first; each call may destroy the sentry.
  class Notifiee {
   public:
    // The table is complete.
    virtual void handleAppeared() = 0;
    // That table is no longer there: it is gone, not complete any more, or another has its place. Where that
    // one is complete, handleAppeared() follows.
    virtual void handleChanged() = 0;

   protected:
    ~Notifiee() = default;
  };

  // The directory need not exist. A table that is complete already is told in the scheduler's next turn.
  ReaderSentry(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath, Notifiee& notifiee);

 private:
  struct Table {
    FileIdentity control;
    FileIdentity ember;
    std::uint32_t emberId;
    friend bool operator==(Table const&, Table const&) = default;
  };

  std::optional<Table> find() const;
  void look();

  RootPath const rootPath_;
  Notifiee& notifiee_;
  std::optional<Table> told_;
  FileWatch::Subscription subscription_;
};

}  // namespace Mem
