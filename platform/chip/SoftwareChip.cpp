#include "platform/chip/SoftwareChip.h"

#include <fmt/format.h>

#include <cstring>
#include <filesystem>

#include "platform/switch/Sluice/ResponseSlots.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Chip {

using Sluice::BulkTransfer;
using Sluice::FapId;
using Sluice::FlushPass;
using Sluice::SchanOpcode;
using Sluice::SchanResponse;
using Sluice::SchanStatus;
using Message = Sluice::schan_xmsg_user_;

namespace {

constexpr char kClass[] = "Chip::SoftwareChip";

using What = ChipFaults::Command::What;

ChipFaults::Command commandOf(FapId fap, Message const& message) {
  if (message.opcode() == SchanOpcode::exactMatch) return {fap, What::message, true, message.block, 0, 0};
  return {fap, What::message, ChipModel::writes(message.opcode()), message.block, message.address, 1};
}

ChipFaults::Command commandOf(FapId fap, BulkTransfer const& transfer) {
  if (transfer.opcode == SchanOpcode::exactMatch) return {fap, What::bulk, true, transfer.block, 0, 0};
  return {fap, What::bulk, ChipModel::writes(transfer.opcode), transfer.block, transfer.row, transfer.rows};
}

template <class Told>
void imageIs(SchanResponse& answer, Told const& told) {
  static_assert(sizeof told <= sizeof answer.image);
  std::memcpy(answer.image, &told, sizeof told);
}

void checkOptions(SoftwareChip::Options const& options) {
  if (options.faps > SoftwareChip::kMaxFaps)
    DOVEL_THROW(Dovel::RangeException, kClass, "{} FAPs, where {} is the most", options.faps,
                SoftwareChip::kMaxFaps);
  std::uint32_t const entries = options.exactMatchEntries;
  if (entries == 0 || entries % ExactMatchStore::kWays != 0 || entries > SoftwareChip::kMaxEntries)
    DOVEL_THROW(Dovel::RangeException, kClass,
                "room for {} exact-match entries, where a multiple of {} up to {} is legal", entries,
                ExactMatchStore::kWays, SoftwareChip::kMaxEntries);
  if (options.candidates == 0 || options.candidates > ExactMatchStore::kCandidates)
    DOVEL_THROW(Dovel::RangeException, kClass, "{} buckets a key, where 1 or {} is legal", options.candidates,
                ExactMatchStore::kCandidates);
}

Mem::LockFile lockOf(Dovel::String const& directory) {
  Mem::RootPath const path(Dovel::Platform::getDebugHandler("SoftwareChip", false), directory, true);
  path.makeDirectory();
  Mem::LockFile lock(path, ".chips.lock", Mem::LockFile::Kind::flock);
  if (!lock.tryLock())
    DOVEL_THROW(Dovel::NoPermissionException, kClass, "the chips in {} are in use: {} is locked", directory,
                lock.path());
  return lock;
}

}  // namespace

SoftwareChip::SoftwareChip(Options const& options) {
  checkOptions(options);
  Dovel::String directory;
  if (!options.directory.empty()) {
    directory = std::filesystem::absolute(options.directory.view()).lexically_normal().string();
    lock_ = lockOf(directory);
  }
  ChipModel::ExactMatchOptions const exactMatch{options.exactMatchEntries, options.candidates};
  for (unsigned number = 0; number < options.faps; ++number) {
    FapId const fap = number;
    faps_.push_back(directory.empty()
                        ? std::make_unique<Fap>(fap, exactMatch)
                        : std::make_unique<Fap>(
                              fap, exactMatch, Dovel::String(fmt::format("{}/fap-{}.chip", directory, fap))));
  }
}

SoftwareChip::~SoftwareChip() { markBeingDestroyed(); }

void SoftwareChip::message(FapId fap, Message const& message, SchanResponse& response) {
  Fap* const to = fapAt(fap);
  if (to == nullptr) return;
  ++to->counters.messages;
  ChipFaults::Met const met = this->met(commandOf(fap, message));
  SchanResponse answer;
  if (met.refusal) {
    answer.status = *met.refusal;
  } else if (message.opcode() == SchanOpcode::exactMatch) {
    answer.status = to->model.databases().message(message, answer.image, met.flippedBit, keyFaults());
  } else {
    answer.status = to->model.message(message, answer.image, met.flippedBit);
  }
  end(*to, message.responseRequested != 0 ? &response : nullptr, answer, met);
}

