// What TableWriter does with exact-match tables beyond single keys.
#include <algorithm>
#include <utility>

#include "platform/switch/LoamAsicUtils/EmRead.h"
#include "platform/switch/LoamAsicUtils/TableWriterWatch.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("TableWriter")

using Sluice::Fapmask;
using Sluice::SendOutcome;

bool meet(Fapmask a, Fapmask const& b) {
  a &= b;
  return a != Fapmask();
}

}  // namespace

// Called in the middle of a sending, so the keys wait for its end.
void TableWriter::bulkFailed(Watch& watch, BulkDownloadFailure const& failure) {
  ++bulkFailures_;
  Setting const notNow(flushing_, true);
  for (std::size_t at = 0; at < failure.entries.size(); at += failure.entryBytes) {
    if (watch.dirty.insert(watch.access.keyOfData(failure.entries.subspan(at, failure.entryBytes))))
      ++dirtyKeys_;
  }
}

SendOutcome TableWriter::downloaded(HwEmTableBase& table, Fapmask const& fapmask) {
  Figures& figures = figures_[table.hwTableKey()];
  for (auto const& watch : watches_)
    if (&watch->table == &table) watch->refusalsDel(fapmask);
  bulkFailures_ = 0;
  SendOutcome outcome;
  {
    Timed const timed(figures.time);
    Setting const notNow(flushing_, true);
    auto const fapType = Hardware::Loam::chipTypeToFapType(table.hwTableKey().fapRevision().chipType());
    outcome = send(table, figures, table.download(stringValue(fapType), fapmask));
  }
  // Of commands for single keys that failed nothing tells which they were.
  if (outcome.refused + outcome.unanswered > bulkFailures_) allKeysAreDirty(table, fapmask);
  if (dirtyKeys_ != 0) sendAllKeys();
  return outcome;
}

void TableWriter::allKeysAreDirty(HwCommonTableBase const& table, Fapmask const& fapmask) {
  for (auto const& watch : watches_) {
    if (&watch->table != &table || watch->shadow.applicableFapmask(fapmask) == Fapmask()) continue;
    watch->access.forEachEntry(watch->shadow, [&](KeyImage const& key, std::uint32_t, auto const&) {
      if (watch->dirty.insert(key)) ++dirtyKeys_;
    });
  }
}

bool TableWriter::onlyFullMissing(HwCommonTableBase const& table, Fapmask const& fapmask) const {
  for (auto const& watch : watches_) {
    if (&watch->table != &table) continue;
    for (auto const& [key, refusal] : watch->refusals)
      if (!refusal.onlyFull && meet(refusal.fapmask, fapmask)) return false;
  }
  return true;
}

SendOutcome TableWriter::flushPasses(HwEmTableBase& table, Fapmask const& fapmask, FlushCmdType type) {
  flush();
  Figures& figures = figures_[table.hwTableKey()];
  Timed const timed(figures.time);
  SendOutcome all;
  Fapmask left = fapmask;
  for (unsigned tries = 0; tries <= table.flushHelperHolder()->retryCount(); ++tries) {
    SendOutcome const outcome = send(table, figures, table.formFlushCmds(left, type));
    addTry(all, outcome);
    if (outcome.ok()) break;
    left = outcome.failed;
  }
  if (type != FlushCmdType::flushCmdMark) figures.flushed += all.flushed;
  return all;
}

SendOutcome TableWriter::deleteStale(HwEmTableBase& table, Fapmask const& fapmask) {
  flush();
  SendOutcome outcome;
  for (auto const& watch : watches_) {
    if (&watch->table != &table) continue;
    Timed const timed(watch->figures.time);
    Fapmask mask = table.getFapmask(watch->shadow.hwShadowKey());
    mask &= fapmask;
    for (Sluice::FapId const fap : mask.fapIds()) {
      if (deleteStale(*watch, fap, outcome) || !outcome.ok()) continue;
      outcome.status = Sluice::SchanStatus::noResponse;
      outcome.failed.fapIdIs(fap, true);
    }
  }
  return outcome;
}

bool TableWriter::deleteStale(Watch& watch, Sluice::FapId fap, SendOutcome& outcome) {
  auto const& table = static_cast<HwEmTableBase const&>(watch.table);
  std::vector<KeyImage> stale;
  bool const complete = readEntries(*channel_, table, fap, outcome, [&](std::span<std::uint8_t const> entry) {
    KeyImage const key = watch.access.keyOfData(entry);
    if (!watch.access.stored(watch.shadow, key)) stale.push_back(key);
  });
  for (KeyImage const& key : stale) outcome += sendKey(watch, key);
  watch.figures.staleDeleted += stale.size();
  return complete;
}

SendOutcome TableWriter::reconcile(HwEmTableBase& table, Fapmask const& fapmask) {
  SendOutcome outcome;
  table.scheduleMarkAndSweep(fapmask);
  while (reconcileStep(table, outcome)) {
  }
  return outcome;
}

bool TableWriter::reconcileStep(HwEmTableBase& table, SendOutcome& outcome) {
  MarkSweepTableSm& run = *table.markSweepTableSm();
  if (!run.isActive()) return false;
  Setting const notNow(reconciling_, true);
  Run& begun = runs_[table.hwTableKey()];
  Fapmask const mask = run.request().fapmask;
  auto const resets = [&] {
    std::vector<std::uint64_t> counts;
    for (Sluice::FapId const fap : mask.fapIds()) counts.push_back(channel_->resets(fap));
    return counts;
  };
  if (begun.number != run.request().number) begun = {run.request().number, resets()};
  auto const number = run.request().number;
  bool const good = runStep(table, outcome) && resets() == begun.resets;
  // A FAP that went meanwhile has ended the run.
  if (run.isActive() && run.request().number == number) run.stepDone(good);
  if (!run.isActive()) std::erase_if(due_, [&](auto const& due) { return due.ptr() == &table; });
  return run.isActive();
}

bool TableWriter::runStep(HwEmTableBase& table, SendOutcome& outcome) {
  Fapmask const mask = table.markSweepTableSm()->request().fapmask;
  switch (table.markSweepTableSm()->state()) {
    case MarkSweepState::marking: {
      SendOutcome const step = table.hasMarkSweep() ? flushPasses(table, mask, FlushCmdType::flushCmdMark)
                                                    : deleteStale(table, mask);
      outcome += step;
      return step.ok();
    }
    case MarkSweepState::downloading:
      outcome += download(table, mask);
      return onlyFullMissing(table, mask);
    default: {
      SendOutcome const step = flushPasses(table, mask, FlushCmdType::flushCmdSweep);
      outcome += step;
      return step.ok();
    }
  }
}

void TableWriter::runDue() {
  if (reconciling_) return;
  for (auto const& table : std::exchange(due_, {})) {
    SendOutcome outcome;
    while (reconcileStep(*table, outcome)) {
    }
  }
}

}  // namespace LoamAsicUtils
