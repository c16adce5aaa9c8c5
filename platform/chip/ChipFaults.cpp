#include "platform/chip/ChipFaults.h"

#include <algorithm>

namespace Chip {
namespace {

bool counts(ChipFault const& fault, ChipFaults::Command const& command) {
  if (fault.fap != command.fap) return false;
  switch (fault.kind) {
    case ChipFault::Kind::flipBit:
      return command.writes;
    case ChipFault::Kind::resetInTransfer:
      return command.what == ChipFaults::Command::What::bulk;
    case ChipFault::Kind::failPass:
    case ChipFault::Kind::slowPass:
      return command.what == ChipFaults::Command::What::pass;
    default:
      return true;
  }
}

void add(ChipFault const& fault, ChipFaults::Met& met) {
  switch (fault.kind) {
    case ChipFault::Kind::refuse:
      met.refusal = fault.status;
      break;
    case ChipFault::Kind::loseAnswer:
      met.answerLost = true;
      break;
    case ChipFault::Kind::lateAnswer:
      met.answerAfter = fault.after;
      break;
    case ChipFault::Kind::flipBit:
      met.flippedBit = fault.bit;
      break;
    case ChipFault::Kind::resetInTransfer:
      met.resetInTransfer = true;
      break;
    case ChipFault::Kind::failPass:
      met.pass.breaksOff = fault.status;
      break;
    case ChipFault::Kind::slowPass:
      met.pass.pause = fault.after;
      met.pass.every = fault.every;
      break;
  }
}

}  // namespace

bool ChipFaults::Rows::touchedBy(Command const& command) const {
  return command.block == block && command.row < std::uint64_t{row} + rows &&
         row < std::uint64_t{command.row} + command.rows;
}

void ChipFaults::faultIs(ChipFault const& fault) {
  if (fault.nth == 0) return;
  faults_.push_back(fault);
  any_ = true;
}

void ChipFaults::refusedRowsAre(std::uint32_t block, std::uint32_t row, std::uint32_t rows,
                                Sluice::SchanStatus status) {
  refusedRows_.push_back({block, row, rows, status});
  any_ = true;
}

void ChipFaults::refusedKeyIs(std::uint32_t physicalTable, ExactMatchEntry const& entry,
                              Sluice::SchanStatus status) {
  ExactMatchDatabase const* const database = ExactMatchMap::find(physicalTable, entry.tid());
  if (database == nullptr) return;
  refusedKeys_.push_back({database, entry.words[0] & database->keyMask(), status});
  any_ = true;
}

void ChipFaults::randomRefusalIs(std::uint64_t seed, double probability, Sluice::SchanStatus status) {
  refusal_ = {std::mt19937_64(seed), probability};
  refusalStatus_ = status;
  any_ = true;
}

void ChipFaults::randomLossIs(std::uint64_t seed, double probability) {
  loss_ = {std::mt19937_64(seed), probability};
  any_ = true;
}

void ChipFaults::randomLateIs(std::uint64_t seed, double probability, std::uint64_t most) {
  late_ = {std::mt19937_64(seed), probability};
  latest_ = std::max<std::uint64_t>(most, 1);
  any_ = true;
}

void ChipFaults::faultsDel() { *this = {}; }

ChipFaults::Met ChipFaults::met(Command const& command) {
  Met met;
  if (refusal_.strikes()) met.refusal = refusalStatus_;
  met.answerLost = loss_.strikes();
  if (late_.strikes())
    met.answerAfter = std::uniform_int_distribution<std::uint64_t>(1, latest_)(late_.random);
  for (Rows const& refused : refusedRows_)
    if (refused.touchedBy(command)) met.refusal = refused.status;
  for (ChipFault& fault : faults_)
    if (counts(fault, command) && --fault.nth == 0) add(fault, met);
  std::erase_if(faults_, [](ChipFault const& fault) { return fault.nth == 0; });
  return met;
}

bool ChipFaults::Chance::strikes() {
  return probability > 0 && std::bernoulli_distribution(probability)(random);
}

std::optional<Sluice::SchanStatus> ChipFaults::keyRefusal(ExactMatchDatabase const& database,
                                                          ExactMatchEntry const& entry) const {
  std::uint64_t const bits = entry.words[0] & database.keyMask();
  for (Key const& refused : refusedKeys_)
    if (refused.database == &database && refused.bits == bits) return refused.status;
  return std::nullopt;
}

}  // namespace Chip
