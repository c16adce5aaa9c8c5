// The files of a store, read without disturbing whoever writes it: nothing is made, locked, mapped or
// changed. What is read is a copy; while a writer is at work its parts may be of different moments.
// Immutable; any thread.
#pragma once

#include "Vault/StoreImage.h"
#include "runtime/Dovel/Exception.h"

namespace Vault {

// A directory that can't be read.
class StoreReadException : public Dovel::RuntimeException {
 public:
  using RuntimeException::RuntimeException;
  ~StoreReadException() override;
  [[noreturn]] static void throwException(Dovel::String const& message);
};

class StoreFiles {
 public:
  enum class Extent { headers, whole };

  // Throws StoreReadException. What is wrong with single files is told by their images.
  StoreFiles(Dovel::String directory, Extent extent);

  Dovel::String const& directory() const { return directory_; }
  SlotsImage const& slots() const { return slots_; }
  BucketsImage const& buckets() const { return buckets_; }
  FileImage const& ember() const { return ember_; }
  // Of the generation file; 0 where there is none.
  std::uint32_t generation() const { return Mem::lowHalf(ember_.word(0)); }
  // The directory has been made a complete table.
  bool hasControlFile() const { return control_; }
  // Somebody has found the store damaged.
  bool isMarkedCorrupt() const { return corrupt_; }
  // A writer holds its lock on the store.
  bool isLocked() const { return locked_; }
  // The count was changed while the files were read.
  bool numSlotsChanged() const { return numSlotsChanged_; }
  bool numBucketsChanged() const { return numBucketsChanged_; }

 private:
  class Directory;
  StoreFiles(Dovel::String directory, Directory const& open, Extent extent);

  Dovel::String directory_;
  SlotsImage slots_;
  BucketsImage buckets_;
  FileImage ember_;
  bool control_;
  bool corrupt_;
  bool locked_;
  bool numSlotsChanged_;
  bool numBucketsChanged_;
};

}  // namespace Vault