void SoftwareChip::bulk(FapId fap, BulkTransfer const& transfer, SchanResponse& response) {
  Fap* const to = fapAt(fap);
  if (to == nullptr) return;
  ++to->counters.bulkTransfers;
  ChipFaults::Met const met = this->met(commandOf(fap, transfer));
  SchanResponse answer;
  // Stands where none of the entries are taken.
  if (transfer.opcode == SchanOpcode::exactMatch) imageIs(answer, Sluice::BulkEmAnswer{transfer.rows, 0});
  answer.status = met.refusal ? *met.refusal : moved(*to, transfer, met, answer);
  end(*to, &response, answer, met);
}

void SoftwareChip::flush(FapId fap, FlushPass const& pass, SchanResponse& response) {
  Fap* const to = fapAt(fap);
  if (to == nullptr) return;
  ++to->counters.passes;
  ChipFaults::Met const met = this->met({fap, What::pass, false, pass.block, 0, 0});
  SchanResponse answer;
  answer.status = met.refusal ? *met.refusal : flushed(*to, pass, met.pass, answer);
  end(*to, &response, answer, met);
}

ChipFaults::Met SoftwareChip::met(ChipFaults::Command const& command) {
  return faults_.any() ? faults_.met(command) : ChipFaults::Met();
}

std::byte* SoftwareChip::buffer(std::uint64_t dmaAddress, std::size_t bytes) const {
  return pool_ == nullptr ? nullptr : reinterpret_cast<std::byte*>(pool_->dmaToVa(dmaAddress, bytes));
}

SchanStatus SoftwareChip::moved(Fap& fap, BulkTransfer const& transfer, ChipFaults::Met const& met,
                                SchanResponse& answer) {
  SchanStatus const status = transfer.opcode == SchanOpcode::exactMatch
                                 ? entriesTaken(fap, transfer, met, answer)
                                 : rowsMoved(fap, transfer, met);
  if (status == SchanStatus::badAddress || !met.resetInTransfer) return status;
  resetFap(fap);
  return SchanStatus::noResponse;
}

SchanStatus SoftwareChip::rowsMoved(Fap& fap, BulkTransfer const& transfer, ChipFaults::Met const& met) {
  ChipMemory const* const memory = fap.model.memoryOf(transfer);
  std::byte* const from = buffer(transfer.dmaAddress, std::size_t{transfer.rows} * transfer.rowBytes);
  if (memory == nullptr || from == nullptr) return SchanStatus::badAddress;
  std::uint32_t const rows = met.resetInTransfer ? transfer.rows / 2 : transfer.rows;
  fap.model.move(*memory, transfer, rows, from, met.flippedBit);
  return SchanStatus::ok;
}

SchanStatus SoftwareChip::entriesTaken(Fap& fap, BulkTransfer const& transfer, ChipFaults::Met const& met,
                                       SchanResponse& answer) {
  std::byte const* const from = buffer(transfer.dmaAddress, std::size_t{transfer.rows} * transfer.rowBytes);
  if (from == nullptr || transfer.rows == 0 || transfer.rowBytes != ExactMatchEntry::kBytes)
    return SchanStatus::badAddress;
  std::uint32_t const count = met.resetInTransfer ? transfer.rows / 2 : transfer.rows;
  return fap.model.databases().entries(transfer, count, from, answer.image, met.flippedBit, keyFaults());
}

SchanStatus SoftwareChip::flushed(Fap& fap, FlushPass const& pass, PassFault const& fault,
                                  SchanResponse& answer) {
  if (fap.model.databases().database(pass) == nullptr) return SchanStatus::badDatabase;
  std::byte* into = nullptr;
  if (pass.action == FlushPass::Action::read) {
    into = buffer(pass.dmaAddress, std::size_t{pass.capacity} * ExactMatchEntry::kBytes);
    if (into == nullptr || pass.capacity == 0) return SchanStatus::badAddress;
  }
  Sluice::FlushAnswer const done = fap.model.databases().run(pass, into, fault);
  if (fault.breaksOff) return *fault.breaksOff;
  imageIs(answer, done);
  return SchanStatus::ok;
}

