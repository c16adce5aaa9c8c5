#include "Vault/SlotHeader.h"

#include <fmt/format.h>

#include <array>
#include <cstring>

#include "VaultCore/SlotLink.h"
#include "platform/memory/Validation.h"
#include "runtime/Dovel/Format.h"

namespace Vault {
namespace {

// The words that hold the type name: its first four bytes stand behind the flags.
constexpr std::size_t kNameWords =
    (SlotTable::kTypeNameOffset + SlotTable::kTypeNameSize + 7) / 8 - SlotTable::kFlagsWord;
using NameBytes = std::array<char, kNameWords * 8>;
constexpr std::size_t kNameStart = SlotTable::kTypeNameOffset - SlotTable::kFlagsWord * 8;

constexpr Mem::Cell magicWord(std::uint32_t headerSize) {
  return Mem::fromHalves(SlotTable::kMagic, std::uint32_t{SlotTable::kFormatVersion} << 16 | headerSize);
}

}  // namespace

void SlotHeaderCommon::typeNameIs(std::string_view name) const {
  DOVEL_ASSERT(name.size() < SlotTable::kTypeNameSize, "SlotHeaderCommon",
               "type name of {} bytes, at most {} fit: {}", name.size(), SlotTable::kTypeNameSize - 1, name);
  NameBytes bytes{};
  std::memcpy(bytes.data() + kNameStart, name.data(), name.size());
  for (std::size_t at = 0; at < kNameWords; ++at) {
    Mem::Cell cell = 0;
    std::memcpy(&cell, bytes.data() + at * 8, 8);
    Mem::SharedWord::storeHeaderWord(cells_[SlotTable::kFlagsWord + at], cell);
  }
}

Dovel::String SlotHeaderCommon::typeName() const {
  NameBytes bytes{};
  for (std::size_t at = 0; at < kNameWords; ++at) {
    Mem::Cell const cell = Mem::SharedWord::loadHeaderWord(cells_[SlotTable::kFlagsWord + at]);
    std::memcpy(bytes.data() + at * 8, &cell, 8);
  }
  return std::string(bytes.data() + kNameStart,
                     ::strnlen(bytes.data() + kNameStart, SlotTable::kTypeNameSize));
}

void SlotHeaderCommon::construct(SlotHeaderDescription const& is) const {
  auto const store = [this](std::size_t at, std::uint32_t low, std::uint32_t high) {
    Mem::SharedWord::storeHeaderWord(cells_[at], Mem::fromHalves(low, high));
  };
  Mem::SharedWord::storeHeaderWord(cells_[SlotTable::kMagicWord], magicWord(SlotTable::kCommonHeaderSize));
  store(SlotTable::kSizesWord, is.shape.valueSize, is.shape.slotSize());
  store(SlotTable::kGenerationWord, is.emberId.value(), is.capacity);
  store(SlotTable::kLimitsWord, is.maxSize, is.marshalledSize);
  typeNameIs(is.typeName);
  store(SlotTable::kRuntimeFlagsWord, 0, 0);
  store(SlotTable::kOccupiedWord, 0, 0);
  store(SlotTable::kFreeListWord, SlotLink::kNil, is.capacity);
  store(SlotTable::kSeedWord, is.seed, 0);
  store(SlotTable::kNumSlotsWord, 0, is.capacity);
  store(SlotTable::kLargestWord, 0, 0);
  store(SlotTable::kScratchpadWord, 0, 0);
}

bool SlotHeaderCommon::validate(Dovel::Platform::DebugHandler const& handler, std::uint32_t headerSize,
                                std::uint64_t fileSize, SlotHeaderDescription const& expected,
                                Dovel::String& error) const {
  auto const fails = [&](std::string_view what, auto found, auto wanted) {
    return Mem::failValidation(
        handler, "SlotHeaderCommon",
        DOVEL_TRACESTR("SlotHeaderCommon", "bad {} in header of {} bytes: {} wanted:{}", what, fileSize,
                       found, wanted),
        error);
  };
  auto const low = [this](std::size_t at) { return Mem::lowHalf(word(at)); };
  auto const high = [this](std::size_t at) { return Mem::highHalf(word(at)); };
  if (low(0) != SlotTable::kMagic) return fails("magic", low(0), SlotTable::kMagic);
  if ((high(0) & 0xffff) != headerSize) return fails("header size", high(0) & 0xffff, headerSize);
  if (high(0) >> 16 != SlotTable::kFormatVersion) {
    return fails("format version", high(0) >> 16, SlotTable::kFormatVersion);
  }
  if (low(SlotTable::kSizesWord) != expected.shape.valueSize) {
    return fails("value size", low(SlotTable::kSizesWord), expected.shape.valueSize);
  }
  if (high(SlotTable::kSizesWord) != expected.shape.slotSize()) {
    return fails("slot size", high(SlotTable::kSizesWord), expected.shape.slotSize());
  }
  if (emberId() != expected.emberId) return fails("ember", emberId(), expected.emberId);
  if (capacity() == 0 || capacity() > kMaxSlots) return fails("capacity", capacity(), "1 to 1073741823");
  if (maxSize() == 0) return fails("maximum size", 0, "at least 1");
  if (high(SlotTable::kLimitsWord) != expected.marshalledSize) {
    return fails("marshalled size", high(SlotTable::kLimitsWord), expected.marshalledSize);
  }
  if (typeName() != expected.typeName) return fails("type name", typeName(), expected.typeName);
  if (sequenceWatermark() % SlotLink::kChange != 0)
    return fails("sequence watermark", sequenceWatermark(), "a multiple of 4");
  return true;
}

Dovel::String SlotHeaderCommon::toString() const {
  return fmt::format(
      "type:{} ember:{} value:{} slot:{} marshalled:{} capacity:{} maxSize:{} numSlots:{} version:{} "
      "occupied:{} largest:{} peak:{} freeList:{:#x} runtimeFlags:{:#x} watermark:{} scratchpad:{:#x}",
      typeName(), emberId(), Mem::lowHalf(word(SlotTable::kSizesWord)),
      Mem::highHalf(word(SlotTable::kSizesWord)), Mem::highHalf(word(SlotTable::kLimitsWord)), capacity(),
      maxSize(), numSlots().count, numSlots().version, occupiedSlots(), largestOccupied(), peakNumSlots(),
      freeList(), runtimeFlags(), sequenceWatermark(), scratchpad());
}

}  // namespace Vault
