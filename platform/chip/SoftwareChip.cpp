#include "platform/chip/SoftwareChip.h"

#include <fmt/format.h>

#include <filesystem>

#include "platform/switch/Sluice/ResponseSlots.h"
#include "runtime/Dovel/Exception.h"
#include "runtime/Dovel/Format.h"

namespace Chip {

using Sluice::BulkTransfer;
using Sluice::FapId;
using Sluice::SchanResponse;
using Sluice::SchanStatus;
using Message = Sluice::schan_xmsg_user_;

namespace {

constexpr char kClass[] = "Chip::SoftwareChip";

ChipFaults::Command commandOf(FapId fap, Message const& message) {
  return {fap, false, ChipModel::writes(message.opcode()), message.block, message.address, 1};
}

ChipFaults::Command commandOf(FapId fap, BulkTransfer const& transfer) {
  return {fap, true, ChipModel::writes(transfer.opcode), transfer.block, transfer.row, transfer.rows};
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
  if (options.faps > kMaxFaps)
    DOVEL_THROW(Dovel::RangeException, kClass, "{} FAPs, where {} is the most", options.faps, kMaxFaps);
  Dovel::String directory;
  if (!options.directory.empty()) {
    directory = std::filesystem::absolute(options.directory.view()).lexically_normal().string();
    lock_ = lockOf(directory);
  }
  for (unsigned number = 0; number < options.faps; ++number) {
    FapId const fap = number;
    faps_.push_back(directory.empty() ? std::make_unique<Fap>(fap)
                                      : std::make_unique<Fap>(fap, Dovel::String(fmt::format(
                                                                       "{}/fap-{}.chip", directory, fap))));
  }
}

SoftwareChip::~SoftwareChip() { markBeingDestroyed(); }

void SoftwareChip::message(FapId fap, Message const& message, SchanResponse& response) {
  Fap* const to = fapAt(fap);
  if (to == nullptr) return;
  ++to->counters.messages;
  ChipFaults::Met const met = this->met(commandOf(fap, message));
  SchanResponse answer;
  answer.status = met.refusal ? *met.refusal : to->model.message(message, answer.image, met.flippedBit);
  end(*to, message.responseRequested != 0 ? &response : nullptr, answer, met);
}

void SoftwareChip::bulk(FapId fap, BulkTransfer const& transfer, SchanResponse& response) {
  Fap* const to = fapAt(fap);
  if (to == nullptr) return;
  ++to->counters.bulkTransfers;
  ChipFaults::Met const met = this->met(commandOf(fap, transfer));
  SchanResponse answer;
  answer.status = met.refusal ? *met.refusal : moved(*to, transfer, met);
  end(*to, answer.status == SchanStatus::noResponse ? nullptr : &response, answer, met);
}

// The model has no exact-match databases.
void SoftwareChip::flush(FapId fap, Sluice::FlushPass const& /*pass*/, SchanResponse& response) {
  Fap* const to = fapAt(fap);
  if (to == nullptr) return;
  SchanResponse answer;
  answer.status = SchanStatus::badDatabase;
  end(*to, &response, answer, {});
}

ChipFaults::Met SoftwareChip::met(ChipFaults::Command const& command) {
  return faults_.any() ? faults_.met(command) : ChipFaults::Met();
}

SchanStatus SoftwareChip::moved(Fap& fap, BulkTransfer const& transfer, ChipFaults::Met const& met) {
  ChipMemory const* const memory = fap.model.memoryOf(transfer);
  if (memory == nullptr || pool_ == nullptr) return SchanStatus::badAddress;
  std::size_t const bytes = std::size_t{transfer.rows} * transfer.rowBytes;
  auto* const buffer = reinterpret_cast<std::byte*>(pool_->dmaToVa(transfer.dmaAddress, bytes));
  if (buffer == nullptr) return SchanStatus::badAddress;
  std::uint32_t const rows = met.resetInTransfer ? transfer.rows / 2 : transfer.rows;
  fap.model.move(*memory, transfer, rows, buffer, met.flippedBit);
  if (!met.resetInTransfer) return SchanStatus::ok;
  resetFap(fap);
  return SchanStatus::noResponse;
}

// Late answers come at the end of a later command, so those of before count this one and its own doesn't.
void SoftwareChip::end(Fap& fap, SchanResponse* response, SchanResponse const& answer,
                       ChipFaults::Met const& met) {
  if (answer.status != SchanStatus::ok && answer.status != SchanStatus::noResponse) ++fap.counters.refused;
  if (!fap.late.empty()) [[unlikely]]
    answerLate(fap);
  if (response == nullptr || met.answerLost) return;
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

}  // namespace Chip
