#include "platform/switch/LoamAsicUtils/TableWriter.h"

#include <algorithm>
#include <ranges>
#include <utility>

#include "platform/switch/LoamAsicUtils/TableWriterWatch.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("TableWriter")

}  // namespace

// What a table publishes while its shadows are emptied is no news: the commands of that are had already.
class TableWriter::Ignoring {
 public:
  Ignoring(TableWriter& writer, HwCommonTableBase const& table) : writer_(writer), table_(table) {
    set(true);
  }
  Ignoring(Ignoring const&) = delete;
  Ignoring& operator=(Ignoring const&) = delete;
  ~Ignoring() { set(false); }

 private:
  void set(bool ignoring) {
    for (auto const& watch : writer_.watches_)
      if (&watch->table == &table_) watch->ignoring = ignoring;
  }
  TableWriter& writer_;
  HwCommonTableBase const& table_;
};

TableWriter::Figures& TableWriter::Figures::operator+=(Figures const& other) {
  writes += other.writes;
  deletes += other.deletes;
  commands += other.commands;
  refused += other.refused;
  unanswered += other.unanswered;
  downloadCommands += other.downloadCommands;
  downloadBytes += other.downloadBytes;
  flushPasses += other.flushPasses;
  flushed += other.flushed;
  staleDeleted += other.staleDeleted;
  time += other.time;
  return *this;
}

TableWriter::TableWriter(Dovel::Ptr<TableManager> const& manager, Dovel::Ptr<Sluice::Channel> const& channel)
    : manager_(manager), channel_(channel) {
  manager_->shadowWatcherIs(this);
}

TableWriter::~TableWriter() {
  markBeingDestroyed();
  close();
}

void TableWriter::close() {
  if (manager_->shadowWatcher() != this) return;
  flush();
  manager_->shadowWatcherIs(nullptr);
  watches_.clear();
}

void TableWriter::markAndSweepDue(HwCommonTableBase& table) {
  auto* const em = dynamic_cast<HwEmTableBase*>(&table);
  if (em != nullptr && std::ranges::find(due_, em, [](auto const& one) { return one.ptr(); }) == due_.end())
    due_.emplace_back(em);
}

void TableWriter::shadowComes(HwCommonShadowTableBase& table, HwShadowBase& shadow) {
  auto const after = std::ranges::upper_bound(watches_, table.tableRank(), {},
                                              [](auto const& watch) { return watch->table.tableRank(); });
  watches_.insert(after, std::make_unique<Watch>(*this, table, shadow));
}

void TableWriter::shadowGoes(HwCommonShadowTableBase& table, HwShadowBase& shadow) {
  DOVEL_TRACE(_defaultTraceHandle(), 5, "TableWriter", "table {} shadow {}", table.name(),
              shadow.hwShadowKey());
  dirtyKeysDel(shadow);
  std::erase_if(watches_, [&](auto const& watch) { return &watch->shadow == &shadow; });
}

TableWriter::Watch* TableWriter::watchOf(HwShadowBase const& shadow) const {
  auto const found = std::ranges::find(watches_, &shadow, [](auto const& watch) { return &watch->shadow; });
  return found == watches_.end() ? nullptr : found->get();
}

void TableWriter::keyIsDirty() {
  if (++dirtyKeys_ >= kFlushKeys) flush();
}

void TableWriter::flush() {
  if (flushing_) return;
  if (dirtyKeys_ != 0) sendAllKeys();
  if (!due_.empty()) runDue();
}

void TableWriter::sendAllKeys() {
  Setting const sending(flushing_, true);
  for (auto const& watch : watches_) sendWrites(*watch);
  for (auto const& watch : std::views::reverse(watches_)) sendDeletes(*watch);
}

void TableWriter::dirtyKeysDel(HwShadowBase const& shadow) {
  Watch* const watch = watchOf(shadow);
  if (watch == nullptr) return;
  dirtyKeys_ -= watch->dirty.size();
  watch->dirty.clear();
}

void TableWriter::sendWrites(Watch& watch) {
  if (watch.dirty.empty()) return;
  dirtyKeys_ -= watch.dirty.size();
  watch.sending.clear();
  watch.sending.swap(watch.dirty);
  Timed const timed(watch.figures.time);
  // A store that is gone has nothing to say: its keys must not be taken for deleted ones.
  if (!watch.access.mounted(watch.shadow)) return;
  for (KeyImage const& key : watch.sending.keys()) {
    if (!watch.access.stored(watch.shadow, key)) {
      watch.deletes.insert(key);
      continue;
    }
    ++watch.figures.writes;
    sendKey(watch, key);
  }
}

