#include "Vault/VaultMapBase.h"

#include "Vault/Util.h"
#include "platform/memory/ControlFile.h"
#include "platform/memory/OwnerFile.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Vault {

using Dovel::InvalidInitializeException;

VaultMapBase::VaultMapBase(Dovel::Platform::DebugHandler const& handler, Dovel::String name,
                           Dovel::String path)
    : Dovel::Debuggable(handler), name_(std::move(name)), path_(std::move(path)) {}

VaultMapBase::~VaultMapBase() { DOVEL_TRACE(debugHandler(), 5, "VaultMap", "deleting state"); }

bool VaultMapBase::isDoneAlready(MapDescriptor const& incoming) const {
  DOVEL_ASSERT(
      !(isOrphan_ && assertOnOrphanAccess_), "VaultMap",
      "Re-initializing a collection that has already become an orphan and has assertOnOrphanAccess set");
  if (!initialized()) return false;
  Dovel::String reason;
  if (!descriptor().supportsReinitWith(incoming, reason)) {
    DOVEL_THROW(InvalidInitializeException, "VaultMap",
                "name:{} failed subsequent initialize; old {}; new {}; reason: {}", name_, descriptor(),
                incoming, reason.empty() ? Dovel::String("<missing reason>") : reason);
  }
  DOVEL_TRACE(debugHandler(), 5, "VaultMap", "name:{} already initialized; current {}; incoming {}", name_,
              descriptor(), incoming);
  return true;
}

void VaultMapBase::check(MapDescriptor const& incoming) const {
  DOVEL_TRACE(debugHandler(), 1, "VaultMap", "name:{} {}", name_, incoming);
  if (incoming.useHeap && !incoming.localMem) {
    DOVEL_THROW(InvalidInitializeException, "VaultMap",
                "cannot initialize collection {} heap allocation in non-local mode not allowed", name_);
  }
  VaultType const type = incoming.vaultType();
  if (type == VaultType::writer && incoming.maxSize == 0) {
    DOVEL_THROW(InvalidInitializeException, "VaultMap",
                "0 is not a valid initialization size for collection {} in writer mode", name_);
  }
  bool const isShadow = type == VaultType::shadow || type == VaultType::keyShadow;
  DOVEL_ASSERT(!(isShadow && incoming.asynchronous && !incoming.keyNotifications), "VaultMap",
               "notifications unexpectedly disabled prior to initialization with asynchronous mode");
  if (incoming.dummyHerald && !incoming.localMem) {
    Dovel::String const inner =
        DOVEL_TRACESTR("VaultMap", "DummyHeraldWriter not supported in {} mode", "shared");
    DOVEL_THROW(InvalidInitializeException, "VaultMap", "cannot initialize collection {} with {}", name_,
                inner);
  }
  DOVEL_ASSERT(writerSentry_ == nullptr && readerSentry_ == nullptr, "VaultMap",
               "Vault mounter should not exist");
  DOVEL_ASSERT(!(incoming.prevValue && !incoming.captureNotifyValues), "VaultMap",
               "prevValue mount-time option enabled without specifying `captureNotifyValues property");
  DOVEL_ASSERT(incoming.localMem || type <= VaultType::keyShadow, "VaultMap", "not a valid reader type:{}",
               type);
  auto const refuse = [&](char const* why) {
    Dovel::String const inner = DOVEL_TRACESTR("VaultMap", "type {}: {}", type, why);
    DOVEL_THROW(InvalidInitializeException, "VaultMap", "cannot initialize collection {} with {}", name_,
                inner);
  };
  if (isShadow) refuse("this library has no shadows of tables");
  if (type != VaultType::writer && incoming.localMem) refuse("a table in private memory has no readers");
}

Mem::RootPath VaultMapBase::rootPathFor(bool shared) const {
  char const* const buildRoot = std::getenv("Q7_CHROOT");
  bool const moves = buildRoot != nullptr && path_.view().starts_with('/') && !isReader();
  Dovel::String path = moves ? Dovel::String(buildRoot) : Dovel::String();
  return {debugHandler(), path.append(path_), shared};
}

void VaultMapBase::announce(Mem::RootPath const& rootPath) {
  try {
    Mem::Util::createControlFile(debugHandler(), rootPath);
    writerSentry_ = std::make_unique<Mem::WriterSentry>(debugHandler(), *this, rootPath, true);
  } catch (Dovel::Exception const& failure) {
    if (std::getenv("Q7_CHROOT") == nullptr) throw;
    DOVEL_TRACE(debugHandler(), 1, "VaultMap", "without sentry in a build root: {}", failure.msg());
  }
}

void VaultMapBase::handleFilesChanged(Dovel::String const& path) {
  validateFiles(path, currentEmberId().value());
}

void VaultMapBase::dropSentries() {
  writerSentry_.reset();
  readerSentry_.reset();
}

bool VaultMapBase::wiped() const {
  if (!initialized() || descriptor().localMem) return false;
  return SharedMem::OwnerFile(debugHandler(), rootPathFor(true), false, false).wiped();
}

void VaultMapBase::clearWiped() {
  if (!initialized() || descriptor().localMem) return;
  SharedMem::OwnerFile owner(debugHandler(), rootPathFor(true), false, false);
  auto const lock = owner.lock();
  owner.wipedIs(false);
}

void VaultMapBase::doCorruptionDetected(Dovel::String const& text) {
  DOVEL_TRACE(debugHandler(), 0, "VaultMap", "corruption detected: {}", text);
  if (!initialized() || descriptor().localMem || (isReader() && !filesAreInPlace())) return;
  Util::writeCorruptionFile(debugHandler(), rootPathFor(true), text);
}

}  // namespace Vault
