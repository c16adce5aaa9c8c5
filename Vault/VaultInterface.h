// What every kind of store offers: writer, reader, shadow and dummy. Its own bodies are those of a store that
// can't be written to.
//
// An object is used by one thread at a time. Values that are returned by pointer stay for the caller until
// its next call.
#pragma once

#include <cstdint>

#include "Herald/HeraldWriter.h"
#include "Vault/VaultType.h"
#include "VaultCore/IterHint.h"
#include "VaultCore/ReaderCounters.h"
#include "platform/memory/RootPath.h"
#include "platform/memory/VersionAnchor.h"
#include "runtime/Dovel/DebugHandler.h"

namespace Vault {

enum class MarkAndSweepOperation { read = 0, clear = 1, set = 2 };

// Traces the text at level 0 and throws Dovel::NoPermissionException with it.
[[noreturn]] void throwNoPermissionException(Dovel::Platform::DebugHandler const& handler,
                                             char const* className, char const* function, char const* text);

// The same for an operation that this kind of store doesn't have.
[[noreturn]] void throwUnimplemented(Dovel::Platform::DebugHandler const& handler, char const* function);

// What does not depend on the type of the records.
class VaultInterfaceBase : public Dovel::Debuggable {
 public:
  explicit VaultInterfaceBase(Dovel::Platform::DebugHandler const& handler) : Dovel::Debuggable(handler) {}
  VaultInterfaceBase(VaultInterfaceBase const&) = delete;
  VaultInterfaceBase& operator=(VaultInterfaceBase const&) = delete;
  virtual ~VaultInterfaceBase();

  // Attaches to what there is; false where that can't be done now. `event` is for the trace.
  virtual bool initialize(Dovel::String const& event) = 0;
  // Lets go of all mappings; files stay. With force, also what would be waited for.
  virtual void detach(bool force) = 0;
  // Whether the whole table is sound. A full walk.
  virtual bool validate() = 0;
  // Whether the files are those that are mapped.
  virtual bool validateFiles() = 0;
  // Deletes all files of the table.
  virtual void cleanup() = 0;

  // Records, buckets, slots.
  virtual std::uint32_t members() const = 0;
  virtual std::uint32_t buckets() const = 0;
  virtual std::uint32_t minSize() const = 0;
  virtual std::uint32_t maxSize() const = 0;
  virtual std::uint32_t capacity() const = 0;

  virtual VaultType type() const = 0;
  virtual bool quiesced() const { return false; }
  virtual bool connected() const { return false; }
  virtual Reader::Counters readerCounters() const { return {}; }
  virtual void notifyingIs(bool /*notifying*/) {}
  virtual void yieldTimeIs(double const& /*seconds*/) {}
  virtual Nudge::Sequence sequence(Herald::Priority /*priority*/) const { return Nudge::kNoSequence; }
  virtual Mem::RootPath rootPath() const = 0;
  virtual Dovel::String vaultName() const = 0;
  // 0 not mounted, 1 mounted; a shadow has more.
  virtual int mountStatus() const = 0;
  virtual SharedMem::EmberId emberId() const { return {}; }

  // Throws where the value that was handed out last has changed since.
  virtual void validateVersionAnchor() const = 0;
  virtual Mem::VersionAnchor getCacheVersionAnchor() const { return {}; }
  virtual void criticalTaskCheckIs(bool /*check*/) {}
  virtual bool criticalTaskCheck() const { return false; }
  // 64 bits that the application keeps in the table.
  virtual std::uint64_t scratchpad() const = 0;
  virtual void scratchpadIs(std::uint64_t /*value*/);
  virtual void shrink() {}
  virtual void handleQuiesced(bool /*quiesced*/) {}
};

template <class Ops>
class VaultInterface : public VaultInterfaceBase {
 public:
  using Key = typename Ops::Key;
  using Value = typename Ops::Value;

  using VaultInterfaceBase::VaultInterfaceBase;

  // Stores the value; where its key is there already and update is false, that record stays. Returns the
  // stored one.
  virtual Value const* write(Value const& /*value*/, bool /*update*/) {
    throwNoPermissionException(debugHandler(), "VaultInterface", "write", "write to read-only Vault table");
  }
  // Removes the record and returns it in value; false where there is none.
  virtual bool remove(Key const& /*key*/, Value& /*value*/) {
    throwNoPermissionException(debugHandler(), "VaultInterface", "remove", "remove to read-only Vault table");
  }
  // The record, copied to `out` too unless that is null; the default record where there is none.
  virtual Value const* lookup(Key const& key, bool& found, void* out) const = 0;
  // The first record, and the one after a key, in the order of the store.
  virtual bool first(Value& value, IterHint& hint) const = 0;
  virtual bool next(Key const& key, Value& value, IterHint& hint) const = 0;

  // A write in two halves: what the first prepares is seen by nobody before the second.
  virtual void directWrite(Value const& /*value*/) {
    throwNoPermissionException(debugHandler(), "VaultInterface", "directWrite",
                               "write to read-only Vault table");
  }
  virtual void directCommit() {
    throwNoPermissionException(debugHandler(), "VaultInterface", "directCommit",
                               "write to read-only Vault table");
  }
  virtual Value const* directLookup(Key const& key, bool& found, void* out) const {
    return lookup(key, found, out);
  }
  // The record's flag, or whether there was a record to set it on.
  virtual bool markAndSweepFlag(Key const& /*key*/, MarkAndSweepOperation /*operation*/) {
    throwUnimplemented(debugHandler(), "markAndSweepFlag");
  }
};

}  // namespace Vault