void TableWriter::sendDeletes(Watch& watch) {
  if (watch.deletes.empty()) return;
  Timed const timed(watch.figures.time);
  for (KeyImage const& key : watch.deletes.keys()) {
    ++watch.figures.deletes;
    sendKey(watch, key);
  }
  watch.deletes.clear();
}

Sluice::SendOutcome TableWriter::sendKey(Watch& watch, KeyImage const& key) {
  // A deletion leaves the store with its command, which is no news.
  auto const cmds = [&] {
    Setting<KeyImage const*> const working(watch.working, &key);
    return watch.access.schanCmds(watch.table, watch.shadow.hwShadowKey(), key, nullptr);
  }();
  if (watch.isPartial()) watch.touched.insert(key);
  Sluice::SendOutcome const outcome = send(watch.table, watch.figures, cmds);
  if (!outcome.ok()) {
    watch.refusals[key] = {outcome.status, outcome.failed, outcome.onlyFull()};
  } else if (!watch.refusals.empty()) {
    watch.refusals.erase(key);
  }
  return outcome;
}

Sluice::SendOutcome TableWriter::send(HwCommonTableBase const& table, Figures& figures,
                                      Dovel::Ptr<Sluice::SchanCmds> const& cmds) {
  if (cmds == nullptr) return {};
  Sluice::SendOutcome const outcome = channel_->send(cmds);
  if (!outcome.ok()) {
    DOVEL_TRACE(_defaultTraceHandle(), 1, "TableWriter",
                "table {}: FAPs {} answered {}: {} refused, {} unanswered", table.name(), outcome.failed,
                static_cast<std::uint32_t>(outcome.status), outcome.refused, outcome.unanswered);
  }
  figures.commands += outcome.commands;
  figures.refused += outcome.refused;
  figures.unanswered += outcome.unanswered;
  figures.downloadCommands += outcome.bulkCommands;
  figures.downloadBytes += outcome.bulkBytes;
  figures.flushPasses += outcome.flushPasses;
  return outcome;
}

Sluice::SendOutcome TableWriter::download(HwCommonShadowTableBase& table, Sluice::Fapmask const& fapmask) {
  flush();
  if (auto* const em = dynamic_cast<HwEmTableBase*>(&table)) return downloaded(*em, fapmask);
  Figures& figures = figures_[table.hwTableKey()];
  Timed const timed(figures.time);
  auto const fapType = Hardware::Loam::chipTypeToFapType(table.hwTableKey().fapRevision().chipType());
  Sluice::SendOutcome const outcome = send(table, figures, table.download(stringValue(fapType), fapmask));
  if (outcome.ok() && outcome.commands != 0) {
    for (auto const& watch : watches_)
      if (&watch->table == &table) watch->refusalsDel(fapmask);
  }
  return outcome;
}

Sluice::SendOutcome TableWriter::clear(HwCommonShadowTableBase& table, HwShadowKey key) {
  flush();
  Figures& figures = figures_[table.hwTableKey()];
  Timed const timed(figures.time);
  Dovel::Ptr<Sluice::SchanCmds> cmds;
  {
    Ignoring const ignoring(*this, table);
    cmds = table.clearShadow(key);
  }
  Sluice::SendOutcome outcome = send(table, figures, cmds);
  figures.flushed += outcome.flushed;
  if (auto* const em = dynamic_cast<HwEmTableBase*>(&table); em != nullptr && !outcome.ok())
    addTry(outcome, flushPasses(*em, outcome.failed, FlushCmdType::flushCmdClear));
  for (auto const& watch : watches_)
    if (&watch->table == &table && watch->access.storedCount(watch->shadow) == 0) watch->refusals.clear();
  return outcome;
}

Sluice::SendOutcome TableWriter::clearFaps(HwCommonShadowTableBase& table, Sluice::Fapmask const& fapmask) {
  flush();
  Figures& figures = figures_[table.hwTableKey()];
  Timed const timed(figures.time);
  return send(table, figures, table.clearFapsInHw(fapmask));
}

TableWriter::Figures TableWriter::figures(HwCommonTableBase const& table) const {
  auto const found = figures_.find(table.hwTableKey());
  return found == figures_.end() ? Figures() : found->second;
}

TableWriter::Refusals const& TableWriter::refusals(HwShadowBase const& shadow) const {
  static Refusals const kNone;
  Watch const* const watch = watchOf(shadow);
  return watch == nullptr ? kNone : watch->refusals;
}

std::vector<KeyImage> const& TableWriter::touchedKeys(HwShadowBase const& shadow) const {
  static std::vector<KeyImage> const kNone;
  Watch const* const watch = watchOf(shadow);
  return watch == nullptr ? kNone : watch->touched.keys();
}

}  // namespace LoamAsicUtils
