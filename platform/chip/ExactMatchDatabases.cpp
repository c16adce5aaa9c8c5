#include "platform/chip/ExactMatchDatabases.h"

#include <cstring>

namespace Chip {

using Sluice::BulkEmAnswer;
using Sluice::BulkTransfer;
using Sluice::FlushPass;
using Sluice::SchanStatus;
using Message = Sluice::schan_xmsg_user_;
using Search = ExactMatchStore::Search;

namespace {

// Entries of a transfer for which the buckets are brought near before their turn comes.
constexpr std::uint32_t kAhead = 8;

ExactMatchEntry at(std::byte const* entries, std::uint32_t number) {
  return ExactMatchEntry::of(entries + std::size_t{number} * ExactMatchEntry::kBytes);
}

void spotIs(ExactMatchEntry& entry, ExactMatchStore::Spot const& spot, bool found) {
  entry.wayIndexIs(spot.candidate * ExactMatchStore::kWays + spot.way());
  entry.addressIs(spot.slot);
  if (!found) return;
  entry.hitsIs(1U << spot.way());
  entry.foundIs();
}

}  // namespace

ExactMatchDatabases::ExactMatchDatabases(Sluice::FapId fap, ChipState& state, unsigned candidates)
    : stores_{ExactMatchStore(fap, 0, state), ExactMatchStore(fap, 1, state),
              ExactMatchStore(fap, 2, state)} {
  for (ExactMatchStore& store : stores_) store.candidatesAre(candidates);
}

void ExactMatchDatabases::observerIs(ChipObserver* observer) {
  for (ExactMatchStore& store : stores_) store.observerIs(observer);
}

ExactMatchStore const* ExactMatchDatabases::store(std::uint32_t physicalTable) const {
  std::size_t const number = ExactMatchMap::numberOf(physicalTable);
  return number < stores_.size() ? &stores_[number] : nullptr;
}

ExactMatchStore* ExactMatchDatabases::storeOf(Instance const& instance) {
  if (instance.block != ExactMatchDatabase::kBlock || instance.location != 0 || instance.core != 0)
    return nullptr;
  std::size_t const number = ExactMatchMap::numberOf(instance.physicalTable);
  return number < stores_.size() ? &stores_[number] : nullptr;
}

SchanStatus ExactMatchDatabases::message(Message const& message, Image image, FlippedBit flippedBit,
                                         ChipFaults const* faults) {
  if (message.length() != Message::kExactMatchLength) return SchanStatus::badAddress;
  ExactMatchStore* const store =
      storeOf({message.block, message.location, message.physicalTableId, message.core});
  if (store == nullptr) return SchanStatus::badDatabase;
  ExactMatchEntry entry = at(reinterpret_cast<std::byte const*>(message.data), 0);
  if (flippedBit) entry.bitFlip(*flippedBit);
  SchanStatus const status = take(*store, entry, faults);
  if (status != SchanStatus::badDatabase) std::memcpy(image.data(), &entry, sizeof entry);
  return status;
}

SchanStatus ExactMatchDatabases::entries(BulkTransfer const& transfer, std::uint32_t count,
                                         std::byte const* buffer, Image image, FlippedBit flippedBit,
                                         ChipFaults const* faults) {
  BulkEmAnswer answer{};
  SchanStatus first = SchanStatus::ok;
  ExactMatchStore* const store = storeOf({transfer.block, 0, transfer.physicalTableId, transfer.core});
  if (store == nullptr) answer.refused = transfer.rows, first = SchanStatus::badDatabase;
  for (std::uint32_t number = 0; store != nullptr && number < count; ++number) {
    if (number + kAhead < count) prefetch(*store, at(buffer, number + kAhead));
    ExactMatchEntry entry = at(buffer, number);
    if (flippedBit && number == transfer.rows / 2) entry.bitFlip(*flippedBit);
    SchanStatus const status = take(*store, entry, faults);
    if (status == SchanStatus::ok) [[likely]]
      continue;
    if (answer.refused++ == 0) {
      answer.first = number;
      first = status;
    }
  }
  std::memcpy(image.data(), &answer, sizeof answer);
  return first;
}

void ExactMatchDatabases::prefetch(ExactMatchStore const& store, ExactMatchEntry const& entry) {
  if (ExactMatchDatabase const* const database = store.database(entry.tid()); database != nullptr)
    store.prefetch(ExactMatchKey(*database, entry));
}

SchanStatus ExactMatchDatabases::take(ExactMatchStore& store, ExactMatchEntry& entry,
                                      ChipFaults const* faults) {
  entry = entry.stored();
  ExactMatchDatabase const* const database = store.database(entry.tid());
  if (database == nullptr || database->entryType != entry.entryType()) return SchanStatus::badDatabase;
  std::uint32_t const command = entry.command();
  if (command != ExactMatchEntry::kWrite && command != ExactMatchEntry::kDelete)
    return SchanStatus::badDatabase;
  if (faults != nullptr) [[unlikely]]
    if (auto const refusal = faults->keyRefusal(*database, entry)) return *refusal;
  ++entriesMoved_;
  Search const found = store.search(ExactMatchKey(*database, entry));
  if (command == ExactMatchEntry::kWrite) return write(store, found, entry);
  remove(store, found, entry);
  return SchanStatus::ok;
}

SchanStatus ExactMatchDatabases::write(ExactMatchStore& store, Search const& found, ExactMatchEntry& entry) {
  if (found.held) {
    store.replace(found.held->slot, entry);
    spotIs(entry, *found.held, true);
    return SchanStatus::ok;
  }
  if (!found.free || !store.insert(found.free->slot, entry)) return SchanStatus::bucketFull;
  spotIs(entry, *found.free, false);
  return SchanStatus::ok;
}

// Tells what was removed; of a key that isn't there, what was asked.
void ExactMatchDatabases::remove(ExactMatchStore& store, Search const& found, ExactMatchEntry& entry) {
  if (!found.held) return;
  entry = store.entry(found.held->slot);
  entry.commandIs(ExactMatchEntry::kDelete);
  store.remove(found.held->slot);
  spotIs(entry, *found.held, true);
}

ExactMatchDatabase const* ExactMatchDatabases::database(FlushPass const& pass) const {
  if (pass.block != ExactMatchDatabase::kBlock || pass.location != 0 || pass.core != 0) return nullptr;
  ExactMatchDatabase const* const found = ExactMatchMap::find(pass.physicalTableId, pass.tid);
  return found != nullptr && found->entryType == pass.entryType ? found : nullptr;
}

Sluice::FlushAnswer ExactMatchDatabases::run(FlushPass const& pass, std::byte* buffer,
                                             PassFault const& fault) {
  ExactMatchStore& store = stores_.at(ExactMatchMap::numberOf(pass.physicalTableId));
  Sluice::FlushAnswer const done = FlushMachine(store, *database(pass), pass, buffer).run(fault);
  entriesMoved_ += done.entries;
  return done;
}

}  // namespace Chip
