// What a map is apart from the type of its records: its name, what was asked of it, and its sentry. One
// thread, the one that owns the map.
#pragma once

#include <cstdlib>
#include <memory>
#include <optional>

#include "Vault/MapDescriptor.h"
#include "Vault/VaultInterface.h"
#include "Vault/WriterCounters.h"
#include "platform/memory/ReaderSentry.h"
#include "platform/memory/WriterSentry.h"
#include "runtime/Dovel/Format.h"

namespace Vault {

class VaultMapBase : public Dovel::Debuggable,
                     public Mem::WriterSentry::Notifiee,
                     public Mem::ReaderSentry::Notifiee {
 public:
  VaultMapBase(VaultMapBase const&) = delete;
  VaultMapBase& operator=(VaultMapBase const&) = delete;
  virtual ~VaultMapBase();

  Dovel::String const& name() const { return name_; }
  // Of the table, as it was given.
  Dovel::String const& path() const { return path_; }
  bool initialized() const { return descriptor_.has_value(); }
  // Of an initialized map; ends the process where it isn't.
  MapDescriptor const& descriptor() const {
    DOVEL_ASSERT(descriptor_.has_value(), "VaultMapBase", "{} is not initialized", name_);
    return *descriptor_;
  }
  // Whether a store is attached and its table sound.
  bool ready() const { return ready_; }

  // Whether the table lost its records when it was last found unsound, and nobody has said since that they
  // are back. Of a shared table.
  bool wiped() const;
  void clearWiped();

  // Traces the text at level 0 and leaves the corruption marker with it. The table is checked, and wiped
  // where it doesn't pass, when its writer attaches again. A reader's table that is being replaced gets none.
  void doCorruptionDetected(Dovel::String const& text);

  // What the writer counted, as it was when this was last updated.
  Writer::Counters const& writerCounters() const { return writerCounters_; }

  // Makes any use of a map that has lost its parent end the process.
  void assertOnOrphanAccessIs(bool asserts) { assertOnOrphanAccess_ = asserts; }
  bool isOrphan() const { return isOrphan_; }

 protected:
  static constexpr char kOrphanTail[] =
      ". If you're seeing this, you're trying to operate on an orphan vault entity";

  VaultMapBase(Dovel::Platform::DebugHandler const& handler, Dovel::String name, Dovel::String path);

  // The checks of a first initialization, and of a further one: true where nothing is left to be done.
  bool isDoneAlready(MapDescriptor const& incoming) const;
  void check(MapDescriptor const& incoming) const;

  // Where the table's files are. An absolute path moves under the directory of Q7_CHROOT, but for a reader,
  // which reads what is there.
  Mem::RootPath rootPathFor(bool shared) const;
  // Marks the table as complete and guards its files. In a build root, where neither can be had, does
  // without.
  void announce(Mem::RootPath const& rootPath);

  void vaultMapUpdateWriterCounters(Writer::Counters const& counters) { writerCounters_ = counters; }

  // The answer to files that were changed from outside, told under the path as it was given.
  virtual void validateFiles(Dovel::String const& path, unsigned emberId) = 0;
  virtual SharedMem::EmberId currentEmberId() const = 0;
  // Of a reader: the table is complete; it is gone, or another has its place.
  virtual void tryAttach() = 0;
  virtual void handleDisconnect() = 0;
  // Whether what is mapped still is what the names of the files lead to. Of a reader.
  virtual bool filesAreInPlace() const = 0;

  bool isReader() const { return initialized() && descriptor().vaultType() != VaultType::writer; }
  void dropSentries();

  Dovel::String name_;
  Dovel::String path_;
  std::optional<MapDescriptor> descriptor_;
  std::unique_ptr<Mem::WriterSentry> writerSentry_;
  std::unique_ptr<Mem::ReaderSentry> readerSentry_;
  bool ready_ = false;
  bool isOrphan_ = false;
  bool assertOnOrphanAccess_ = false;

 private:
  void handleFilesChanged(Dovel::String const& path) override;
  void handleAppeared() override { tryAttach(); }
  void handleChanged() override { handleDisconnect(); }

  Writer::Counters writerCounters_;
};

}  // namespace Vault
