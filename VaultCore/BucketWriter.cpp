#include "VaultCore/BucketWriter.h"

#include <fmt/format.h>

#include <bit>

#include "platform/memory/FileSize.h"
#include "platform/memory/ValidateFile.h"
#include "platform/memory/Validation.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace VaultCore {

BucketWriterCommon::BucketWriterCommon(Dovel::Platform::DebugHandler const& handler,
                                       Mem::RootPath const& rootPath, std::unique_ptr<Mem::Mapping> mapping,
                                       Mem::Cell emptyHead)
    : Dovel::Debuggable(handler), rootPath_(rootPath), mapping_(std::move(mapping)), emptyHead_(emptyHead) {}

std::size_t BucketWriterCommon::sizeFor(std::uint64_t numBuckets) {
  return Dovel::Util::fileSizeHelper(numBuckets, BucketTable::kElementSize, BucketTable::kHeaderSize);
}

void BucketWriterCommon::numBucketsIs(std::uint32_t numBuckets) {
  numBuckets_ = numBuckets;
  bits_ = numBuckets == 0 ? 0 : static_cast<unsigned>(std::countr_zero(numBuckets));
}

BucketWriterCommon::NumBuckets BucketWriterCommon::published() const {
  return NumBuckets::fromWord(Mem::SharedWord::ownWord(header_[BucketTable::kNumBucketsCell]));
}

void BucketWriterCommon::detach() {
  numBucketsIs(0);
  mappedBuckets_ = 0;
  header_ = nullptr;
  mapping_->detach();
}

unsigned BucketWriterCommon::attach(SharedMem::EmberId emberId, std::uint32_t expected) {
  detach();
  std::size_t const fileSize = mapping_->memSize();
  std::size_t const size = sizeFor(1);
  std::byte* const base =
      mapping_->attach(size, Mem::Access::readWrite, sizeFor(std::bit_ceil(std::uint64_t{expected})));
  if (base == nullptr) {
    DOVEL_THROW(Dovel::InvalidInitializeException, "BucketWriter", "cannot attach to shmem {} size:{}: {}",
                mapping_->getFilename(), size, mapping_->error());
  }
  baseIs(base);
  if (fileSize == 0) {
    using namespace Mem::SharedWord;
    storeHeaderWord(header_[BucketTable::kMagicCell],
                    Mem::fromHalves(BucketTable::kMagic, BucketTable::kElementSize));
    storeHeaderWord(header_[BucketTable::kGenerationCell], Mem::fromHalves(emberId.value(), 0));
    publishLink(header_[BucketTable::kFirstBucketCell], emptyHead_);
    publishCount(header_[BucketTable::kNumBucketsCell], NumBuckets{0, 1}.word());
    mappedBuckets_ = 1;
    numBucketsIs(1);
    return 1;
  }
  if (!validate(emberId, fileSize, error_)) return 8;
  resize(published().count);
  numBucketsIs(published().count);
  return 2;
}

bool BucketWriterCommon::validate(SharedMem::EmberId emberId, Dovel::String& error) const {
  return validate(emberId, mapping_->memSize(), error);
}

bool BucketWriterCommon::validate(SharedMem::EmberId emberId, std::uint64_t fileSize,
                                  Dovel::String& error) const {
  auto const fails = [&](Dovel::String const& text) {
    return Mem::failValidation(debugHandler(), "BucketWriter", text, error);
  };
  Mem::Cell const magic = Mem::SharedWord::ownWord(header_[BucketTable::kMagicCell]);
  SharedMem::EmberId const generation(
      Mem::lowHalf(Mem::SharedWord::ownWord(header_[BucketTable::kGenerationCell])));
  std::uint32_t const count = published().count;
  if (fileSize < sizeFor(1)) {
    return fails(DOVEL_TRACESTR("BucketWriter", "bad header file size: {} wanted:{}", fileSize, sizeFor(1)));
  }
  if (magic != Mem::fromHalves(BucketTable::kMagic, BucketTable::kElementSize)) {
    return fails(DOVEL_TRACESTR("BucketWriter", "bad magic or element size in {}: {:#x}",
                                mapping_->getFilename(), magic));
  }
  if (generation != emberId) {
    return fails(DOVEL_TRACESTR("BucketWriter", "mismatching ember:{}, oldEmber:{}", emberId, generation));
  }
  if (!std::has_single_bit(count) || count > BucketTable::kMaxBuckets) {
    return fails(DOVEL_TRACESTR("BucketWriter", "bad numBuckets: {}, not a power of two up to {}", count,
                                BucketTable::kMaxBuckets));
  }
  if (fileSize < sizeFor(count)) {
    return fails(DOVEL_TRACESTR("BucketWriter", "bad shmem size:{} wanted:{} for {} buckets", fileSize,
                                sizeFor(count), count));
  }
  return true;
}

bool BucketWriterCommon::validateFile() const {
  return Mem::validateFile(debugHandler(), rootPath_, mapping_->getFilename(), sizeFor(numBuckets_));
}

void BucketWriterCommon::resize(std::uint32_t numBuckets) {
  std::size_t const size = sizeFor(numBuckets);
  DOVEL_TRACE(debugHandler(), 5, "BucketWriter", "{} from {} to {} buckets", mapping_->getFilename(),
              numBuckets_, numBuckets);
  std::byte* const base = mapping_->resize(size);
  if (base == nullptr) {
    DOVEL_THROW(Dovel::MemoryResourceException, "BucketWriter",
                "failed to resize {} from {} to {} buckets, needed {} bytes. Reason: {}",
                mapping_->getFilename(), numBuckets_, numBuckets, size, mapping_->error());
  }
  baseIs(base);
  mappedBuckets_ = numBuckets;
}

void BucketWriterCommon::publish(std::uint32_t numBuckets) {
  Mem::SharedWord::publishCount(header_[BucketTable::kNumBucketsCell], published().next(numBuckets).word());
  numBucketsIs(numBuckets);
}

void BucketWriterCommon::cleanup() {
  DOVEL_TRACE(debugHandler(), 3, "BucketWriter", "removing file: {}", mapping_->getFilename());
  mapping_->removeFile();
}

Dovel::String BucketWriterCommon::toString() const {
  if (header_ == nullptr) return "not mapped";
  NumBuckets const count = published();
  return fmt::format("ember:{:#x} numBuckets:{} version:{}",
                     Mem::lowHalf(Mem::SharedWord::ownWord(header_[BucketTable::kGenerationCell])),
                     count.count, count.version);
}

void BucketWriterCommon::throwOutOfRange(std::uint32_t bucket) const {
  DOVEL_THROW(Dovel::CorruptionDetectedException, "BucketWriter", "bucket {} out of range, numBuckets: {}",
              bucket, numBuckets_);
}

}  // namespace VaultCore
