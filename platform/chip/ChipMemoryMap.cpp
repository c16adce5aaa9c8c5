#include "platform/chip/ChipMemoryMap.h"

#include <algorithm>

namespace Chip {
namespace {

// {block, address of the first row, rows, bytes of a row, name}. Where a memory is made of arrays, one
// follows the other without a gap; what tables call by the name of one memory in two places is one memory
// here.
constexpr ChipMemory kListed[] = {
    {26, 0x60000, 16, 20, "etppbTrapForwardActionTable"},
    {26, 0x100000, 256, 4, "etppbAdditionalHeadersProfileMap"},
    {26, 0x140000, 32, 4, "etppbMainHeaderMapTable"},
    {26, 0x150000, 256, 20, "etppbSourceAdrsMap0"},
    {26, 0x160000, 256, 20, "etppbSourceAdrsMap1"},
    {26, 0x170000, 256, 20, "etppbSourceAdrsMap2"},
    {27, 0x20C0000, 64, 8, "etppcCfgEesArrEmAccessCommand"},
    {27, 0x20F0000, 32, 12, "etppcEsemDefaultResultTable"},
    {27, 0x2690000, 256, 4, "etppcAdditionalHeadersProfileMap"},
    {27, 0x26D0000, 32, 4, "etppcMainHeaderMapTable"},
    {27, 0x26E0000, 256, 20, "etppcSourceAdrsMap"},
    {35, 0x146, 1, 28, "ippeRecycFwdProfileMapping", ChipMemory::Kind::chipRegister},
    {37, 0x750000, 256, 8, "ippfVttInPpPortConfig0"},
    {40, 0x100000, 256, 12, "ippcPinfoPmf"},
    {144, 0x30000, 128, 68, "itppdSniffSysHeaderInfo"},
    {146, 0x30000, 128, 68, "itppSniffSysHeaderInfo"},
    {282, 0x120000, 16 * 1024, 64, "mdbkKapsaBucketMemory"},
    {282, 0x1120000, 16 * 512, 64, "mdbkKapsbBucketMemory"},
    {282, 0x3100000, 2 * 4096, 24, "mdbkKapsaRpbCommand"},
    {282, 0x3130000, 4096, 16, "mdbkKapsaRpbAds"},
    {282, 0x3200000, 2 * 2048, 24, "mdbkKapsbRpbCommand"},
    {282, 0x3230000, 2048, 16, "mdbkKapsbRpbAds"},
};

constexpr std::uint64_t placeOf(std::uint32_t block, std::uint32_t row) {
  return std::uint64_t{block} << 32 | row;
}

constexpr std::uint64_t placeOf(ChipMemory const& memory) { return placeOf(memory.block, memory.address); }

constexpr auto kMap = [] {
  auto map = std::to_array(kListed);
  std::uint64_t storedAt = 0;
  for (ChipMemory& memory : map) {
    memory.storedAt = storedAt;
    storedAt += memory.bytes();
  }
  return map;
}();

constexpr std::uint64_t kBytes = kMap.back().storedAt + kMap.back().bytes();

// Ends before the next one begins; of the last, at the end of what 32 bits address.
constexpr bool endsInTime(std::size_t number) {
  std::uint64_t const end = placeOf(kMap[number]) + kMap[number].rows;
  std::uint64_t const blockEnd = placeOf(kMap[number].block + 1, 0);
  return end <= (number + 1 < kMap.size() ? std::min(blockEnd, placeOf(kMap[number + 1])) : blockEnd);
}

constexpr bool isSound() {
  for (std::size_t number = 0; number < kMap.size(); ++number) {
    ChipMemory const& memory = kMap[number];
    if (memory.rows == 0 || memory.rowBytes == 0 || memory.rowBytes % 4 != 0) return false;
    if (memory.rowBytes > ChipMemory::kMaxRowBytes || !endsInTime(number)) return false;
  }
  return true;
}
static_assert(isSound(),
              "memories are in ascending order and don't overlap, and rows are words of a message");

constexpr std::uint64_t kFingerprint = [] {
  std::uint64_t hash = 0xCBF29CE484222325;
  auto const mix = [&hash](std::uint64_t word) {
    for (unsigned byte = 0; byte < 8; ++byte) hash = (hash ^ (word >> 8 * byte & 0xFF)) * 0x100000001B3;
  };
  for (ChipMemory const& memory : kMap) {
    mix(placeOf(memory));
    mix(placeOf(memory.rows, memory.rowBytes));
    mix(static_cast<std::uint64_t>(memory.kind));
  }
  return hash;
}();

}  // namespace

std::span<ChipMemory const> ChipMemoryMap::memories() { return kMap; }
std::uint64_t ChipMemoryMap::bytes() { return kBytes; }
std::uint64_t ChipMemoryMap::fingerprint() { return kFingerprint; }

ChipMemory const* ChipMemoryMap::find(std::uint32_t block, std::uint32_t row) {
  auto const after =
      std::upper_bound(kMap.begin(), kMap.end(), placeOf(block, row),
                       [](std::uint64_t place, ChipMemory const& memory) { return place < placeOf(memory); });
  if (after == kMap.begin()) return nullptr;
  ChipMemory const& before = *(after - 1);
  return before.has(block, row, 1) ? &before : nullptr;
}

}  // namespace Chip
