#include "platform/switch/LoamAsicUtils/FlushHelperHolder.h"

#include <algorithm>

#include "runtime/Dovel/Format.h"

namespace LoamAsicUtils {

void setBufValue(std::uint8_t* buffer, std::size_t bytes, std::uint64_t value, unsigned bitCount,
                 unsigned bitPosition) {
  DOVEL_ASSERT(bitCount <= 64 && bitPosition + bitCount <= bytes * 8, "LoamAsicUtils::setBufValue",
               "{} bits at {} of {} bytes", bitCount, bitPosition, bytes);
  for (unsigned bit = 0; bit < bitCount; ++bit) {
    auto const mask = static_cast<std::uint8_t>(1U << (bitPosition + bit) % 8);
    std::uint8_t& byte = buffer[(bitPosition + bit) / 8];
    byte = static_cast<std::uint8_t>((value >> bit & 1) != 0 ? byte | mask : byte & ~mask);
  }
}

FlushHelper const* FlushHelperHolder::helper(LoamMdb::PhysicalTableId physicalTableId,
                                             FlushCmdType command) const {
  auto const found = std::ranges::find_if(helpers_, [&](FlushHelper const& helper) {
    return helper.key.physicalTableId == static_cast<std::uint32_t>(physicalTableId) &&
           helper.key.command == command;
  });
  return found == helpers_.end() ? nullptr : &*found;
}

void FlushHelperHolder::createWriteFlushHelper(FlushHelperKey const& key, LoamMdb::EmEntryType entryType,
                                               FlushRuleEntryType const& rule,
                                               FlushCmdPayloadType const& action) {
  std::erase_if(helpers_, [&](FlushHelper const& helper) { return helper.key == key; });
  helpers_.push_back({key, entryType, tid_, rule, action});
}

}  // namespace LoamAsicUtils
