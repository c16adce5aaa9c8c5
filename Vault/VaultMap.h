// The handle of a table: a thin front over the store that stands behind it at the time, and the choice of
// that store. There always is one: a dummy before anything is attached, again once the map has lost its
// parent, and for a reader whenever there is no complete table.
//
// One thread, the one that owns the map; a shared map uses the process's scheduler, on that thread.
#pragma once

#include <utility>

#include "Vault/VaultDummy.h"
#include "Vault/VaultMapBase.h"
#include "Vault/VaultReader.h"
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
  ~VaultMap() override { dropSentries(); }

  // Gives the map its store, as the Vault::MapDescriptor says; std::bad_cast for another kind. A second call
  // is harmless where it asks for the same. Throws Dovel::InvalidInitializeException, and what the store
  // throws; the map is then as it was.
  void init(Mem::CollectionDescriptor const& descriptor) {
    auto const& incoming = dynamic_cast<MapDescriptor const&>(descriptor);
    if (isDoneAlready(incoming)) return;
    check(incoming);
    if (incoming.vaultType() == VaultType::writer) {
      initWriter(incoming);
    } else {
      initReader(incoming);
    }
  }

  // Attaches a reader to the table of its path; nothing has changed where that can't be done now. `event` is
  // for the trace.
  void attach(Dovel::String const& event) {
    DOVEL_ASSERT(!initialized() || isReader(), "VaultMap", "invoked for a writer");
    auto reader =
        std::make_unique<VaultReader<Ops>>(debugHandler(), rootPath(), [this] { readerReplaced(); });
    DOVEL_TRACE(debugHandler(), 2, "VaultMap", "attempting to attach {} as {}", name_, reader->type());
    if (!reader->initialize(event)) {
      DOVEL_TRACE(debugHandler(), 2, "VaultMap", "initialize failed for {}", name_);
      return;
    }
    DOVEL_TRACE(debugHandler(), 2, "VaultMap", "successful");
    implementation_ = std::move(reader);
    ready_ = true;
  }

  // What a reader does when its table appears.
  void tryAttach() override {
    DOVEL_TRACE(debugHandler(), 5, "VaultMap", "{}", rootPath().dirName());
    int const before = implementation_->mountStatus();
    if (before != 0) {
      DOVEL_TRACE(debugHandler(), 5, "VaultMap", "{} is already mounted, mountStatus:{}", name_, before);
      return;
    }
    attach("control file");
    int const now = implementation_->mountStatus();
    if (now == 0) return;
    Dovel::Util::emitCanaryLog(debugHandler(),
                               DOVEL_TRACESTR("VaultMap", "mounted {} mountStatus:{}", name_, now));
    tellState();
  }

  // What it does when its table is gone, or another has its place: it answers like an empty one from here on.
  void handleDisconnect() override {
    DOVEL_ASSERT(isReader(), "VaultMap", "wrong type:{}", implementation_->type());
    readerReplaced();
  }

  // Lets go of the files, which stay. The map can be initialized again.
  void detach(bool force) {
    DOVEL_TRACE(debugHandler(), 5, "VaultMap", "{} force:{}", name_, force);
    dropSentries();
    implementation_->detach(force);
    descriptor_.reset();
    ready_ = false;
    if (implementation_->mountStatus() == 0) installDummy();
    tellState();
  }
  // Deletes the files of the table.
  void cleanup() {
    dropSentries();
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
    dropSentries();
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
    dropSentries();
    ready_ = false;
    installDummy();
    tellState();
  }

  void scratchpadIs(std::uint64_t value) { implementation_->scratchpadIs(value); }
  void updateWriterCounters() {
    if (auto const* const writer = dynamic_cast<VaultWriter<Ops> const*>(implementation_.get()))
      vaultMapUpdateWriterCounters(writer->counters());
  }

  // The store as it is now. Of a reader to be asked for anew with each use: any operation may be the one that
  // notices the end of the table, and the store that it was called on lasts until the next use of the map.
  VaultInterface<Ops>& interface() const {
    if (retired_ != nullptr && !isTelling_) [[unlikely]]
      retired_.reset();
    return *implementation_;
  }
  VaultInterface<Ops>* operator->() const { return &interface(); }

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
  // Of a map that isn't initialized.
  void placeIs(Dovel::String const& name, Dovel::String const& path) {
    name_ = name;
    path_ = path;
    installDummy();
  }

  SharedMem::EmberId currentEmberId() const override { return implementation_->emberId(); }
  bool filesAreInPlace() const override { return implementation_->validateFiles(); }

  void installDummy() {
    if (isOrphan_ && assertOnOrphanAccess_) {
      implementation_ =
          std::make_unique<VaultStrictDummy<Ops>>(debugHandler(), name_, rootPath(), kOrphanTail);
    } else {
      implementation_ = std::make_unique<VaultDummy<Ops>>(debugHandler(), name_, rootPath(), nullptr, false);
    }
  }

 private:
  Mem::RootPath rootPath() const { return {debugHandler(), path_, true}; }

  void initWriter(MapDescriptor const& incoming) {
    Mem::RootPath const place = rootPathFor(!incoming.localMem);
    auto writer = std::make_unique<VaultWriter<Ops>>(debugHandler(), place, incoming);
    if (!writer->initialize("none")) {
      DOVEL_THROW(Dovel::InvalidInitializeException, "VaultMap", "failed to initialize collection {}", name_);
    }
    if (!incoming.localMem) announce(place);
    implementation_ = std::move(writer);
    descriptor_.emplace(incoming);
    ready_ = true;
    tellState();
  }

  // The table need not be there yet: the sentry tells when it is.
  void initReader(MapDescriptor const& incoming) {
    installDummy();
    readerSentry_ = std::make_unique<Mem::ReaderSentry>(debugHandler(), rootPath(), *this);
    descriptor_.emplace(incoming);
  }

  // May be called in the middle of an operation of the store that is given up.
  void readerReplaced() {
    if (implementation_->emberId() == SharedMem::EmberId()) return;
    retired_ = std::move(implementation_);
    ready_ = false;
    installDummy();
    tellState();
  }

  // What the client is told may make it use the map, in the middle of an operation of the store that has just
  // been given up.
  void tellState() {
    Telling const telling(isTelling_);
    notify_.quiescedChanged(implementation_->quiesced());
    notify_.mountStatusChanged();
  }

  // A client may throw, and may do what makes the map tell it more.
  class Telling {
   public:
    explicit Telling(bool& flag) : flag_(flag), before_(std::exchange(flag, true)) {}
    Telling(Telling const&) = delete;
    Telling& operator=(Telling const&) = delete;
    ~Telling() { flag_ = before_; }

   private:
    bool& flag_;
    bool const before_;
  };

  Notify notify_;
  std::unique_ptr<VaultInterface<Ops>> implementation_;
  // A reader whose last answer the caller may still hold.
  mutable std::unique_ptr<VaultInterface<Ops>> retired_;
  bool isTelling_ = false;
};

}  // namespace Vault
