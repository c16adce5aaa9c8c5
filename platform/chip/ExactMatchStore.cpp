#include "platform/chip/ExactMatchStore.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <thread>

namespace Chip {

struct alignas(32) ExactMatchStore::Slot {
  static constexpr std::uint64_t kHeld = 1;
  static constexpr std::uint64_t kChanging = 2;
  static constexpr unsigned kStampShift = 2;

  std::uint64_t control;
  std::uint64_t words[3];
};

namespace {

static_assert(ChipState::kSlotBytes == 32 && SparseMemory::kChunkBytes % ChipState::kSlotBytes == 0);
constexpr std::uint32_t kChunkSlots = SparseMemory::kChunkBytes / ChipState::kSlotBytes;

void store(std::uint64_t& word, std::uint64_t value) {
  std::atomic_ref(word).store(value, std::memory_order_release);
}
std::uint64_t load(std::uint64_t& word) { return std::atomic_ref(word).load(std::memory_order_acquire); }
// Of a word that only this thread stores.
std::uint64_t own(std::uint64_t& word) { return std::atomic_ref(word).load(std::memory_order_relaxed); }

// Of the bits that are set.
constexpr std::array<std::uint8_t, 16> kCounts{0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4};

std::uint64_t mixed(std::uint64_t word) {
  word = (word ^ word >> 30) * 0xBF58476D1CE4E5B9;
  word = (word ^ word >> 27) * 0x94D049BB133111EB;
  return word ^ word >> 31;
}

}  // namespace

ExactMatchKey::ExactMatchKey(ExactMatchDatabase const& database, ExactMatchEntry const& entry)
    : mask_(database.keyMask()),
      first_(entry.words[0] & mask_),
      last_(std::uint64_t{database.tid} << (170 - 128)),
      hash_(mixed(first_ >> ExactMatchDatabase::kKeyStart | std::uint64_t{database.tid} << 58)) {}

ExactMatchStore::ExactMatchStore(Sluice::FapId fap, std::size_t table, ChipState& state)
    : fap_(fap),
      table_(table),
      state_(state),
      head_(state.head(table)),
      memory_(state.slots(table)),
      slots_(reinterpret_cast<Slot*>(memory_.memory().data())),
      buckets_(static_cast<std::uint32_t>(memory_.memory().size() / sizeof(Slot) / kWays)) {
  static_assert(sizeof(Slot) == ChipState::kSlotBytes);
  finishChange();
  dropUnsound();
}

// Two halves of the hash, each stretched over the buckets.
std::uint32_t ExactMatchStore::bucket(ExactMatchKey const& key, unsigned candidate) const {
  std::uint64_t const half = candidate == 0 ? key.hash() & 0xFFFFFFFF : key.hash() >> 32;
  return static_cast<std::uint32_t>(half * buckets_ >> 32);
}

bool ExactMatchStore::isHeld(std::uint32_t slot) const {
  return (own(slots_[slot].control) & Slot::kHeld) != 0;
}

ExactMatchEntry ExactMatchStore::entry(std::uint32_t slot) const {
  Slot& from = slots_[slot];
  return {{own(from.words[0]), own(from.words[1]), own(from.words[2])}};
}

// Both buckets are looked at whole and without a branch: what a look at the next key needs then comes near
// while this one's is waited for.
ExactMatchStore::Search ExactMatchStore::search(ExactMatchKey const& key) const {
  prefetch(key);
  std::array const first{bucket(key, 0) * kWays, bucket(key, 1) * kWays};
  std::array const ways{waysOf(first[0], key), waysOf(first[1], key)};
  if (unsigned const hit = ways[0].hit | ways[1].hit << kWays; hit != 0) {
    auto const number = static_cast<unsigned>(std::countr_zero(hit));
    unsigned const candidate = number / kWays;
    return {Spot{first[candidate] + number % kWays, candidate}, std::nullopt};
  }
  unsigned const candidate = candidates_ == 2 && kCounts[ways[1].held] < kCounts[ways[0].held] ? 1 : 0;
  auto const way = static_cast<unsigned>(std::countr_one(ways[candidate].held));
  if (way == kWays) return {};
  return {std::nullopt, Spot{first[candidate] + way, candidate}};
}

// Even to read a page for the first time would cost more than all of a command.
ExactMatchStore::Ways ExactMatchStore::waysOf(std::uint32_t first, ExactMatchKey const& key) const {
  Ways ways{0, 0};
  if (!memory_.used(first / kChunkSlots)) return ways;
  for (unsigned way = 0; way < kWays; ++way) {
    unsigned const held = isHeld(first + way) ? 1 : 0;
    ways.held |= held << way;
    ways.hit |= (held & (key.isOf(entry(first + way)) ? 1U : 0U)) << way;
  }
  return ways;
}

void ExactMatchStore::prefetch(ExactMatchKey const& key) const {
  for (unsigned candidate = 0; candidate < kCandidates; ++candidate) {
    Slot const* const first = &slots_[std::size_t{bucket(key, candidate)} * kWays];
    __builtin_prefetch(first, 1);
    __builtin_prefetch(first + 2, 1);
  }
}

void ExactMatchStore::wordsAre(Slot& slot, ExactMatchEntry const& entry) {
  for (std::size_t word = 0; word < entry.words.size(); ++word) store(slot.words[word], entry.words[word]);
}

void ExactMatchStore::close(Slot& slot) {
  std::uint64_t const stamp = own(head_.changes) + 1;
  store(head_.changes, stamp);
  store(slot.control, stamp << Slot::kStampShift | Slot::kHeld);
}

bool ExactMatchStore::insert(std::uint32_t slot, ExactMatchEntry const& entry) {
  if (!memory_.take(slot / kChunkSlots)) return false;
  tell(entry.tid(), nullptr, &entry);
  Slot& into = slots_[slot];
  wordsAre(into, entry);
  close(into);
  return true;
}

void ExactMatchStore::replace(std::uint32_t slot, ExactMatchEntry const& entry) {
  if (observer_ != nullptr) [[unlikely]] {
    ExactMatchEntry const before = this->entry(slot);
    tell(entry.tid(), &before, &entry);
  }
  for (std::size_t word = 0; word < entry.words.size(); ++word) store(head_.words[word], entry.words[word]);
  store(head_.slot, std::uint64_t{slot} + 1);
  Slot& of = slots_[slot];
  store(of.control, Slot::kChanging);
  wordsAre(of, entry);
  close(of);
  store(head_.slot, 0);
}

void ExactMatchStore::remove(std::uint32_t slot) {
  ExactMatchEntry const before = entry(slot);
  tell(before.tid(), &before, nullptr);
  store(slots_[slot].control, 0);
}

// An entry that is replaced shows that the chip is programmed already, so replace() may pass this by.
void ExactMatchStore::tell(std::uint32_t tid, ExactMatchEntry const* before, ExactMatchEntry const* after) {
  state_.programmedIs();
  if (observer_ == nullptr) [[likely]]
    return;
  auto const bytes = [](ExactMatchEntry const* entry) {
    return entry == nullptr ? std::span<std::byte const>() : std::span<std::byte const>(entry->bytes());
  };
  observer_->entryWritten(fap_, ExactMatchMap::physicalTable(table_), tid, bytes(before), bytes(after));
}

std::uint32_t ExactMatchStore::next(ExactMatchDatabase const& database, std::uint32_t from) const {
  std::uint64_t const tid = std::uint64_t{database.tid} << (170 - 128);
  for (std::uint32_t slot = from; slot < slots();) {
    if (!memory_.used(slot / kChunkSlots)) {
      slot = (slot / kChunkSlots + 1) * kChunkSlots;
      continue;
    }
    std::uint32_t const end = std::min(slots(), (slot / kChunkSlots + 1) * kChunkSlots);
    for (; slot < end; ++slot)
      if (isHeld(slot) && (own(slots_[slot].words[2]) & ExactMatchEntry::kTidMask) == tid) return slot;
  }
  return slots();
}

std::optional<ExactMatchEntry> ExactMatchStore::lookUp(ExactMatchKey const& key) const {
  for (unsigned candidate = 0; candidate < kCandidates; ++candidate) {
    std::uint32_t const first = bucket(key, candidate) * kWays;
    for (std::uint32_t slot = first; slot < first + kWays;) {
      Slot& from = slots_[slot];
      std::uint64_t const control = load(from.control);
      if ((control & Slot::kChanging) != 0) {
        std::this_thread::yield();
        continue;
      }
      if ((control & Slot::kHeld) != 0) {
        ExactMatchEntry const entry{{load(from.words[0]), load(from.words[1]), load(from.words[2])}};
        if (load(from.control) != control) continue;
        if (key.isOf(entry)) return entry;
      }
      ++slot;
    }
  }
  return std::nullopt;
}

void ExactMatchStore::finishChange() {
  std::uint64_t const slot = own(head_.slot) - 1;
  if (slot < slots() && memory_.used(static_cast<std::size_t>(slot / kChunkSlots)) &&
      memory_.take(static_cast<std::size_t>(slot / kChunkSlots))) {
    Slot& of = slots_[static_cast<std::uint32_t>(slot)];
    wordsAre(of, {{own(head_.words[0]), own(head_.words[1]), own(head_.words[2])}});
    close(of);
  }
  store(head_.slot, 0);
}

// Nothing that this program leaves behind is: a look-up would wait forever for a change that nobody makes,
// and an entry that no look-up finds would take room forever.
void ExactMatchStore::dropUnsound() {
  for (std::uint32_t slot = 0; slot < slots();) {
    if (!memory_.used(slot / kChunkSlots)) {
      slot = (slot / kChunkSlots + 1) * kChunkSlots;
      continue;
    }
    if (own(slots_[slot].control) != 0 && !isSound(slot)) store(slots_[slot].control, 0);
    ++slot;
  }
}

bool ExactMatchStore::isSound(std::uint32_t slot) const {
  std::uint64_t const flags = own(slots_[slot].control) & (Slot::kHeld | Slot::kChanging);
  ExactMatchEntry const entry = this->entry(slot);
  ExactMatchDatabase const* const database = this->database(entry.tid());
  if (flags != Slot::kHeld || database == nullptr || database->entryType != entry.entryType()) return false;
  auto const found = search(ExactMatchKey(*database, entry)).held;
  return found && found->slot == slot;
}

}  // namespace Chip
