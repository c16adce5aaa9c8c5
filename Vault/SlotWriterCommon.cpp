#include "Vault/SlotWriterCommon.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "Vault/TableFullException.h"
#include "platform/memory/FileSize.h"
#include "platform/memory/Validation.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Dovel/Random.h"

namespace Vault {

SlotWriterTableCommon::SlotWriterTableCommon(Dovel::Platform::DebugHandler const& handler,
                                             Mem::RootPath const& rootPath,
                                             std::unique_ptr<Mem::Mapping> mapping, Setup const& setup,
                                             std::uint32_t& hashSeed, Writer::Counters& counters)
    : Dovel::Debuggable(handler),
      rootPath_(rootPath),
      mapping_(std::move(mapping)),
      maxSize_(setup.maxSize),
      hashSeed_(hashSeed),
      capacity_(setup.capacity),
      counters_(counters),
      fixedSize_(setup.fixedSize),
      shrink_(setup.shrink),
      shape_(setup.shape),
      marshalledSize_(setup.marshalledSize),
      typeName_(setup.typeName),
      defaultValue_(setup.defaultValue) {}

SlotHeaderDescription SlotWriterTableCommon::description(SharedMem::EmberId emberId) const {
  return {shape_, capacity_, maxSize_, marshalledSize_, typeName_, emberId, hashSeed_};
}

std::size_t SlotWriterTableCommon::sizeFor(std::uint64_t numSlots) const {
  return Dovel::Util::fileSizeHelper(numSlots, shape_.slotSize(), shape_.headerSize());
}

void SlotWriterTableCommon::baseIs(std::byte* base) {
  header_ = reinterpret_cast<Mem::Cell*>(base);
  slots_ = base == nullptr ? nullptr : header_ + shape_.headerSize() / sizeof(Mem::Cell);
}

void SlotWriterTableCommon::numSlotsIs(std::uint32_t numSlots) {
  numSlots_ = numSlots;
  indexLimit_ = numSlots;
}

void SlotWriterTableCommon::detach() {
  numSlotsIs(0);
  shrinkThreshold_ = 0;
  lastValueIs({});
  baseIs(nullptr);
  mapping_->detach();
}

AttachResult SlotWriterTableCommon::attach(SharedMem::EmberId emberId) {
  detach();
  std::size_t const fileSize = mapping_->memSize();
  std::size_t const size = sizeFor(capacity_);
  std::byte* const base = mapping_->attach(size, Mem::Access::readWrite, sizeFor(maxSize_));
  if (base == nullptr) {
    DOVEL_THROW(Dovel::InvalidInitializeException, "SlotWriterTable", "cannot attach to shmem {} size:{}: {}",
                mapping_->getFilename(), size, mapping_->error());
  }
  baseIs(base);
  bool const isNew = fileSize == 0;
  if (isNew) {
    attachNew(emberId);
  } else {
    if (!validateHeader(emberId, fileSize, error_)) return AttachResult::badHeader;
    adopt();
  }
  DOVEL_TRACE(debugHandler(), 3, "SlotWriterTable", "{}", header().toString());
  return isNew ? AttachResult::newFile : AttachResult::existingFile;
}

void SlotWriterTableCommon::attachNew(SharedMem::EmberId emberId) {
  hashSeed_ = static_cast<std::uint32_t>(Dovel::Random::rand64() % 0x7fffffff);
  header().construct(description(emberId));
  Mem::SharedWord::publishLink(header().lookasideCells()[0], SlotLink{}.word());
  for (std::uint32_t cell = 1; cell < shape_.slotCells(); ++cell)
    Mem::SharedWord::storeValueWord(header().lookasideCells()[cell], 0);
  numSlotsIs(header().numSlots().count);
  updateShrinkThreshold();
  header().freeListIs(initializeSlots(0, capacity_));
  if (rootPath_.shared()) {
    DOVEL_TRACE(debugHandler(), 2, "SlotWriterTable", "to new file {}", mapping_->getFilename());
  }
}

void SlotWriterTableCommon::adopt() {
  hashSeed_ = header().hashSeed();
  std::uint32_t const numSlots = header().numSlots().count;
  std::size_t const size = sizeFor(numSlots);
  std::byte* const base = mapping_->resize(size);
  if (base == nullptr) {
    DOVEL_THROW(Dovel::MemoryResourceException, "SlotWriterTable", "failed to resize {} to size {} : {}",
                mapping_->getFilename(), size, mapping_->error());
  }
  baseIs(base);
  numSlotsIs(numSlots);
  if (header().maxSize() != maxSize_) header().maxSizeIs(maxSize_);
  updateShrinkThreshold();
  DOVEL_TRACE(debugHandler(), 2, "SlotWriterTable", "to existing {}", mapping_->getFilename());
}

bool SlotWriterTableCommon::validateHeader(SharedMem::EmberId emberId, std::uint64_t fileSize,
                                           Dovel::String& error) const {
  if (!header().validate(debugHandler(), SlotTable::kCommonHeaderSize, fileSize, description(emberId),
                         error)) {
    return false;
  }
  auto const fails = [&](Dovel::String const& text) {
    return Mem::failValidation(debugHandler(), "SlotTable", text, error);
  };
  if (fileSize < shape_.headerSize()) {
    return fails(
        DOVEL_TRACESTR("SlotTable", "bad header file size: {} wanted:{}", fileSize, shape_.headerSize()));
  }
  std::uint32_t const numSlots = header().numSlots().count;
  if (numSlots == 0 || numSlots > kMaxSlots) {
    return fails(
        DOVEL_TRACESTR("SlotTable", "bad numSlots: {} message: {}", numSlots, "legal are 1 to 1073741823"));
  }
  try {
    std::size_t const wanted = sizeFor(numSlots);
    if (fileSize < wanted) {
      return fails(DOVEL_TRACESTR("SlotTable", "bad shmem size:{} wanted:{} for {} slots", fileSize, wanted,
                                  numSlots));
    }
  } catch (Dovel::RuntimeException const& overflow) {
    return fails(DOVEL_TRACESTR("SlotTable", "bad numSlots: {} message: {}", numSlots, overflow.msg()));
  }
  return true;
}

bool SlotWriterTableCommon::validate(SharedMem::EmberId emberId, Dovel::String& error) const {
  auto const fails = [&](Dovel::String const& text) {
    return Mem::failValidation(debugHandler(), "SlotWriterTable", text, error);
  };
  if ((header().runtimeFlags() & SlotTable::kInCriticalSection) != 0) {
    return fails(
        DOVEL_TRACESTR("SlotWriterTable", "bad critical section runtimeFlags:{:x}", header().runtimeFlags()));
  }
  if (header().emberId() != emberId) {
    return fails(
        DOVEL_TRACESTR("SlotWriterTable", "mismatching ember:{}, oldEmber:{}", emberId, header().emberId()));
  }
  if (fixedSize_ && header().numSlots().count != capacity_) {
    return fails(DOVEL_TRACESTR("SlotWriterTable",
                                "wanted capacity:{} for fixed-size table, but existing file has capacity:{}",
                                capacity_, header().numSlots().count));
  }
  return validateHeader(emberId, mapping_->memSize(), error);
}

void SlotWriterTableCommon::resize(std::uint32_t newNumSlots) {
  DOVEL_TRACE(debugHandler(), 5, "SlotWriterTable", "{} from {} to {} slots", mapping_->getFilename(),
              numSlots_, newNumSlots);
  if (newNumSlots > maxSize_) {
    DOVEL_TRACE(debugHandler(), 5, "SlotWriterTable", "overflowing by {} slots", newNumSlots - maxSize_);
  }
  std::size_t const size = sizeFor(newNumSlots);
  std::byte* const oldBase = reinterpret_cast<std::byte*>(header_);
  std::byte* const newBase = mapping_->resize(size);
  if (newBase == nullptr) {
    DOVEL_THROW(Dovel::MemoryResourceException, "SlotWriterTable",
                "failed to resize {} from {} to {} slots, needed {} bytes. Reason: {}",
                mapping_->getFilename(), numSlots_, newNumSlots, size, mapping_->error());
  }
  if (newBase != oldBase) {
    DOVEL_TRACE(debugHandler(), 5, "SlotWriterTable", "remap base address changed from {} to {}",
                static_cast<void const*>(oldBase), static_cast<void const*>(newBase));
    ++counters_.remaps;
  }
  baseIs(newBase);
  lastValue_.rebase(oldBase, newBase, size);
  DOVEL_TRACE(debugHandler(), 5, "SlotWriterTable", "to {} successfully", newNumSlots);
}

// The value's size is a multiple of 4; what stands behind it is 0.
void SlotWriterTableCommon::defaultContentsTo(Mem::Cell* cells) const {
  auto const* const value = static_cast<std::byte const*>(defaultValue_);
  for (std::uint32_t cell = 1, at = 0; cell < shape_.slotCells(); ++cell, at += 8) {
    Mem::Cell word = 0;
    if (at < shape_.valueSize) std::memcpy(&word, value + at, std::min(shape_.valueSize - at, 8u));
    Mem::SharedWord::storeValueWord(cells[cell], word);
  }
}

std::uint32_t SlotWriterTableCommon::initializeSlots(std::uint32_t first, std::uint32_t end) {
  DOVEL_ASSERT(first < end, "SlotWriterTable", "bad index range, start: {} end: {}", first, end);
  DOVEL_ASSERT(header().freeList() == SlotLink::kNil, "SlotWriterTable", "free-list is not empty");
  std::uint32_t const peak = header().peakNumSlots();
  std::uint32_t const watermark = header().sequenceWatermark();
  std::uint32_t const slotCells = shape_.slotCells();
  Mem::Cell* const last = cellsOf(end - 1);
  Mem::Cell* cells = last;
  std::uint32_t next = SlotLink::kNil;
  for (std::uint32_t id = end; id-- > first; cells -= slotCells) {
    SlotLink const link{id < peak ? watermark : 0, SlotLink::kNil};
    Mem::SharedWord::publishLink(cells[0], link.word());
    if (cells == last) {
      defaultContentsTo(cells);
    } else {
#pragma GCC unroll 4
      for (std::uint32_t cell = 1; cell < slotCells; ++cell)
        Mem::SharedWord::storeValueWord(cells[cell], Mem::SharedWord::loadValueWord(last[cell]));
    }
    Mem::SharedWord::publishLink(cells[0], link.ledTo(next).word());
    next = id;
  }
  return first;
}

std::uint32_t SlotWriterTableCommon::grownSize() const {
  // In single precision, so that tables grow to the same sizes everywhere.
  auto const now = static_cast<float>(numSlots_);
  float grown =
      numSlots_ < maxSize_ ? std::min(2 * now, static_cast<float>(maxSize_)) : std::ceil(now * 1.1f);
  while (static_cast<double>(grown) <= numSlots_) grown = std::nextafter(grown, HUGE_VALF);
  return static_cast<std::uint32_t>(std::min<double>(grown, kMaxSlots));
}

bool SlotWriterTableCommon::grow() {
  std::uint32_t const occupied = header().occupiedSlots();
  if (occupied != header().numSlots().count) {
    DOVEL_THROW(Dovel::CorruptionDetectedException, "SlotWriterTable",
                "the slot table is full but numSlots: {} and occupiedSlots: {} are not equal",
                header().numSlots().count, occupied);
  }
  if (fixedSize_ || numSlots_ >= kMaxSlots) return false;
  std::uint32_t const old = numSlots_;
  std::uint32_t const grown = grownSize();
  resize(grown);
  indexLimit_ = grown;
  std::uint32_t const freeList = initializeSlots(old, grown);
  if (header().peakNumSlots() < grown) header().peakNumSlotsIs(grown);
  header().publishNumSlots(grown);
  header().freeListIs(freeList);
  DOVEL_TRACE(debugHandler(), 2, "SlotWriterTable", "{} from {} slots to {}", mapping_->getFilename(), old,
              grown);
  numSlotsIs(grown);
  updateShrinkThreshold();
  ++counters_.slotGrows;
  return true;
}

void SlotWriterTableCommon::alloc() {
  leaveCriticalSection();
  Dovel::fmthrow<TableFullException>(debugHandler(), 0, "SlotWriterTable", __FILE__, __func__, __LINE__,
                                     "Vault table full (occupancy:{} tableSize:{}) {}",
                                     header().occupiedSlots(), maxSize_, rootPath_.dirName());
}

void SlotWriterTableCommon::updateShrinkThreshold() {
  bool const mayShrink = shrink_ && !fixedSize_ && numSlots_ > capacity_;
  shrinkThreshold_ = mayShrink ? std::bit_floor(numSlots_ - 1) : 0;
  DOVEL_TRACE(debugHandler(), 5, "SlotWriterTable", "shrinkThreshold_:{}", shrinkThreshold_);
}

void SlotWriterTableCommon::purgeFreeSlots(std::uint32_t threshold) {
  DOVEL_ASSERT(threshold < numSlots_, "SlotWriterTable", "bad threshold: {} numSlots:{}", threshold,
               numSlots_);
  DOVEL_ASSERT(header().freeList() != SlotLink::kNil, "SlotWriterTable", "free-list is empty");
  std::uint32_t length = 0;
  Mem::Cell* kept = nullptr;
  for (std::uint32_t id = header().freeList(); id != SlotLink::kNil;) {
    Mem::Cell& cell = *cellsOf(id);
    std::uint32_t const next = SlotLink::fromWord(Mem::SharedWord::ownWord(cell)).target();
    if (++length > numSlots_) break;
    if (id < threshold) {
      kept = &cell;
    } else {
      DOVEL_TRACE(debugHandler(), 7, "SlotWriterTable", "removing slot id {} from free-list", id);
      if (kept == nullptr) {
        header().freeListIs(next);
      } else {
        SlotLink const link = SlotLink::fromWord(Mem::SharedWord::ownWord(*kept));
        Mem::SharedWord::publishLink(*kept, link.ledTo(next).word());
      }
    }
    id = next;
  }
  if (length + header().occupiedSlots() != header().numSlots().count) {
    DOVEL_THROW(Dovel::CorruptionDetectedException, "SlotWriterTable",
                "numSlots mismatch, length of freeList: {}, occupiedSlots: {} do not add up to numSlots: {}",
                length, header().occupiedSlots(), header().numSlots().count);
  }
}

void SlotWriterTableCommon::keepSequenceWatermark(std::uint32_t newNumSlots) {
  std::uint32_t highest = header().sequenceWatermark();
  for (std::uint32_t id = newNumSlots; id < numSlots_; ++id) {
    std::uint32_t const sequence = Mem::lowHalf(Mem::SharedWord::ownWord(*cellsOf(id)));
    highest = std::max(highest, (sequence + 3) / 4 * 4);
  }
  header().sequenceWatermarkIs(highest);
}

void SlotWriterTableCommon::shrink(std::uint32_t newNumSlots) {
  std::uint32_t const old = numSlots_;
  keepSequenceWatermark(newNumSlots);
  header().publishNumSlots(newNumSlots);
  resize(newNumSlots);
  numSlotsIs(newNumSlots);
  updateShrinkThreshold();
  ++counters_.slotShrinks;
  DOVEL_TRACE(debugHandler(), 2, "SlotWriterTable", "{} from {} slots to {}", mapping_->getFilename(), old,
              newNumSlots);
}

void SlotWriterTableCommon::cleanup() {
  DOVEL_TRACE(debugHandler(), 3, "SlotWriterTable", "removing file: {}", mapping_->getFilename());
  mapping_->removeFile();
}

void SlotWriterTableCommon::throwOutOfRange(std::uint32_t slot) const {
  DOVEL_THROW(Dovel::CorruptionDetectedException, "SlotWriterTable", "out-of-range index: {} max:{}", slot,
              indexLimit_ == 0 ? 0 : indexLimit_ - 1);
}

void SlotWriterTableCommon::failReentrancy() const {
  Dovel::fmassert(debugHandler(), "SlotWriterTable", __FILE__, "enterCriticalSection", __LINE__,
                  "Vault reentrancy detected: {}", rootPath_.dirName());
}

}  // namespace Vault
