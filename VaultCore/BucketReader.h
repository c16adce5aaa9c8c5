// The bucket file as a reader sees it: a read-only mapping that follows the writer's count. One thread;
// nothing is ever written.
#pragma once

#include <memory>

#include "VaultCore/BucketTable.h"
#include "platform/memory/EmberId.h"
#include "platform/memory/Mapping.h"
#include "platform/memory/VersionedRef.h"
#include "runtime/Dovel/DebugHandler.h"

namespace VaultCore {

// What does not depend on the type of a head.
class BucketReaderCommon : public Dovel::Debuggable {
 public:
  using NumBuckets = Mem::VersionedRef<std::uint32_t>;

  BucketReaderCommon(Dovel::Platform::DebugHandler const& handler, std::unique_ptr<Mem::Mapping> mapping);

  // Maps the header; the heads follow with the first doResize(). False where there is no file.
  bool attach();
  void detach();
  bool attached() const { return header_ != nullptr; }

  // Whether the header is that of this generation. The reason goes to error and, at level 0, to the trace.
  bool validate(SharedMem::EmberId emberId, Dovel::String& error) const;

  // Whether the writer's count is still the one that is mapped. One load and one comparison.
  [[gnu::always_inline]] bool isCurrent() const { return header_ == nullptr || countIsCurrent(); }
  // The same of one that is attached.
  [[gnu::always_inline]] bool countIsCurrent() const { return published() == numBucketsRef_; }
  // Follows the writer's count; true where there was something to follow.
  // Throws Dovel::CorruptionDetectedException for a count that can't be, and Dovel::MemoryResourceException.
  bool doResize();
  // Has isCurrent() say no until the next doResize(), whatever the writer does.
  void versionIsUnknown() { numBucketsRef_ = kNone; }

  // 0 as long as no heads are mapped.
  std::uint32_t numBuckets() const { return numBuckets_; }
  // numBuckets() is two to this power.
  unsigned bits() const { return bits_; }
  std::uint64_t resizes() const { return resizes_; }
  Mem::Mapping const& mapping() const { return *mapping_; }
  Dovel::String toString() const;

  [[gnu::always_inline]] Mem::Cell const& headCell(std::uint32_t bucket) const {
    if (bucket >= numBuckets_) [[unlikely]]
      throwOutOfRange(bucket);
    return header_[BucketTable::kFirstBucketCell + bucket];
  }
  // Both throw Dovel::CorruptionDetectedException.
  [[noreturn]] void throwOutOfRange(std::uint32_t bucket) const;
  // A walk may have been one of a table that has been superseded.
  [[noreturn]] void throwNumBucketsMismatch(NumBuckets found) const;

  [[gnu::always_inline]] NumBuckets published() const {
    return NumBuckets::fromWord(Mem::SharedWord::readCount(header_[BucketTable::kNumBucketsCell]));
  }

 private:
  static constexpr NumBuckets kNone{0xffffffff, 0};

  std::unique_ptr<Mem::Mapping> const mapping_;
  Mem::Cell const* header_ = nullptr;
  NumBuckets numBucketsRef_ = kNone;
  std::uint32_t numBuckets_ = 0;
  unsigned bits_ = 0;
  std::uint64_t resizes_ = 0;
};

template <class Link>
class BucketReader : public BucketReaderCommon {
 public:
  using BucketReaderCommon::BucketReaderCommon;

  static Link linkIn(Mem::Cell const& cell) { return Link::fromWord(Mem::SharedWord::readLink(cell)); }
  Link head(std::uint32_t bucket) const { return linkIn(headCell(bucket)); }
};

}  // namespace VaultCore
