#include "platform/chip/ChipFaults.h"

namespace Chip {
namespace {

bool counts(ChipFault const& fault, ChipFaults::Command const& command) {
  if (fault.fap != command.fap) return false;
  switch (fault.kind) {
    case ChipFault::Kind::flipBit:
      return command.writes;
    case ChipFault::Kind::resetInTransfer:
      return command.bulk;
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

void ChipFaults::randomRefusalIs(std::uint64_t seed, double probability, Sluice::SchanStatus status) {
  random_.seed(seed);
  refusalProbability_ = probability;
  refusalStatus_ = status;
  any_ = true;
}

void ChipFaults::faultsDel() { *this = {}; }

ChipFaults::Met ChipFaults::met(Command const& command) {
  Met met;
  if (randomlyRefused()) met.refusal = refusalStatus_;
  for (Rows const& refused : refusedRows_)
    if (refused.touchedBy(command)) met.refusal = refused.status;
  for (ChipFault& fault : faults_)
    if (counts(fault, command) && --fault.nth == 0) add(fault, met);
  std::erase_if(faults_, [](ChipFault const& fault) { return fault.nth == 0; });
  return met;
}

bool ChipFaults::randomlyRefused() {
  return refusalProbability_ > 0 && std::bernoulli_distribution(refusalProbability_)(random_);
}

}  // namespace Chip
