// What TableWriter keeps of each shadow; for its own sources.
#pragma once

#include <memory>
#include <utility>

#include "platform/switch/LoamAsicUtils/TableWriter.h"
#include "platform/switch/TableDescription.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/NotifieeConst.h"

namespace LoamAsicUtils {

inline TableAccess const& accessOf(HwCommonTableBase const& table) {
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

// What was sent before, and one more try: it took all of that, and ended like the last.
inline void addTry(Sluice::SendOutcome& all, Sluice::SendOutcome const& last) {
  all += last;
  all.status = last.status;
  all.failed = last.failed;
}

// Gives something another value for the time of its own life.
template <class Value>
class Setting {
 public:
  Setting(Value& at, Value value) : at_(at), former_(std::exchange(at, value)) {}
  Setting(Setting const&) = delete;
  Setting& operator=(Setting const&) = delete;
  ~Setting() { at_ = former_; }

 private:
  Value& at_;
  Value const former_;
};

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
    if (auto* const em = dynamic_cast<HwEmTableBase*>(&table)) {
      em->addBulkDownloadErrConfig(configName(), Dovel::ptrIsImpl<HwBulkDownloadErrConfig>(
                                                     [this, &writer](BulkDownloadFailure const& failure) {
                                                       if (failure.shadow == shadow.hwShadowKey())
                                                         writer.bulkFailed(*this, failure);
                                                     }));
    }
  }
  Watch(Watch const&) = delete;
  Watch& operator=(Watch const&) = delete;
  ~Watch() {
    if (auto* const em = dynamic_cast<HwEmTableBase*>(&table)) em->deleteBulkDownloadErrConfig(configName());
  }

  // The FAPs have taken every row of the shadow, or will be asked anew.
  void refusalsDel(Sluice::Fapmask const& fapmask) {
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
  KeyImage const* working = nullptr;  // the key whose commands are being made

 private:
  Dovel::String configName() const {
    return Dovel::String("TableWriter ").append(shadow.hwShadowKey().toString());
  }

  class Listener final : public Orlo::NotifieeConst {
   public:
    Listener(TableWriter& writer, Watch& watch, Dovel::Publisher& publisher)
        : Orlo::NotifieeConst(publisher), writer_(writer), watch_(watch) {}
    void onChange(std::uint32_t attribute, void const* key) override {
      if (attribute != OrloVault::Entity::kEntryColl || watch_.ignoring) return;
      KeyImage const published = watch_.access.publishedKey(key);
      if (watch_.working != nullptr && *watch_.working == published) return;
      if (watch_.dirty.insert(published)) writer_.keyIsDirty();
    }

   private:
    TableWriter& writer_;
    Watch& watch_;
  };

  std::unique_ptr<Listener> listener_;
};

}  // namespace LoamAsicUtils
