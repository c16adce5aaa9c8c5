#include "Vault/SlotReaderCommon.h"

#include "platform/memory/FileSize.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Vault {

SlotReaderTableCommon::SlotReaderTableCommon(Dovel::Platform::DebugHandler const& handler,
                                             std::unique_ptr<Mem::Mapping> mapping, Setup const& setup,
                                             Reader::Counters& counters)
    : Dovel::Debuggable(handler),
      counters_(counters),
      mapping_(std::move(mapping)),
      setup_(setup),
      headerCopy_(setup.shape.headerSize() / sizeof(Mem::Cell)) {}

void SlotReaderTableCommon::detach() {
  header_ = slots_ = nullptr;
  numSlotsRef_ = kNone;
  numSlots_ = capacity_ = 0;
  lastValueIs({});
  mapping_->detach();
}

bool SlotReaderTableCommon::attach() {
  detach();
  std::size_t const size = setup_.shape.headerSize();
  std::size_t const fileSize = mapping_->memSize();
  if (fileSize == 0) {
    DOVEL_TRACE(debugHandler(), 0, "SlotReaderTable", "no shared memory region");
    return false;
  }
  std::byte const* const base = mapping_->attach(size, Mem::Access::readOnly, fileSize);
  if (base == nullptr || mapping_->mappedSize() < size) {
    DOVEL_TRACE(debugHandler(), 0, "SlotReaderTable", "cannot attach to shmem size:{}: {}", size,
                mapping_->error());
    mapping_->detach();
    return false;
  }
  header_ = reinterpret_cast<Mem::Cell const*>(base);
  copyHeader();
  DOVEL_TRACE(debugHandler(), 3, "SlotReaderTable", "{}", toString());
  hashSeed_ = copiedHeader().hashSeed();
  capacity_ = copiedHeader().numSlots().count;
  return true;
}

std::size_t SlotReaderTableCommon::copyHeader() {
  for (;;) {
    NumSlots const before = published();
    for (std::size_t at = 0; at < headerCopy_.size(); ++at)
      headerCopy_[at] = Mem::SharedWord::loadHeaderWord(header_[at]);
    std::size_t const fileSize = mapping_->memSize();
    Mem::SharedWord::beforeRecheck();
    if (published() == before) return fileSize;
  }
}

bool SlotReaderTableCommon::validate(SharedMem::EmberId emberId, Dovel::String& error) const {
  SlotHeaderDescription const expected{.shape = setup_.shape,
                                       .marshalledSize = setup_.marshalledSize,
                                       .typeName = setup_.typeName,
                                       .emberId = emberId};
  return copiedHeader().validate(debugHandler(), SlotTable::kCommonHeaderSize, mapping_->memSize(), expected,
                                 error);
}

bool SlotReaderTableCommon::doResize() {
  if (isCurrent()) return false;
  std::size_t const fileSize = copyHeader();
  NumSlots const wanted = copiedHeader().numSlots();
  std::size_t size = 0;
  try {
    size = Dovel::Util::fileSizeHelper(wanted.count, setup_.shape.slotSize(), setup_.shape.headerSize());
  } catch (Dovel::RuntimeException const& overflow) {
    DOVEL_THROW(Dovel::CorruptionDetectedException, "SlotReaderTable", "bad newNumSlots:{} message:{}",
                wanted.count, overflow.msg());
  }
  if (size > fileSize) {
    DOVEL_THROW(Dovel::CorruptionDetectedException, "SlotReaderTable",
                "requesting to map {} {} slots. Requested file resize to {} but real file size is {}",
                mapping_->getFilename(), wanted.count, size, fileSize);
  }
  DOVEL_TRACE(debugHandler(), 2, "SlotReaderTable", "{} from {} slots to {}", mapping_->getFilename(),
              numSlots_, wanted.count);
  std::byte const* const oldBase = base();
  std::byte const* const newBase = mapping_->resize(size);
  if (newBase == nullptr) {
    DOVEL_THROW(Dovel::MemoryResourceException, "SlotReaderTable",
                "failed to resize {} from {} to {} slots, needed {} bytes. Reason: {}",
                mapping_->getFilename(), numSlots_, wanted.count, size, mapping_->error());
  }
  if (newBase != oldBase) {
    DOVEL_TRACE(debugHandler(), 5, "SlotReaderTable", "changed base address mapping from {} to {}",
                static_cast<void const*>(oldBase), static_cast<void const*>(newBase));
    ++counters_.baseMoves;
  }
  lastValue_.rebase(oldBase, newBase, size);
  ++counters_.slotResizes;
  header_ = reinterpret_cast<Mem::Cell const*>(newBase);
  DOVEL_TRACE(debugHandler(), 3, "SlotReaderTable", "onResize {}", toString());
  numSlotsRef_ = wanted;
  slots_ = header_ + setup_.shape.headerSize() / sizeof(Mem::Cell);
  numSlots_ = capacity_ = wanted.count;
  DOVEL_TRACE(debugHandler(), 5, "SlotReaderTable", "successful");
  return true;
}

std::uint32_t SlotReaderTableCommon::members() const {
  if (header_ == nullptr) return 0;
  return Mem::highHalf(Mem::SharedWord::loadHeaderWord(header_[SlotTable::kOccupiedWord]));
}

std::uint64_t SlotReaderTableCommon::scratchpad() const {
  return header_ == nullptr ? 0 : Mem::SharedWord::loadHeaderWord(header_[SlotTable::kScratchpadWord]);
}

Dovel::String SlotReaderTableCommon::toString() const {
  return header_ == nullptr ? Dovel::String("not mapped") : copiedHeader().toString();
}

void SlotReaderTableCommon::throwOutOfRange(std::uint32_t slot) const {
  DOVEL_THROW(Dovel::CorruptionDetectedException, "SlotReaderTable", "out-of-range index:{} numSlots:{}",
              slot, numSlots_);
}

}  // namespace Vault
