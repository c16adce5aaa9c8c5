// How a reader comes to the files of a store, follows them as they grow, and notices that they are no longer
// those of the store. The part of VaultReader that doesn't depend on the type of the records. One thread.
#pragma once

#include <functional>
#include <memory>

#include "Vault/SlotReaderCommon.h"
#include "VaultCore/BucketReader.h"
#include "VaultCore/SlotLink.h"
#include "platform/memory/RootPath.h"
#include "platform/memory/SharedMemWrapper.h"

namespace Vault {

class ReaderLifecycle {
 public:
  ReaderLifecycle(ReaderLifecycle const&) = delete;
  ReaderLifecycle& operator=(ReaderLifecycle const&) = delete;

 protected:
  using Buckets = VaultCore::BucketReader<SlotLink>;

  ReaderLifecycle(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                  std::function<void()> onReplaced);
  virtual ~ReaderLifecycle() = default;

  virtual SlotReaderTableCommon& slots() const = 0;

  std::unique_ptr<Mem::Mapping> mappingOf(char const* fileName) const;

  // False where the files aren't there or don't fit together; nothing is attached then. What doesn't
  // validate although nobody is replacing it leaves the corruption marker.
  bool attach(Dovel::String const& event);
  void detachFiles();
  Dovel::String dumpHeaders() const;

  // Whether the writer has given up the generation that is attached. One load and one comparison.
  [[gnu::always_inline]] bool isReplaced() const { return ember_ != nullptr && !generationIsOurs(); }
  // Whether what was read of an attached table holds: nothing was resized or replaced meanwhile.
  [[gnu::always_inline]] bool hasStayed() const { return buckets_.countIsCurrent() && generationIsOurs(); }
  // Tells, once, that it has. False, for the caller to return.
  bool replaced() const;
  // Whether the mapped files are those that the names lead to, of the generation that is attached.
  bool isInPlace() const;
  // Whether nothing was resized since followResize(). The version of the buckets tells of slots, too; that of
  // the slots shares its line with the lookaside slot, which each overwrite takes from all readers.
  [[gnu::always_inline]] bool isCurrent() const { return buckets_.isCurrent(); }
  bool followResize() const;

  Dovel::Platform::DebugHandler const handler_;
  Mem::RootPath const rootPath_;
  SharedMem::EmberId emberId_;
  mutable Reader::Counters counters_;
  mutable Buckets buckets_;
  bool initialized_ = false;

 private:
  [[gnu::always_inline]] bool generationIsOurs() const {
    return Mem::SharedWord::readGeneration(*ember_) == emberId_.value();
  }
  bool attachHalves();
  bool readGeneration();
  bool validateHalves();
  bool fails(char const* what, Dovel::String const& error);

  Mem::SharedMemWrapper emberMapping_;
  Mem::Cell const* ember_ = nullptr;
  std::function<void()> onReplaced_;
  mutable bool toldReplaced_ = false;
};

}  // namespace Vault
