#include "VaultCore/BucketReader.h"

#include <fmt/format.h>

#include <bit>

#include "platform/memory/FileSize.h"
#include "platform/memory/Validation.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace VaultCore {

BucketReaderCommon::BucketReaderCommon(Dovel::Platform::DebugHandler const& handler,
                                       std::unique_ptr<Mem::Mapping> mapping)
    : Dovel::Debuggable(handler), mapping_(std::move(mapping)) {}

void BucketReaderCommon::detach() {
  header_ = nullptr;
  numBucketsRef_ = kNone;
  numBuckets_ = 0;
  bits_ = 0;
  mapping_->detach();
}

bool BucketReaderCommon::attach() {
  detach();
  std::size_t const fileSize = mapping_->memSize();
  if (fileSize == 0) {
    DOVEL_TRACE(debugHandler(), 0, "BucketReader", "no shared memory region");
    return false;
  }
  std::byte const* const base = mapping_->attach(BucketTable::kHeaderSize, Mem::Access::readOnly, fileSize);
  if (base == nullptr || mapping_->mappedSize() < BucketTable::kHeaderSize) {
    DOVEL_TRACE(debugHandler(), 0, "BucketReader", "cannot attach to shmem size:{}: {}",
                BucketTable::kHeaderSize, mapping_->error());
    mapping_->detach();
    return false;
  }
  header_ = reinterpret_cast<Mem::Cell const*>(base);
  DOVEL_TRACE(debugHandler(), 3, "BucketReader", "{}", toString());
  return true;
}

bool BucketReaderCommon::validate(SharedMem::EmberId emberId, Dovel::String& error) const {
  auto const fails = [&](Dovel::String const& text) {
    return Mem::failValidation(debugHandler(), "BucketReader", text, error);
  };
  std::size_t const fileSize = mapping_->memSize();
  if (fileSize < BucketTable::kHeaderSize) {
    return fails(DOVEL_TRACESTR("BucketReader", "bad header file size: {} wanted:{}", fileSize,
                                BucketTable::kHeaderSize));
  }
  Mem::Cell const magic = Mem::SharedWord::loadHeaderWord(header_[BucketTable::kMagicCell]);
  if (magic != Mem::fromHalves(BucketTable::kMagic, BucketTable::kElementSize)) {
    return fails(DOVEL_TRACESTR("BucketReader", "bad magic or element size in {}: {:#x}",
                                mapping_->getFilename(), magic));
  }
  SharedMem::EmberId const generation(
      Mem::lowHalf(Mem::SharedWord::loadHeaderWord(header_[BucketTable::kGenerationCell])));
  if (generation != emberId) {
    return fails(DOVEL_TRACESTR("BucketReader", "mismatching ember:{}, oldEmber:{}", emberId, generation));
  }
  return true;
}

bool BucketReaderCommon::doResize() {
  if (isCurrent()) return false;
  NumBuckets const wanted = published();
  if (!std::has_single_bit(wanted.count) || wanted.count > BucketTable::kMaxBuckets) {
    DOVEL_THROW(Dovel::CorruptionDetectedException, "BucketReader",
                "bad numBuckets: {}, not a power of two up to {}", wanted.count, BucketTable::kMaxBuckets);
  }
  std::size_t const size =
      Dovel::Util::fileSizeHelper(wanted.count, BucketTable::kElementSize, BucketTable::kHeaderSize);
  std::size_t const fileSize = mapping_->memSize();
  if (size > fileSize) {
    DOVEL_THROW(Dovel::CorruptionDetectedException, "BucketReader",
                "requesting to map {} {} buckets. Requested file resize to {} but real file size is {}",
                mapping_->getFilename(), wanted.count, size, fileSize);
  }
  DOVEL_TRACE(debugHandler(), 2, "BucketReader", "{} from {} buckets to {}", mapping_->getFilename(),
              numBuckets_, wanted.count);
  std::byte const* const base = mapping_->resize(size);
  if (base == nullptr) {
    DOVEL_THROW(Dovel::MemoryResourceException, "BucketReader",
                "failed to resize {} from {} to {} buckets, needed {} bytes. Reason: {}",
                mapping_->getFilename(), numBuckets_, wanted.count, size, mapping_->error());
  }
  header_ = reinterpret_cast<Mem::Cell const*>(base);
  numBucketsRef_ = wanted;
  numBuckets_ = wanted.count;
  bits_ = static_cast<unsigned>(std::countr_zero(wanted.count));
  ++resizes_;
  return true;
}

Dovel::String BucketReaderCommon::toString() const {
  if (header_ == nullptr) return "not mapped";
  NumBuckets const count = published();
  return fmt::format("ember:{:#x} numBuckets:{} version:{}",
                     Mem::lowHalf(Mem::SharedWord::loadHeaderWord(header_[BucketTable::kGenerationCell])),
                     count.count, count.version);
}

void BucketReaderCommon::throwOutOfRange(std::uint32_t bucket) const {
  DOVEL_THROW(Dovel::CorruptionDetectedException, "BucketReader", "bucket {} out of range, numBuckets: {}",
              bucket, numBuckets_);
}

void BucketReaderCommon::throwNumBucketsMismatch(NumBuckets found) const {
  DOVEL_THROW(Dovel::CorruptionDetectedException, "BucketReader",
              "the number of buckets has changed during the walk, to {} of version {} from {} of version {}",
              found.count, found.version, numBucketsRef_.count, numBucketsRef_.version);
}

}  // namespace VaultCore