// Late answers come at the end of a later command, so those of before count this one and its own doesn't.
void SoftwareChip::end(Fap& fap, SchanResponse* response, SchanResponse const& answer,
                       ChipFaults::Met const& met) {
  if (answer.status != SchanStatus::ok && answer.status != SchanStatus::noResponse) ++fap.counters.refused;
  if (!fap.late.empty()) [[unlikely]]
    answerLate(fap);
  if (response == nullptr || met.answerLost || answer.status == SchanStatus::noResponse) return;
  if (met.answerAfter != 0) {
    fap.late.push_back({response, answer, met.answerAfter});
  } else {
    Sluice::responseIs(*response, answer);
  }
}

void SoftwareChip::answerLate(Fap& fap) {
  for (LateAnswer& late : fap.late)
    if (--late.commandsLeft == 0) Sluice::responseIs(*late.response, late.answer);
  std::erase_if(fap.late, [](LateAnswer const& late) { return late.commandsLeft == 0; });
}

bool SoftwareChip::programmed(FapId fap) const {
  Fap const* const of = fapAt(fap);
  return of != nullptr && of->model.programmed();
}

void SoftwareChip::reset(FapId fap) {
  if (Fap* const of = fapAt(fap); of != nullptr) resetFap(*of);
}

void SoftwareChip::resetFap(Fap& fap) {
  fap.late.clear();
  ++fap.resets;
  fap.model.reset();
}

std::uint64_t SoftwareChip::resets(FapId fap) const {
  Fap const* const of = fapAt(fap);
  return of == nullptr ? 0 : of->resets;
}

void SoftwareChip::forget(FapId fap) {
  if (Fap* const of = fapAt(fap); of != nullptr) of->late.clear();
}

void SoftwareChip::observerIs(ChipObserver* observer) {
  for (auto const& fap : faps_) fap->model.observerIs(observer);
}

ChipCounters SoftwareChip::counters(FapId fap) const {
  Fap const* const of = fapAt(fap);
  if (of == nullptr) return {};
  ChipCounters counters = of->counters;
  counters.bytes = of->model.bytesMoved();
  return counters;
}

bool SoftwareChip::rowRead(FapId fap, std::uint32_t block, std::uint32_t row,
                           std::span<std::byte> out) const {
  Fap const* const of = fapAt(fap);
  return of != nullptr && of->model.rowRead(block, row, out);
}

std::optional<SoftwareChip::EntryBytes> SoftwareChip::lookUp(
    FapId fap, std::uint32_t physicalTable, std::uint32_t tid,
    std::span<std::byte const, ExactMatchEntry::kBytes> entry) const {
  Fap const* const of = fapAt(fap);
  ExactMatchStore const* const store = of == nullptr ? nullptr : of->model.databases().store(physicalTable);
  ExactMatchDatabase const* const database = store == nullptr ? nullptr : store->database(tid);
  if (database == nullptr) return std::nullopt;
  auto const found = store->lookUp(ExactMatchKey(*database, ExactMatchEntry::of(entry.data())));
  if (!found) return std::nullopt;
  EntryBytes bytes;
  std::memcpy(bytes.data(), found->words.data(), bytes.size());
  return bytes;
}

void SoftwareChip::forEachEntry(FapId fap, std::uint32_t physicalTable, std::uint32_t tid,
                                Visit const& visit) const {
  Fap const* const of = fapAt(fap);
  ExactMatchStore const* const store = of == nullptr ? nullptr : of->model.databases().store(physicalTable);
  ExactMatchDatabase const* const database = store == nullptr ? nullptr : store->database(tid);
  if (database == nullptr) return;
  for (std::uint32_t slot = store->next(*database, 0); slot < store->slots();
       slot = store->next(*database, slot + 1))
    visit(store->entry(slot).bytes());
}

}  // namespace Chip
