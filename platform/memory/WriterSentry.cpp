#include "platform/memory/WriterSentry.h"

#include <utility>

#include "platform/memory/ControlFile.h"
#include "platform/memory/EmberFile.h"
#include "platform/memory/OwnerFile.h"
#include "runtime/Dovel/Format.h"

namespace Mem {
namespace {

// Those of a table are named by the layers that make them; the names are part of the format.
constexpr std::array<char const*, 5> kNames = {"slots", "buckets", SharedMem::OwnerFile::FILENAME,
                                               SharedMem::EmberFile::EMBER_NAME,
                                               Util::Clone::CONTROL_FILENAME};

}  // namespace

WriterSentry::WriterSentry(Dovel::Platform::DebugHandler const& handler, Notifiee& notifiee,
                           RootPath const& rootPath, bool isComplete)
    : Debuggable(handler),
      rootPath_(rootPath),
      notifiee_(notifiee),
      subscription_(rootPath.dirName(), [this] { look(); }),
      known_(find()) {
  if (!isComplete) return;
  for (auto& file : known_) {
    if (!file) file = FileIdentity{};  // of no file: so it is missed
  }
}

WriterSentry::Files WriterSentry::find() const {
  Files found;
  for (std::size_t i = 0; i < kFiles; ++i) found[i] = FileIdentity::atPath(rootPath_.fileName(kNames[i]));
  return found;
}

bool WriterSentry::isChange(std::optional<FileIdentity> const& known,
                            std::optional<FileIdentity> const& found) const {
  if (!known) return false;
  return found ? found != known && !answered_ : true;
}

// The notifiee is called last: it may take the sentry along.
void WriterSentry::look() {
  Files const found = find();
  bool changed = false;
  for (std::size_t i = 0; i < kFiles; ++i) {
    if (!isChange(known_[i], found[i])) continue;
    changed = true;
    DOVEL_TRACE(debugHandler(), 1, "WriterSentry", "{} was {}", rootPath_.fileName(kNames[i]),
                found[i] ? "replaced" : "removed");
  }
  known_ = found;
  answered_ = changed;
  if (!changed) return;
  subscription_.lookSoon();
  notifiee_.handleFilesChanged(rootPath_.path());
}

}  // namespace Mem
