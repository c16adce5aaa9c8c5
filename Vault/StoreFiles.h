// The files of a store, read without disturbing whoever writes it: nothing is made, locked, mapped or
// changed. What is read is a copy; while a writer is at work its parts may be of different moments.
// Immutable; any thread.
#pragma once

#include <sys/types.h>

#include "Vault/StoreImage.h"
#include "platform/memory/EmberId.h"
#include "platform/memory/RootPath.h"

namespace Vault {

// Who writes a store, or wrote it last.
struct StoreOwner {
  // The file's record can be used; what follows is empty and 0 where it can't.
  bool known = false;
  bool wiped = false;
  unsigned sharedMemType = 0;
  pid_t pid = 0;
  std::uint64_t startTime = 0;  // clock ticks since the machine came up
  Dovel::String bootId;
  Dovel::String typeName;
  Dovel::String socketName;
};

class StoreFiles {
 public:
  enum class Extent { headers, whole };

  // Whatever is wrong with the files is told by their images.
  StoreFiles(Mem::RootPath const& rootPath, Extent extent);

  // Whether a directory looks like that of a store.
  static bool standsIn(Mem::RootPath const& rootPath);

  Mem::RootPath const& rootPath() const { return rootPath_; }
  SlotsImage const& slots() const { return slots_; }
  BucketsImage const& buckets() const { return buckets_; }
  // Of the generation file, and when that was written, in nanoseconds since 1970; 0 where there is none.
  SharedMem::EmberId generation() const { return generation_; }
  std::uint64_t generationTime() const { return generationTime_; }
  StoreOwner const& owner() const { return owner_; }
  // Why a next writer will find the owner file no good and wipe the store; empty where it won't.
  Dovel::String const& ownerProblem() const { return ownerProblem_; }
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
  Mem::RootPath rootPath_;
  // Read in this order, and the counts once more after all of it.
  SlotsImage slots_;
  BucketsImage buckets_;
  SharedMem::EmberId generation_;
  std::uint64_t generationTime_;
  StoreOwner owner_;
  Dovel::String ownerProblem_;
  bool control_;
  bool corrupt_;
  bool locked_;
  bool numSlotsChanged_;
  bool numBucketsChanged_;
};

}  // namespace Vault
