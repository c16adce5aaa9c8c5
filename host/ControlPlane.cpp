#include "host/ControlPlane.h"

#include <fmt/format.h>

#include <algorithm>
#include <ranges>
#include <utility>

#include "host/InputError.h"
#include "platform/switch/LoamAsicUtils/HwTableHolderContext.h"
#include "runtime/Dovel/Format.h"

namespace Host {
namespace {

using Hardware::Loam::FapControlData;
using LoamAsicUtils::HwShadowKey;
using LoamAsicUtils::HwTableHolderContext;
using LoamAsicUtils::HwTableKey;
using LoamAsicUtils::KeyImage;
using LoamAsicUtils::RowImage;
using LoamAsicUtils::TableCatalogue;
using LoamAsicUtils::TableDescription;
using LoamAsicUtils::TableManager;
using LoamAsicUtils::TableWriter;
using Sluice::FapId;
using Sluice::Fapmask;

// Under which the bundle's plug-ins register their factories.
constexpr char kWriterName[] = "Default";

Dovel::Ptr<TableManager> newManager(Dovel::Ptr<DmaMemPoolManager::LocalMemPool> const& pool) {
  using namespace Hardware::Loam;
  return Dovel::ptrIsImpl<TableManager>(
      Dovel::ptrIsImpl<Status>("loamStatus"),
      Dovel::ptrIsImpl<LoamCmdletRequiredStatus>("loamCmdletRequiredStatus"),
      Dovel::ptrIsImpl<Statebase::EntityManager>("hwtables", false),
      Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager>(pool), Dovel::ptrIsImpl<MdbStatus>("mdbStatus"));
}

// By the factory that its bundle has registered, where it has one.
Dovel::Ptr<LoamAsicUtils::HwCommonTableBase> newTable(TableDescription const& described,
                                                      HwTableKey const& key,
                                                      Dovel::Ptr<TableManager> const& manager) {
  auto const factory = HwTableHolderContext::singleton().hwTableFactory(kWriterName, key);
  if (factory) return factory(key.fapRevision(), manager, nullptr);
  return described.access->make(key, manager);
}

}  // namespace

Fapmask only(FapId fap) {
  Fapmask mask;
  mask.fapIdIs(fap, true);
  return mask;
}

bool ControlPlane::Figures::any() const {
  return set != 0 || deleted != 0 || sent.commands != 0 || verified != 0;
}

ControlPlane::Figures& ControlPlane::Figures::operator+=(Figures const& other) {
  set += other.set;
  deleted += other.deleted;
  sent += other.sent;
  verified += other.verified;
  time += other.time;
  return *this;
}

ControlPlane::ControlPlane(Dovel::Ptr<Chip::SoftwareChip> chip, Hardware::Loam::FapRevision revision)
    : chip_(std::move(chip)), revision_(revision) {
  LoamAsicUtils::HwTablePlugin::DefaultHwTableLoader().load(&HwTableHolderContext::singleton());
  build();
}

ControlPlane::~ControlPlane() { end(); }

void ControlPlane::build() {
  pool_ = Dovel::ptrIsImpl<DmaMemPoolManager::LocalMemPool>("hwtables", DmaMemPoolManager::kDefaultBufSize,
                                                            DmaMemPoolManager::kDefaultCount,
                                                            DmaMemPoolManager::kDefaultDmaStart);
  chip_->dmaPoolIs(pool_);
  channel_ = Dovel::ptrIsImpl<Chip::SchanChannel>(chip_);
  manager_ = newManager(pool_);
  writer_ = Dovel::ptrIsImpl<TableWriter>(manager_, channel_);
  makeTables();
}

void ControlPlane::makeTables() {
  for (TableDescription const* const described : TableCatalogue::tables()) {
    if (described->access == nullptr) continue;
    HwTableKey const key(Dovel::String(described->name), revision_);
    auto const made = newTable(*described, key, manager_);
    manager_->tableIs(key, made);
    tables_.push_back({described, Dovel::ptrDynamicCast<LoamAsicUtils::HwCommonShadowTableBase>(made)});
  }
  std::ranges::stable_sort(tables_, {}, [](LiveTable const& live) { return live.table->tableRank(); });
}

// The writer goes first, so that what a shadow does at its end reaches no chip; a shadow without its store
// leaves the entries in it.
void ControlPlane::end() noexcept {
  writer_->close();
  for (LiveTable const& live : tables_) {
    figures_[live.name()].sent = figures(live).sent;
    for (auto const& [key, shadow] : live.table->hwShadowColl()) live.access().unmount(*shadow);
  }
  writer_ = nullptr;
  for (LiveTable const& live : tables_) manager_->tableDel(live.table->hwTableKey());
  tables_.clear();
  manager_ = nullptr;
  channel_ = nullptr;
  chip_->dmaPoolIs(nullptr);
  pool_ = nullptr;
}

LiveTable const* ControlPlane::table(std::string_view name) const {
  auto const found = std::ranges::find(tables_, name, &LiveTable::name);
  return found == tables_.end() ? nullptr : &*found;
}

HwShadowKey ControlPlane::shadowOf(LiveTable const& table, FapId fap) const {
  return {table.table->sharedShadow() ? FapId::null() : fap, 0};
}

std::vector<HwShadowKey> ControlPlane::shadows(LiveTable const& table, FapId fap) const {
  if (!fap.isNull() && table.table->sharedShadow())
    throw InputError(fmt::format("{}: fap {}: all FAPs share the table", table.name(), fap));
  if (!fap.isNull() && !faps_.fapId(fap)) throw InputError(fmt::format("fap {}: not up", fap));
  if (faps_ == Fapmask()) throw InputError("no FAP is up");
  std::vector<HwShadowKey> keys;
  for (auto const& [key, shadow] : table.table->hwShadowColl())
    if (fap.isNull() || key.fapId() == fap) keys.push_back(key);
  return keys;
}

std::vector<ControlPlane::Start> ControlPlane::start(Fapmask const& faps, Tell const& tell) {
  for (FapId const fap : faps.fapIds()) awaitsSync_ |= chip_->programmed(fap);
  std::vector<Start> starts;
  for (FapId const fap : faps.fapIds()) starts.push_back(fapAdd(fap, tell));
  return starts;
}

ControlPlane::Start ControlPlane::fapAdd(FapId fap, Tell const& tell) {
  bool const warm = chip_->programmed(fap);
  std::vector<LiveTable const*> ready;
  for (LiveTable const& live : tables_) {
    bool const inService = !awaitsSync_ && live.table->hwShadowCollHas(shadowOf(live, fap));
    if (!warm || inService) ready.push_back(&live);
    addShadow(live, fap, warm, tell);
  }
  faps_.fapIdIs(fap, true);
  std::vector<Reconciliation> reconciled;
  for (LiveTable const* const live : ready) {
    if (warm) {
      bringInStep(*live, only(fap), reconciled);
    } else {
      download(*live, only(fap));
    }
  }
  bool const downloaded = ready.size() == tables_.size();
  awaitsSync_ |= !downloaded;
  return {.fap = fap, .warm = warm, .downloaded = downloaded, .reconciled = std::move(reconciled)};
}

void ControlPlane::addShadow(LiveTable const& table, FapId fap, bool warm, Tell const& tell) {
  HwShadowKey const key = shadowOf(table, fap);
  bool const isNew = !table.table->hwShadowCollHas(key);
  if (isNew) {
    if (auto const former = formerStore(table.name(), table.description->typeName, revision_, key))
      tell(*former);
  }
  table.table->processFapIdAdd(Dovel::ptrIsImpl<FapControlData>(fap, revision_));
  // What a table writes by itself would take the place of what agents made of it on the chip.
  if (isNew && warm) writer_->dirtyKeysDel(*table.table->hwShadow(key));
}

void ControlPlane::fapDel(FapId fap) {
  for (LiveTable const& live : std::views::reverse(tables_)) writer_->clearFaps(*live.table, only(fap));
  for (LiveTable const& live : std::views::reverse(tables_)) live.table->processFapIdDel(fap);
  faps_.fapIdIs(fap, false);
}

std::vector<ControlPlane::Reconciliation> ControlPlane::syncDone() {
  std::vector<Reconciliation> reconciled;
  for (LiveTable const& live : tables_) bringInStep(live, faps_, reconciled);
  awaitsSync_ = false;
  return reconciled;
}

// On chips that are in use: they may hold what the stores don't.
void ControlPlane::bringInStep(LiveTable const& table, Fapmask const& faps,
                               std::vector<Reconciliation>& reconciled) {
  if (table.isExactMatch()) {
    reconciled.push_back(reconcile(table, faps));
  } else {
    download(table, faps);
  }
}

Fapmask ControlPlane::restart() {
  Fapmask const faps = std::exchange(faps_, Fapmask());
  end();
  awaitsSync_ = false;
  build();
  return faps;
}

void ControlPlane::setEntry(LiveTable const& table, HwShadowKey shadow, KeyImage const& key,
                            RowImage const& row) {
  table.access().setEntry(*table.table, shadow, key, row.view, row.data);
  ++figures_[table.name()].set;
}

void ControlPlane::deleteEntry(LiveTable const& table, HwShadowKey shadow, KeyImage const& key) {
  table.access().deleteEntry(*table.table, shadow, key);
  ++figures_[table.name()].deleted;
}

Sluice::SendOutcome ControlPlane::download(LiveTable const& table, Fapmask const& faps) {
  return writer_->download(*table.table, faps);
}

ControlPlane::Reconciliation ControlPlane::reconcile(LiveTable const& table, Fapmask const& faps) {
  LoamAsicUtils::HwEmTableBase& exactMatch = *table.exactMatch();
  TableWriter::Figures const before = writer_->figures(exactMatch);
  Sluice::SendOutcome const sent = writer_->reconcile(exactMatch, faps);
  TableWriter::Figures const after = writer_->figures(exactMatch);
  return {.table = &table,
          .done = exactMatch.markSweepTableSm()->state() != LoamAsicUtils::MarkSweepState::failed,
          .removed = after.flushed - before.flushed + after.staleDeleted - before.staleDeleted,
          .sent = sent};
}

Sluice::SendOutcome ControlPlane::clear(LiveTable const& table, HwShadowKey shadow) {
  return writer_->clear(*table.table, shadow);
}

void ControlPlane::verified(LiveTable const& table, std::uint64_t rows, std::chrono::nanoseconds time) {
  figures_[table.name()].verified += rows;
  figures_[table.name()].time += time;
}

ControlPlane::Figures ControlPlane::figures(LiveTable const& table) const {
  auto const found = figures_.find(table.name());
  Figures all = found == figures_.end() ? Figures() : found->second;
  if (writer_ != nullptr) all.sent += writer_->figures(*table.table);
  return all;
}

}  // namespace Host
