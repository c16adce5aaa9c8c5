#include "platform/switch/LoamAsicUtils/TableWriter.h"

#include <algorithm>
#include <ranges>
#include <utility>

#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/NotifieeConst.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamAsicUtils {
namespace {

ORLO_DEFAULT_TRACE_HANDLE("TableWriter")

TableAccess const& accessOf(HwCommonTableBase const& table) {
  TableDescription const* const described = TableCatalogue::table(table.hwTableKey().tableName());
  DOVEL_ASSERT(described != nullptr && described->access != nullptr, "LoamAsicUtils::TableWriter",
               "the catalogue has no access to table {}", table.hwTableKey());
  return *described->access;
}

// Adds the time of its own life.
class Timed {
  using Clock = std::chrono::steady_clock;

 public:
  explicit Timed(std::chrono::nanoseconds& time) : time_(time) {}
  Timed(Timed const&) = delete;
  Timed& operator=(Timed const&) = delete;
  ~Timed() { time_ += Clock::now() - start_; }

 private:
  std::chrono::nanoseconds& time_;
  Clock::time_point const start_ = Clock::now();
};

}  // namespace

// One shadow: its keys that are to be sent, and what is known of those that were.
class TableWriter::Watch {
 public:
  // Tables and shadows outlive their watches.
  Watch(TableWriter& writer, HwCommonShadowTableBase& ofTable, HwShadowBase& ofShadow)
      : table(ofTable),
        shadow(ofShadow),
        access(accessOf(ofTable)),
        figures(writer.figures_[ofTable.hwTableKey()]) {
    if (OrloVault::Entity* const storage = access.storage(shadow))
      listener_ = std::make_unique<Listener>(writer, *this, storage->publisher());
  }

  // The FAPs have taken every row of the shadow.
  void accepted(Sluice::Fapmask const& fapmask) {
    for (auto at = refusals.begin(); at != refusals.end();) {
      for (Sluice::FapId const fap : fapmask.fapIds()) at->second.fapmask.fapIdIs(fap, false);
      at = at->second.fapmask == Sluice::Fapmask() ? refusals.erase(at) : std::next(at);
    }
  }
  bool isPartial() const { return table.shadowMode() == ShadowType::keyBasedPartial; }

  HwCommonShadowTableBase& table;
  HwShadowBase& shadow;
  TableAccess const& access;
  Figures& figures;
  KeyList dirty;
  KeyList sending;
  KeyList deletes;
  KeyList touched;
  Refusals refusals;
  bool ignoring = false;

 private:
  class Listener final : public Orlo::NotifieeConst {
   public:
    Listener(TableWriter& writer, Watch& watch, Dovel::Publisher& publisher)
        : Orlo::NotifieeConst(publisher), writer_(writer), watch_(watch) {}
    void onChange(std::uint32_t attribute, void const* key) override {
      if (attribute != OrloVault::Entity::kEntryColl || watch_.ignoring) return;
      if (watch_.dirty.insert(watch_.access.publishedKey(key))) writer_.keyIsDirty();
    }

   private:
    TableWriter& writer_;
    Watch& watch_;
  };

  std::unique_ptr<Listener> listener_;
};

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
  if (flushing_ || dirtyKeys_ == 0) return;
  flushing_ = true;
  struct Flushed {
    bool& flushing;
    ~Flushed() { flushing = false; }
  } const flushed{flushing_};
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

void TableWriter::sendKey(Watch& watch, KeyImage const& key) {
  auto const cmds = watch.access.schanCmds(watch.table, watch.shadow.hwShadowKey(), key, nullptr);
  if (watch.isPartial()) watch.touched.insert(key);
  Sluice::SendOutcome const outcome = send(watch.table, watch.figures, cmds);
  if (!outcome.ok()) {
    watch.refusals[key] = {outcome.status, outcome.failed};
  } else if (!watch.refusals.empty()) {
    watch.refusals.erase(key);
  }
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
  return outcome;
}

Sluice::SendOutcome TableWriter::download(HwCommonShadowTableBase& table, Sluice::Fapmask const& fapmask) {
  flush();
  Figures& figures = figures_[table.hwTableKey()];
  Timed const timed(figures.time);
  auto const fapType = Hardware::Loam::chipTypeToFapType(table.hwTableKey().fapRevision().chipType());
  Sluice::SendOutcome const outcome = send(table, figures, table.download(stringValue(fapType), fapmask));
  if (outcome.ok() && outcome.commands != 0) {
    for (auto const& watch : watches_)
      if (&watch->table == &table) watch->accepted(fapmask);
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
  Sluice::SendOutcome const outcome = send(table, figures, cmds);
  for (auto const& watch : watches_)
    if (&watch->table == &table && watch->access.storedCount(watch->shadow) == 0) watch->refusals.clear();
  return outcome;
}

Sluice::SendOutcome TableWriter::clearFaps(HwDirectTableBase& table, Sluice::Fapmask const& fapmask) {
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
