// The handle of a table: a thin front over the store that stands behind it at the time, and the choice of
// that store. There always is one: a dummy before anything is attached, and again once the map has lost its
// parent.
//
// One thread, the one that owns the map; a shared map of a writer uses the process's scheduler.
#pragma once

#include "Vault/VaultDummy.h"
#include "Vault/VaultMapBase.h"
#include "Vault/VaultStrictDummy.h"
#include "Vault/VaultWriter.h"
#include "platform/memory/ControlFile.h"
#include "platform/memory/Notify.h"
#include "runtime/Dovel/Util.h"

namespace Vault {

// A writer of a private table that counts as not mounted: what a collection writes to until it has its own.
template <class Ops>
class Tmp : public VaultWriter<Ops> {
 public:
  using VaultWriter<Ops>::VaultWriter;
  int mountStatus() const override { return 0; }
};

template <class Ops>
class VaultMap : public VaultMapBase {
 public:
  using Key = typename Ops::Key;
  using Value = typename Ops::Value;
  using Notify = Mem::Notify<Key, Value>;

  // The name is for people; the path, relative to the root of all stores or absolute, is the table's.
  VaultMap(Dovel::String const& baseName, Dovel::String name, Dovel::String path, Notify notify = {})
      : VaultMapBase(
            Dovel::Platform::getDebugHandler(Dovel::Util::traceHandleName(baseName, name, false), true),
            std::move(name), std::move(path)),
        notify_(std::move(notify)) {
    installDummy();
  }
  ~VaultMap() override { writerSentry_.reset(); }

  // Gives the map its store, as the Vault::MapDescriptor says; std::bad_cast for another kind. A second call
  // is harmless where it asks for the same. Throws Dovel::InvalidInitializeException, and what the store
  // throws; the map is then as it was.
  void init(Mem::CollectionDescriptor const& descriptor) {
    auto const& incoming = dynamic_cast<MapDescriptor const&>(descriptor);
    if (isDoneAlready(incoming)) return;
    check(incoming);
    Mem::RootPath const rootPath = rootPathFor(!incoming.localMem);
    auto writer = std::make_unique<VaultWriter<Ops>>(debugHandler(), rootPath, incoming);
    if (!writer->initialize("none")) {
      DOVEL_THROW(Dovel::InvalidInitializeException, "VaultMap", "failed to initialize collection {}", name_);
    }
    if (!incoming.localMem) announce(rootPath);
    implementation_ = std::move(writer);
    descriptor_.emplace(incoming);
    ready_ = true;
    tellState();
  }

  // Readers only.
  void attach(Dovel::String const& /*event*/) {
    DOVEL_ASSERT(!initialized() || descriptor().vaultType() != VaultType::writer, "VaultMap",
                 "invoked for a writer");
    throwUnimplemented(debugHandler(), "attach");
  }

  // Lets go of the files, which stay. The map can be initialized again.
  void detach(bool force) {
    DOVEL_TRACE(debugHandler(), 5, "VaultMap", "{} force:{}", name_, force);
    writerSentry_.reset();
    implementation_->detach(force);
    descriptor_.reset();
    ready_ = false;
    if (implementation_->mountStatus() == 0) installDummy();
    tellState();
  }
  // Deletes the files of the table.
  void cleanup() {
    writerSentry_.reset();
    implementation_->cleanup();
    ready_ = false;
  }
  void cleanupAndDetach() {
    if (!initialized()) {
      DOVEL_TRACE(debugHandler(), 5, "VaultMap", "detaching uninitialized vault:{}", name_);
      return;
    }
    cleanup();
    detach(true);
  }
  // Drops the store at once, whatever its state.
  void controlDetach() {
    writerSentry_.reset();
    implementation_->detach(true);
    descriptor_.reset();
    ready_ = false;
    installDummy();
  }

  bool validate() {
    DOVEL_TRACE(debugHandler(), 5, "VaultMap", "{}", name_);
    return implementation_->validate();
  }

  // The map has lost its parent: reads answer "not found" from here on and writes are refused, or, with
  // assertOnOrphanAccess, any use ends the process.
  void becomeOrphan() {
    DOVEL_TRACE(debugHandler(), 5, "VaultMap", "{} is now an orphan", name_);
    isOrphan_ = true;
    writerSentry_.reset();
    ready_ = false;
    installDummy();
  }

  void scratchpadIs(std::uint64_t value) { implementation_->scratchpadIs(value); }
  void updateWriterCounters() {
    if (auto const* const writer = dynamic_cast<VaultWriter<Ops> const*>(implementation_.get()))
      vaultMapUpdateWriterCounters(writer->counters());
  }

  // The store as it is now; another after init() and what ends the store.
  VaultInterface<Ops>& interface() const { return *implementation_; }
  VaultInterface<Ops>* operator->() const { return implementation_.get(); }

  // Never fails: ends the process where even a private table can't be had.
  static std::unique_ptr<Tmp<Ops>> createDefaultLocalWriter(Dovel::Platform::DebugHandler const& handler) {
    MapDescriptor const descriptor(100);
    auto writer =
        std::make_unique<Tmp<Ops>>(handler, Mem::RootPath(handler, "VaultTemporary", false), descriptor);
    bool const initialized = writer->initialize("none");
    DOVEL_ASSERT(initialized, "VaultMap", "unable to initialize local VaultTemporary");
    return writer;
  }

 protected:
  void validateFiles(Dovel::String const& path, unsigned emberId) override {
    if (path != implementation_->rootPath().path()) return;
    if (!implementation_->validateFiles()) {
      DOVEL_TRACE(debugHandler(), 0, "VaultMap", "files of {} with emberId:{} are gone or no longer its own",
                  path, SharedMem::EmberId(emberId));
      return;
    }
    Mem::Util::createControlFile(debugHandler(), implementation_->rootPath());
  }
  SharedMem::EmberId currentEmberId() const override { return implementation_->emberId(); }

  void installDummy() {
    Mem::RootPath const rootPath(debugHandler(), path_, true);
    if (isOrphan_ && assertOnOrphanAccess_) {
      implementation_ = std::make_unique<VaultStrictDummy<Ops>>(debugHandler(), name_, rootPath, kOrphanTail);
    } else {
      implementation_ = std::make_unique<VaultDummy<Ops>>(debugHandler(), name_, rootPath, nullptr, false);
    }
  }

 private:
  void tellState() {
    notify_.quiescedChanged(implementation_->quiesced());
    notify_.mountStatusChanged();
  }

  Notify notify_;
  std::unique_ptr<VaultInterface<Ops>> implementation_;
};

}  // namespace Vault
