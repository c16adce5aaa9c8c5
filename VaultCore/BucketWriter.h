// The bucket file as its writer sees it. One thread; see SharedWord.h for what readers may rely on.
#pragma once

#include <memory>

#include "VaultCore/BucketTable.h"
#include "platform/memory/EmberId.h"
#include "platform/memory/Mapping.h"
#include "platform/memory/RootPath.h"
#include "platform/memory/VersionedRef.h"
#include "runtime/Dovel/DebugHandler.h"

namespace VaultCore {

// What does not depend on the type of a head.
class BucketWriterCommon : public Dovel::Debuggable {
 public:
  using NumBuckets = Mem::VersionedRef<std::uint32_t>;

  // The root path outlives the table. emptyHead: a link that leads nowhere.
  BucketWriterCommon(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
                     std::unique_ptr<Mem::Mapping> mapping, Mem::Cell emptyHead);

  // Maps the file; makes it, with one empty bucket, where it is absent or empty. Returns 1 for a new file, 2
  // for one that was adopted, 8 where its header is not that of this generation; error() has the reason.
  // So many buckets are to be expected, for as many records: growth up to there is cheaper.
  // Throws Dovel::InvalidInitializeException and Dovel::MemoryResourceException.
  unsigned attach(SharedMem::EmberId emberId, std::uint32_t expected);
  void detach();
  bool attached() const { return header_ != nullptr; }

  // Maps room for so many buckets. Throws Dovel::MemoryResourceException; then nothing has changed.
  void resize(std::uint32_t numBuckets);
  // From here on readers, and numBuckets(), use the new count.
  void publish(std::uint32_t numBuckets);
  // The same count under a new version: what readers look at in passing is this word alone, so it has to tell
  // them of a new number of slots, too. Comes behind the publication of that.
  void publishAgain() { publish(numBuckets_); }

  // The header; the chains are checked by who walks them.
  bool validate(SharedMem::EmberId emberId, Dovel::String& error) const;
  // Whether a file that is large enough is there.
  bool validateFile() const;
  // Deletes the file.
  void cleanup();

  std::uint32_t numBuckets() const { return numBuckets_; }
  // numBuckets() is two to this power.
  unsigned bits() const { return bits_; }
  Dovel::String const& error() const { return error_; }
  Mem::Mapping& mapping() const { return *mapping_; }
  Dovel::String toString() const;

  // A head of the mapped room, which a resize has made larger than numBuckets() for a while.
  [[gnu::always_inline]] Mem::Cell& headCell(std::uint32_t bucket) const {
    if (bucket >= mappedBuckets_) [[unlikely]]
      throwOutOfRange(bucket);
    return header_[BucketTable::kFirstBucketCell + bucket];
  }
  [[noreturn]] void throwOutOfRange(std::uint32_t bucket) const;

 private:
  static std::size_t sizeFor(std::uint64_t numBuckets);
  void baseIs(std::byte* base) { header_ = reinterpret_cast<Mem::Cell*>(base); }
  void numBucketsIs(std::uint32_t numBuckets);
  NumBuckets published() const;
  bool validate(SharedMem::EmberId emberId, std::uint64_t fileSize, Dovel::String& error) const;

  Mem::RootPath const& rootPath_;
  std::unique_ptr<Mem::Mapping> mapping_;
  Mem::Cell const emptyHead_;
  Dovel::String error_;
  Mem::Cell* header_ = nullptr;
  unsigned bits_ = 0;
  std::uint32_t mappedBuckets_ = 0;
  std::uint32_t numBuckets_ = 0;
};

template <class Link>
class BucketWriter : public BucketWriterCommon {
 public:
  BucketWriter(Dovel::Platform::DebugHandler const& handler, Mem::RootPath const& rootPath,
               std::unique_ptr<Mem::Mapping> mapping)
      : BucketWriterCommon(handler, rootPath, std::move(mapping), Link{}.word()) {}

  [[gnu::always_inline]] Link head(std::uint32_t bucket) const {
    return Link::fromWord(Mem::SharedWord::ownWord(headCell(bucket)));
  }
};

}  // namespace VaultCore
