#include "Vault/WriterLifecycle.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

#include "Vault/Util.h"
#include "Vault/VaultInterface.h"
#include "platform/memory/ControlFile.h"
#include "platform/memory/Local.h"
#include "platform/memory/SharedMemWrapper.h"
#include "platform/memory/Tracked.h"
#include "platform/memory/ValidateFile.h"
#include "platform/memory/WireletAcceptSm.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Dovel/Util.h"

namespace Vault {
namespace {

bool isAnswer(AttachResult result) { return result != AttachResult::none && result != AttachResult::invalid; }

bool isSuccess(AttachResult result) {
  return result == AttachResult::newFile || result == AttachResult::existingFile;
}

}  // namespace

// What an attach has in hand: the owner file, locked, and the generation file.
struct WriterLifecycle::Claim {
  Claim(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath, bool localMem)
      : ember(handler, rootPath, localMem), owner(handler, rootPath, localMem), lock(owner.lock()) {}

  SharedMem::EmberFile ember;
  SharedMem::OwnerFile owner;
  SharedMem::OwnerFile::Lock lock;
};

WriterLifecycle::WriterLifecycle(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                                 MapDescriptor const& descriptor, std::string_view typeName,
                                 std::unique_ptr<Herald::HeraldWriter> herald)
    : handler_(handler),
      localMem_(descriptor.localMem),
      rootPath_(rootPath),
      coreDump_(Mem::coreDumpOfTables()),
      useHeap_(descriptor.useHeap),
      trackMemory_(descriptor.trackMemory),
      buckets_(handler_, rootPath_, mappingOf(VaultCore::BucketTable::kFileName)),
      herald_(std::move(herald)),
      typeName_(typeName) {
  if (herald_ == nullptr) herald_ = std::make_unique<Herald::DummyHeraldWriter>(heraldCounters_);
  if (descriptor.coreDump != Mem::CoreDump::asProcess) Dovel::Util::includeShmemInCore();
}

std::unique_ptr<Mem::Mapping> WriterLifecycle::mappingOf(char const* fileName) const {
  Mem::MemoryTracker* const tracker = trackMemory_ ? &Mem::MemoryTracker::ofProcess() : nullptr;
  if (localMem_) {
    auto local = std::make_unique<Mem::Tracked<Mem::Local>>(handler_, rootPath_, fileName, coreDump_);
    local->useHeapIs(useHeap_);
    local->enable(tracker);
    return local;
  }
  auto shared =
      std::make_unique<Mem::Tracked<Mem::SharedMemWrapper>>(handler_, rootPath_, fileName, coreDump_);
  shared->enable(tracker);
  return shared;
}

void WriterLifecycle::attach() {
  DOVEL_TRACE(handler_, 5, "VaultWriter", "localMem_:{} rootPath:{}", localMem_, rootPath_.dirName());
  try {
    claimAndAttach();
  } catch (...) {
    letGo();
    throw;
  }
}

void WriterLifecycle::claimAndAttach() {
  if (!localMem_) rootPath_.makeDirectory();
  Claim claim(handler_, rootPath_, localMem_);
  SharedMem::EmberId found;
  if (localMem_) {
    emberId_ = SharedMem::EmberId(0, ::getpid());
  } else {
    writerLock_ = Mem::WriterLock::acquireWriterLock(handler_, rootPath_, claim.owner, false);
    foreign_ = &writerLock_->foreignFlag();
    wireletInfo_.socketNameIs(Nudge::WireletAcceptSm(handler_).socketName());
    found = claim.ember.read();
    emberId_ = found == SharedMem::EmberId() ? SharedMem::EmberId::fresh() : found;
  }
  bool const ownerBad = !claim.owner.validate();
  if (ownerBad) {
    DOVEL_TRACE(handler_, 1, "VaultWriter", "owner file validation failed, dumping owner file string: {}",
                claim.owner.headerToString());
  }
  claim.owner.typeNameIs(Dovel::String(typeName_));
  claim.owner.sharedMemTypeIs(1);
  AttachResult const result = attachAndValidate(ownerBad, claim);
  // A new file where an old one should be: slots and owner tell different stories.
  bool const expectReattach = !localMem_ && !ownerBad && found != SharedMem::EmberId();
  if (!isSuccess(result) || (result == AttachResult::newFile && expectReattach)) {
    DOVEL_TRACE(handler_, 1, "VaultWriter", "expectReattach: {}, attachResult: {}", expectReattach,
                static_cast<unsigned>(result));
    DOVEL_ASSERT(!ownerBad, "VaultWriter", "failed to attach to and validate new files");
    attachAndValidate(true, claim);
  }
  if (!localMem_) {
    rootPath_.removeFile(Util::kCorruptionFile);
    owner_ = true;
  }
  claim.ember.write(emberId_);
  DOVEL_TRACE(handler_, 1, "VaultWriter", "success {} capacity:{} emberId:{} mtime:{} wireletInfo:{}",
              rootPath_.dirName(), slots().numSlots(), emberId_, claim.ember.mtime(),
              wireletInfo_.toString());
}

void WriterLifecycle::wipe(Claim& claim) {
  DOVEL_TRACE(handler_, 1, "VaultWriter", "all entries from {} will be lost", rootPath_.dirName());
  claim.ember.write(SharedMem::EmberId());
  emberId_ = emberId_.incremented();
  claim.owner.wipedIs(true);
  slots().cleanup();
  buckets_.cleanup();
}

AttachResult WriterLifecycle::attachFiles() {
  counters_ = {};
  AttachResult const ofSlots = slots().attach(emberId_);
  DOVEL_TRACE(handler_, 2, "VaultWriter", "slotsAttached:{}", static_cast<unsigned>(ofSlots));
  DOVEL_ASSERT(isAnswer(ofSlots), "VaultWriter", "Invalid slot attach");
  auto const ofBuckets = static_cast<AttachResult>(buckets_.attach(emberId_, slots().maxSize()));
  DOVEL_TRACE(handler_, 2, "VaultWriter", "mapAttached:{}", static_cast<unsigned>(ofBuckets));
  DOVEL_ASSERT(isAnswer(ofBuckets), "VaultWriter", "Invalid map attach");
  auto const ofHerald = static_cast<AttachResult>(herald_->attach(emberId_));
  DOVEL_TRACE(handler_, 2, "VaultWriter", "heraldAttached:{}", static_cast<unsigned>(ofHerald));
  DOVEL_ASSERT(isAnswer(ofHerald), "VaultWriter", "Invalid herald attach");
  for (AttachResult const decisive : {AttachResult::badHeader, AttachResult::newFile})
    if (ofSlots == decisive || ofBuckets == decisive) return decisive;
  return AttachResult::existingFile;
}

AttachResult WriterLifecycle::attachAndValidate(bool wipeFirst, Claim& claim) {
  if (wipeFirst) wipe(claim);
  AttachResult const result = attachFiles();
  if (!isSuccess(result)) {
    DOVEL_ASSERT(!wipeFirst, "VaultWriter", "expected successful attach post-wipe");
    DOVEL_TRACE(handler_, 0, "VaultWriter", "failed to attach to existing files");
    DOVEL_TRACE(handler_, 0, "VaultWriter", "{}", dumpHeaders());
    DOVEL_TRACE(handler_, 0, "VaultWriter", "owner file: {}", claim.owner.headerToString());
    return AttachResult::none;
  }
  if (!validateAll(emberId_, false)) {
    explainFailure(wipeFirst, claim);
    return AttachResult::none;
  }
  if (!localMem_) {
    claim.owner.wireletInfoIs(wireletInfo_);
    Dovel::String error;
    bool const valid = claim.owner.validate(error);
    DOVEL_ASSERT(valid, "VaultWriter", "wrote to owner file but validation failed: {}", error);
  }
  if (wipeFirst) DOVEL_TRACE(handler_, 1, "VaultWriter", "re-formatted successfully");
  return result;
}

void WriterLifecycle::explainFailure(bool wiped, Claim& claim) {
  if (wiped) DOVEL_THROW(Dovel::InvalidInitializeException, "VaultWriter", "failed validation");
  if (Util::runningOnPhysicalDut() && Util::strictValidation()) {
    claim.ember.write(SharedMem::EmberId());
    rootPath_.removeFile(SharedMem::EmberFile::EMBER_NAME);
    slots().mapping().dumpToCoreIs(Mem::CoreDump::forced);
    buckets_.mapping().dumpToCoreIs(Mem::CoreDump::forced);
    Dovel::Util::includeShmemInCore();
    DOVEL_THROW(Dovel::CorruptionDetectedException, "VaultWriter",
                "failed initial validation of {} after re-attaching", rootPath_.dirName());
  }
  DOVEL_TRACE(handler_, 0, "VaultWriter", "failed to validate existing files");
  DOVEL_TRACE(handler_, 0, "VaultWriter", "{}", dumpHeaders());
  DOVEL_TRACE(handler_, 0, "VaultWriter", "owner file: {}", claim.owner.headerToString());
}

void WriterLifecycle::letGo() {
  herald_->onDetach();
  slots().detach();
  buckets_.detach();
  foreign_ = &kNeverForeign;
  writerLock_.reset();
  owner_ = false;
  initialized_ = false;
}

void WriterLifecycle::detachFiles() {
  DOVEL_TRACE(handler_, 5, "VaultWriter", "owner:{} localMem_:{} rootPath:{}", owner_, localMem_,
              rootPath_.dirName());
  if (owner_ && !isForeign()) {
    try {
      SharedMem::OwnerFile owner(handler_, rootPath_, false, false);
      if (owner.exists() && Mem::WriterLock::ownerIsMe(handler_, rootPath_, wireletInfo_.socketName())) {
        auto const lock = owner.lock();
        DOVEL_TRACE(handler_, 5, "VaultWriter", "clearing wireletInfo");
        owner.wireletInfoIs({});
      }
    } catch (Dovel::CorruptionDetectedException const& caught) {
      DOVEL_TRACE(handler_, 1, "VaultWriter", "ignoring owner file corruption:{}", caught.msg());
    } catch (Dovel::Exception const& caught) {
      DOVEL_TRACE(handler_, 1, "VaultWriter", "can't clear wireletInfo:{}", caught.msg());
    }
  }
  letGo();
}

void WriterLifecycle::cleanupFiles() {
  DOVEL_TRACE(handler_, 5, "VaultWriter", "rootPath:{}", rootPath_.dirName());
  if (localMem_) {
    removeFiles();
    return;
  }
  rootPath_.makeDirectory();
  SharedMem::OwnerFile owner(handler_, rootPath_, false);
  auto const lock = owner.lock();
  std::optional<Mem::WriterLock> ownLock;
  if (!writerLock_) ownLock = Mem::WriterLock::acquireWriterLock(handler_, rootPath_, owner, false);
  if (!owner.validate()) {
    DOVEL_TRACE(handler_, 1, "VaultWriter",
                "owner file corruption detected but continuing with cleanup, dumped owner file: {}",
                owner.headerToString());
  }
  removeFiles();
}

void WriterLifecycle::removeFiles() {
  DOVEL_TRACE(handler_, 3, "VaultWriter", "removing Vault files in {}", rootPath_.dirName());
  herald_->removeFiles();
  if (!localMem_) {
    SharedMem::EmberFile(handler_, rootPath_, false).write(SharedMem::EmberId());
    rootPath_.removeFile(Util::kCorruptionFile);
  }
  buckets_.cleanup();
  slots().cleanup();
  if (!localMem_) {
    rootPath_.removeFile(SharedMem::EmberFile::EMBER_NAME);
    rootPath_.removeFile(Mem::Util::Clone::CONTROL_FILENAME);
    rootPath_.removeFile(SharedMem::OwnerFile::FILENAME);
  }
}

bool WriterLifecycle::filesAreThere() {
  if (localMem_) return true;
  bool const there =
      buckets_.validateFile() &&
      Mem::validateFile(handler_, rootPath_, SlotTable::kFileName, slots().mapping().mappedSize()) &&
      SharedMem::EmberFile(handler_, rootPath_, false).validate(emberId_) &&
      SharedMem::OwnerFile(handler_, rootPath_, false, false).validateFile();
  if (there) rootPath_.removeFile(Util::kCorruptionFile);
  return there;
}

bool WriterLifecycle::ownerIsValid() const {
  return localMem_ || SharedMem::OwnerFile(handler_, rootPath_, false, false).validate();
}

Dovel::String WriterLifecycle::dumpHeaders() const {
  auto& self = const_cast<WriterLifecycle&>(*this);
  return fmt::format("slots: {}; buckets: {}; herald: {}",
                     self.slots().attached() ? self.slots().header().toString() : Dovel::String("not mapped"),
                     buckets_.toString(), herald_->headersToString());
}

void WriterLifecycle::refuseForeign(char const* operation) const {
  throwNoPermissionException(handler_, "VaultWriter", operation,
                             "the Vault table belongs to the process that this one was forked from");
}

}  // namespace Vault
