#include "platform/chip/SchanChannel.h"

#include <cstring>

#include "runtime/Dovel/Format.h"

namespace Chip {

using Sluice::FapId;
using Sluice::SchanCmd;
using Sluice::SchanResponse;
using Sluice::SchanStatus;
using Sluice::SendOutcome;

namespace {

constexpr char kClass[] = "Chip::SchanChannel";

}  // namespace

SchanChannel::SchanChannel(Dovel::Ptr<ChipAccess> const& chip)
    : Debuggable("SchanChannel", false), chip_(chip) {
  DOVEL_ASSERT(chip != nullptr, kClass, "a channel to no chip");
}

SchanChannel::~SchanChannel() {
  markBeingDestroyed();
  onDelete();
}

void SchanChannel::onDelete() {
  for (auto const& waiting : slots_.aside()) chip_->forget(waiting.fap);
}

SendOutcome SchanChannel::send(Dovel::Ptr<Sluice::SchanCmds> const& cmds) {
  SendOutcome outcome;
  if (cmds == nullptr) return outcome;
  slots_.lookAgain([this](FapId fap) { return chip_->resets(fap); });
  while (Dovel::Ptr<SchanCmd> const cmd = cmds->cmdDeq()) run(*cmd, outcome);
  return outcome;
}

void SchanChannel::run(SchanCmd& cmd, SendOutcome& outcome) {
  Sent const sent = prepared(cmd);
  Sluice::Fapmask const& faps = cmd.fapmask();
  SchanStatus worst = SchanStatus::ok;
  bool onlyFull = true;
  std::size_t words = 0;
  for (FapId fap = faps.nextFapId(FapId::null()); !fap.isNull(); fap = faps.nextFapId(fap)) {
    SchanResponse const answer = answerOf(fap, sent, outcome);
    std::memcpy(&answers_[words], &answer, sizeof answer);
    if (sent.block != nullptr) sent.block[words / kResponseWords] = answer;
    words += kResponseWords;
    if (answer.status == SchanStatus::ok || !sent.owesAnswer) [[likely]]
      continue;
    if (outcome.ok()) outcome.status = answer.status;
    outcome.failed.fapIdIs(fap, true);
    onlyFull = onlyFull && answer.status == SchanStatus::bucketFull;
    if (worst == SchanStatus::ok || worst == SchanStatus::noResponse) worst = answer.status;
    traceFailure(fap, answer.status, sent);
  }
  ++outcome.commands;
  if (sent.transfers != 0) ++outcome.bulkCommands;
  if (worst == SchanStatus::noResponse) {
    ++outcome.unanswered;
  } else if (worst != SchanStatus::ok) {
    ++outcome.refused;
    if (onlyFull) ++outcome.full;
  }
  if (cmd.dwc_read() != 0) cmd.readRespFromBuf({answers_.data(), words});
}

SchanChannel::Sent SchanChannel::prepared(SchanCmd& cmd) {
  SchanResponse* const block = cmd.responseBlock();
  Sluice::FlushPass const* const pass = cmd.flushPass();
  unsigned const transfers = cmd.bulkTransferCount();
  if (transfers != 0 || pass != nullptr) return {cmd, transfers, pass, true, block};
  fillMessage(cmd);
  return {cmd, 0, nullptr, message_.responseRequested != 0, block};
}

void SchanChannel::fillMessage(SchanCmd& cmd) {
  std::size_t const words = cmd.dwc_write();
  constexpr std::size_t kWords = sizeof message_ / sizeof(std::uint32_t);
  DOVEL_ASSERT(words <= kWords, kClass, "a message of {} words, where {} is the most", words, kWords);
  auto* const first = reinterpret_cast<std::uint32_t*>(&message_);
  if (words < kWords) std::memset(first + words, 0, (kWords - words) * sizeof *first);
  cmd.fillCmdIntoBuf({first, words});
}

SchanResponse SchanChannel::answerOf(FapId fap, Sent const& sent, SendOutcome& outcome) {
  if (!chip_->present(fap)) [[unlikely]] {
    noResponse_ += sent.owesAnswer ? 1U : 0U;
    return {};
  }
  if (sent.pass != nullptr) return passAnswerOf(fap, *sent.pass, outcome);
  if (sent.transfers != 0) return bulkAnswerOf(fap, sent, outcome);
  return ask(fap, sent.owesAnswer, [&](SchanResponse& response) { chip_->message(fap, message_, response); });
}

SchanResponse SchanChannel::passAnswerOf(FapId fap, Sluice::FlushPass const& pass, SendOutcome& outcome) {
  SchanResponse const answer =
      ask(fap, true, [&](SchanResponse& response) { chip_->flush(fap, pass, response); });
  if (answer.status != SchanStatus::ok) return answer;
  Sluice::FlushAnswer done;
  std::memcpy(&done, answer.image, sizeof done);
  ++outcome.flushPasses;
  outcome.flushed += done.entries;
  return answer;
}

SchanResponse SchanChannel::bulkAnswerOf(FapId fap, Sent const& sent, SendOutcome& outcome) {
  SchanResponse answer{.status = SchanStatus::ok};
  for (unsigned number = 0; number < sent.transfers; ++number) {
    Sluice::BulkTransfer const transfer = sent.cmd.bulkTransfer(number);
    outcome.bulkBytes += std::uint64_t{transfer.rows} * transfer.rowBytes;
    SchanResponse const one =
        ask(fap, true, [&](SchanResponse& response) { chip_->bulk(fap, transfer, response); });
    if (answer.status == SchanStatus::ok) answer = one;
  }
  return answer;
}

// A copy of the answer, so that one that comes late finds nobody reading.
template <class Give>
SchanResponse SchanChannel::ask(FapId fap, bool owesAnswer, Give const& give) {
  std::uint64_t const resets = chip_->resets(fap);
  SchanResponse& response = slots_.take();
  give(response);
  if (!owesAnswer || Sluice::isAnswered(response)) [[likely]] {
    SchanResponse const answer = response;
    slots_.give(response);
    return answer;
  }
  ++noResponse_;
  slots_.putAside(response, fap, resets);
  return {};
}

void SchanChannel::traceFailure(FapId fap, SchanStatus status, Sent const& sent) const {
  if (!debugHandler().isOn(1)) return;
  char const* const what = status == SchanStatus::noResponse ? "No response" : "refused";
  if (sent.pass != nullptr) {
    DOVEL_TRACE(debugHandler(), 1, kClass, "{} of FAP {}: status {:#x}, flush pass over table {} id {}", what,
                fap, std::uint32_t(status), sent.pass->physicalTableId, sent.pass->tid);
  } else if (sent.transfers != 0) {
    Sluice::BulkTransfer const first = sent.cmd.bulkTransfer(0);
    DOVEL_TRACE(debugHandler(), 1, kClass,
                "{} of FAP {}: status {:#x}, {} bulk transfers from block {} row {:#x}", what, fap,
                std::uint32_t(status), sent.transfers, first.block, first.row);
  } else {
    DOVEL_TRACE(debugHandler(), 1, kClass, "{} of FAP {}: status {:#x}, opcode {} block {} address {:#x}",
                what, fap, std::uint32_t(status), message_.header >> 24, message_.block, message_.address);
  }
}

}  // namespace Chip
