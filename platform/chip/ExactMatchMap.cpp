#include "platform/chip/ExactMatchMap.h"

#include <algorithm>
#include <array>

namespace Chip {
namespace {

// {physical table, its name, tid, type of the entries, last bit of the key}
constexpr auto kListed = std::to_array<ExactMatchDatabase>({
    {37, "mdbkEsem", 2, 0, 35},
    {37, "mdbkEsem", 4, 0, 47},
    {64, "mdbkIsem", 0, 1, 29},
    {64, "mdbkIsem", 38, 0, 60},
    {64, "mdbkIsem", 62, 1, 38},
    {65, "mdbkIexem", 1, 1, 29},
    {65, "mdbkIexem", 19, 1, 29},
});

constexpr std::uint32_t kTids = 64;

constexpr bool isSound() {
  for (std::size_t number = 0; number < kListed.size(); ++number) {
    ExactMatchDatabase const& database = kListed[number];
    if (database.tid >= kTids || database.entryType > 7) return false;
    if (database.keyEnd < ExactMatchDatabase::kKeyStart || database.keyEnd > 60) return false;
    if (number == 0) continue;
    ExactMatchDatabase const& before = kListed[number - 1];
    if (before.physicalTable > database.physicalTable) return false;
    if (before.physicalTable == database.physicalTable && before.tid >= database.tid) return false;
  }
  return true;
}
static_assert(isSound(), "databases are in ascending order, and a key lies in the first word of an entry");

constexpr std::array<std::uint32_t, ExactMatchMap::kPhysicalTables> kPhysical = [] {
  std::array<std::uint32_t, ExactMatchMap::kPhysicalTables> ids{};
  std::size_t count = 0;
  for (ExactMatchDatabase const& database : kListed)
    if (count == 0 || ids[count - 1] != database.physicalTable) ids.at(count++) = database.physicalTable;
  return ids;
}();
static_assert(kPhysical.back() != 0, "there are as many physical tables as are told");

// One plus the place in the list, by physical table and tid: asked for with every entry.
constexpr auto kPlaces = [] {
  std::array<std::array<std::uint8_t, kTids>, ExactMatchMap::kPhysicalTables> places{};
  for (std::size_t place = 0; place < kListed.size(); ++place)
    for (std::size_t number = 0; number < kPhysical.size(); ++number)
      if (kPhysical[number] == kListed[place].physicalTable)
        places[number][kListed[place].tid] = static_cast<std::uint8_t>(place + 1);
  return places;
}();

constexpr std::uint64_t kFingerprint = [] {
  std::uint64_t hash = 0xCBF29CE484222325;
  auto const mix = [&hash](std::uint64_t word) { hash = (hash ^ word) * 0x100000001B3; };
  for (ExactMatchDatabase const& database : kListed)
    for (std::uint32_t word : {database.physicalTable, database.tid, database.entryType, database.keyEnd})
      mix(word);
  return hash;
}();

}  // namespace

std::span<ExactMatchDatabase const> ExactMatchMap::databases() { return kListed; }
std::uint64_t ExactMatchMap::fingerprint() { return kFingerprint; }
std::uint32_t ExactMatchMap::physicalTable(std::size_t number) { return kPhysical.at(number); }

std::size_t ExactMatchMap::numberOf(std::uint32_t physicalTable) {
  return static_cast<std::size_t>(std::find(kPhysical.begin(), kPhysical.end(), physicalTable) -
                                  kPhysical.begin());
}

ExactMatchDatabase const* ExactMatchMap::at(std::size_t number, std::uint32_t tid) {
  std::size_t const place = number < kPhysicalTables && tid < kTids ? kPlaces[number][tid] : 0;
  return place == 0 ? nullptr : &kListed[place - 1];
}

}  // namespace Chip
