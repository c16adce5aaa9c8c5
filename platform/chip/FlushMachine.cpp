#include "platform/chip/FlushMachine.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <limits>
#include <thread>

namespace Chip {

using Action = Sluice::FlushPass::Action;

namespace {

void bitIs(ExactMatchEntry& entry, std::size_t bit) {
  entry.words.at(bit / 64) |= std::uint64_t{1} << bit % 64;
}

template <std::size_t bytes>
bool bitOf(std::array<std::uint8_t, bytes> const& bits, std::size_t bit) {
  return (bits[bit / 8] >> bit % 8 & 1) != 0;
}

// The first bit of the array is the image's.
ExactMatchEntry imageOf(std::array<std::uint8_t, 36> const& bits) {
  ExactMatchEntry entry;
  for (std::size_t bit = 0; bit < LoamAsicUtils::kImageBits; ++bit)
    if (bitOf(bits, bit)) bitIs(entry, LoamAsicUtils::kImageStart + bit);
  return entry;
}

// The last bit of the array is the payload's. The machine never reaches into a key.
ExactMatchEntry payloadOf(ExactMatchDatabase const& database, std::array<std::uint8_t, 16> const& bits) {
  constexpr std::size_t kBits = 128;
  ExactMatchEntry entry;
  for (std::size_t at = database.payloadEnd(), left = kBits; left > 0 && at > database.keyEnd; --at)
    if (bitOf(bits, --left)) bitIs(entry, at);
  return entry;
}

bool isIn(ExactMatchEntry const& entry, ExactMatchEntry const& mask, ExactMatchEntry const& value) {
  std::uint64_t different = 0;
  for (std::size_t word = 0; word < entry.words.size(); ++word)
    different |= (entry.words[word] ^ value.words[word]) & mask.words[word];
  return different == 0;
}

ExactMatchEntry merged(ExactMatchEntry entry, ExactMatchEntry const& mask, ExactMatchEntry const& value) {
  for (std::size_t word = 0; word < entry.words.size(); ++word)
    entry.words[word] = (entry.words[word] & ~mask.words[word]) | (value.words[word] & mask.words[word]);
  return entry;
}

}  // namespace

FlushMachine::FlushMachine(ExactMatchStore& store, ExactMatchDatabase const& database,
                           Sluice::FlushPass const& pass, std::byte* entries)
    : store_(store),
      database_(database),
      pass_(pass),
      entries_(entries),
      mask_(imageOf(pass.rule.mask)),
      value_(imageOf(pass.rule.value)),
      payloadMask_(payloadOf(database, pass.payload.mask)),
      payload_(payloadOf(database, pass.payload.value)) {}

Sluice::FlushAnswer FlushMachine::run(PassFault const& fault) {
  std::uint32_t const most = pass_.action == Action::read ? pass_.capacity : store_.slots();
  std::uint32_t const end = fault.breaksOff ? matches() / 2 : std::numeric_limits<std::uint32_t>::max();
  std::uint32_t done = 0;
  std::uint32_t slot = nextMatch(pass_.action == Action::read ? pass_.from : 0);
  for (; slot < store_.slots() && done < std::min(most, end); slot = nextMatch(slot + 1)) {
    takeOn(slot, done++);
    if (fault.pause != 0 && done % std::max<std::uint64_t>(fault.every, 1) == 0)
      std::this_thread::sleep_for(std::chrono::microseconds(fault.pause));
  }
  return {done, slot < store_.slots() ? slot : 0};
}

std::uint32_t FlushMachine::nextMatch(std::uint32_t from) const {
  std::uint32_t slot = from < store_.slots() ? store_.next(database_, from) : store_.slots();
  while (slot < store_.slots() && !isIn(store_.entry(slot), mask_, value_))
    slot = store_.next(database_, slot + 1);
  return slot;
}

std::uint32_t FlushMachine::matches() const {
  std::uint32_t count = 0;
  for (std::uint32_t slot = nextMatch(0); slot < store_.slots(); slot = nextMatch(slot + 1)) ++count;
  return count;
}

void FlushMachine::takeOn(std::uint32_t slot, std::uint32_t done) {
  switch (pass_.action) {
    case Action::remove:
      return store_.remove(slot);
    case Action::merge:
      return store_.replace(slot, merged(store_.entry(slot), payloadMask_, payload_));
    case Action::read:
      std::memcpy(entries_ + std::size_t{done} * ExactMatchEntry::kBytes, store_.entry(slot).bytes().data(),
                  ExactMatchEntry::kBytes);
  }
}

}  // namespace Chip
