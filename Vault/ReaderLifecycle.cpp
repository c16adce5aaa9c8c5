#include "Vault/ReaderLifecycle.h"

#include <fmt/format.h>

#include <ctime>

#include "Vault/Util.h"
#include "platform/memory/EmberFile.h"
#include "platform/memory/Tracked.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Vault {

ReaderLifecycle::ReaderLifecycle(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                                 std::function<void()> onReplaced)
    : handler_(handler),
      rootPath_(rootPath),
      buckets_(handler_, mappingOf(VaultCore::BucketTable::kFileName)),
      emberMapping_(handler_, rootPath_, SharedMem::EmberFile::EMBER_NAME, Mem::coreDumpOfSharedFiles()),
      onReplaced_(std::move(onReplaced)) {}

std::unique_ptr<Mem::Mapping> ReaderLifecycle::mappingOf(char const* fileName) const {
  return std::make_unique<Mem::Tracked<Mem::SharedMemWrapper>>(handler_, rootPath_, fileName,
                                                               Mem::coreDumpOfTables());
}

bool ReaderLifecycle::attach(Dovel::String const& event) {
  if (!attachHalves() || !readGeneration() || !validateHalves()) {
    detachFiles();
    return false;
  }
  SharedMem::EmberFile const ember(handler_, rootPath_, false);
  Dovel::String const mtime = ember.mtime();
  initialized_ = true;
  toldReplaced_ = false;
  DOVEL_TRACE(handler_, 1, "VaultReader", "success {} capacity:{} emberId:{} mtime:{} delay:{} event:{}",
              rootPath_.dirName(), slots().capacity(), emberId_, mtime,
              std::time(nullptr) - std::strtoll(mtime.data(), nullptr, 10), event);
  return true;
}

bool ReaderLifecycle::attachHalves() {
  if (!buckets_.attach()) {
    DOVEL_TRACE(handler_, 0, "VaultReader", "failed to attach to buckets");
    return false;
  }
  if (!slots().attach()) {
    DOVEL_TRACE(handler_, 0, "VaultReader", "failed to attach to slots");
    return false;
  }
  return true;
}

bool ReaderLifecycle::readGeneration() {
  emberId_ = SharedMem::EmberFile(handler_, rootPath_, false).read();
  if (emberId_ != SharedMem::EmberId()) {
    std::byte const* const base = emberMapping_.attach(SharedMem::EmberFile::kSize, Mem::Access::readOnly, 0);
    if (base != nullptr) {
      ember_ = reinterpret_cast<Mem::Cell const*>(base);
      return true;
    }
  }
  DOVEL_TRACE(handler_, 0, "VaultReader", "failed to read ember file");
  DOVEL_TRACE(handler_, 0, "VaultReader", "{}", dumpHeaders());
  return false;
}

bool ReaderLifecycle::validateHalves() {
  Dovel::String error;
  if (!buckets_.validate(emberId_, error)) return fails("failed to validate buckets", error);
  if (!slots().validate(emberId_, error)) return fails("failed to validate slots", error);
  return !isReplaced();
}

bool ReaderLifecycle::fails(char const* what, Dovel::String const& error) {
  DOVEL_TRACE(handler_, 0, "VaultReader", "{}", what);
  DOVEL_TRACE(handler_, 0, "VaultReader", "{}", dumpHeaders());
  // A store that is being made anew is no damage.
  if (isInPlace()) Util::writeCorruptionFile(handler_, rootPath_, error);
  return false;
}

bool ReaderLifecycle::isInPlace() const {
  return !isReplaced() && SharedMem::EmberFile(handler_, rootPath_, false).read() == emberId_ &&
         buckets_.mapping().isInPlace() && slots().mapping().isInPlace();
}

bool ReaderLifecycle::replaced() const {
  if (toldReplaced_) return false;
  toldReplaced_ = true;
  DOVEL_TRACE(handler_, 1, "VaultReader", "{} is no longer of generation {}", rootPath_.dirName(), emberId_);
  if (onReplaced_) onReplaced_();
  return false;
}

bool ReaderLifecycle::followResize() const {
  try {
    bool moved = false;
    // The slots have to be those of the version that is kept, or newer ones.
    while (slots().doResize() || buckets_.doResize()) moved = true;
    return moved;
  } catch (Dovel::Exception const&) {
    buckets_.versionIsUnknown();
    // The files of a generation that has ended no longer are where their names lead.
    if (isReplaced()) return true;
    throw;
  }
}

void ReaderLifecycle::detachFiles() {
  slots().detach();
  buckets_.detach();
  ember_ = nullptr;
  emberMapping_.detach();
  initialized_ = false;
}

Dovel::String ReaderLifecycle::dumpHeaders() const {
  return fmt::format("Vault table \"{}\"\n\n\n{}\n\n{}\n\n", rootPath_.dirName(), slots().toString(),
                     buckets_.toString());
}

}  // namespace Vault
