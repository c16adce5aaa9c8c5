#include "platform/memory/ReaderSentry.h"

#include <cerrno>

#include "platform/memory/ControlFile.h"
#include "platform/memory/EmberFile.h"
#include "platform/memory/FileAccess.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Mem {
namespace {

constexpr char kClass[] = "ReaderSentry";

}  // namespace

ReaderSentry::ReaderSentry(Dovel::Platform::DebugHandler const& handler, RootPath const& rootPath,
                           Notifiee& notifiee)
    : Debuggable(handler),
      rootPath_(rootPath),
      notifiee_(notifiee),
      subscription_(rootPath.dirName(), [this] { look(); }) {}

// Throws Dovel::MemoryResourceException where it can't be said: the next look will tell.
std::optional<ReaderSentry::Table> ReaderSentry::find() const {
  auto const control = FileIdentity::atPath(rootPath_.fileName(Util::Clone::CONTROL_FILENAME));
  if (!control) return {};
  OpenedFile const file = openFile(rootPath_.fileName(SharedMem::EmberFile::EMBER_NAME), FileUse::read);
  if (file.error == EMFILE || file.error == ENFILE || file.error == ENOMEM) {
    DOVEL_THROW(Dovel::MemoryResourceException, kClass, "{}", file.text);
  }
  if (!file.isOpen()) return {};
  auto const ember = FileIdentity::ofDescriptor(file.descriptor.number());
  std::uint32_t id = 0;
  // Read, not mapped: the file may be cut at any time.
  bool const whole = readAt(file.descriptor.number(), &id, sizeof id, 0) == sizeof id;
  if (!ember || !whole || id == 0) return {};
  return Table{*control, *ember, id};
}

// Each call of the notifiee comes last: it may take the sentry along.
void ReaderSentry::look() {
  auto const found = find();
  if (found == told_) return;
  if (told_) {
    DOVEL_TRACE(debugHandler(), 5, kClass, "{} emberId:{:#x} is no longer there", rootPath_.dirName(),
                told_->emberId);
    told_.reset();
    if (found) subscription_.lookSoon();
    notifiee_.handleChanged();
  } else {
    DOVEL_TRACE(debugHandler(), 5, kClass, "{} is complete, emberId:{:#x}", rootPath_.dirName(),
                found->emberId);
    told_ = found;
    notifiee_.handleAppeared();
  }
}

}  // namespace Mem
