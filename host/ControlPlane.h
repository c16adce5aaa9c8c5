// The control plane of a process: the tables of the loaded bundle over the chips it is given, from the coming
// of a FAP to its end. What an agent does goes through here: entries into stores, stores onto chips.
//
// One thread, that of the agent.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "host/FormerStore.h"
#include "platform/chip/SchanChannel.h"
#include "platform/chip/SoftwareChip.h"
#include "platform/switch/DmaMemPoolManager/LocalMemPool.h"
#include "platform/switch/LoamAsicUtils/TableWriter.h"
#include "platform/switch/TableDescription.h"

namespace Host {

// A table that is run.
struct LiveTable {
  LoamAsicUtils::TableDescription const* description;
  Dovel::Ptr<LoamAsicUtils::HwCommonShadowTableBase> table;

  std::string_view name() const { return description->name; }
  LoamAsicUtils::TableAccess const& access() const { return *description->access; }
  bool isExactMatch() const { return description->family == LoamAsicUtils::TableFamily::exactMatch; }
  // Null for tables of other families.
  LoamAsicUtils::HwEmTableBase* exactMatch() const {
    return isExactMatch() ? static_cast<LoamAsicUtils::HwEmTableBase*>(table.ptr()) : nullptr;
  }
};

class ControlPlane {
 public:
  // What was done for a table since the object was made; the writer's part ends with each restart and is kept
  // here.
  struct Figures {
    std::uint64_t set = 0;      // rows, by an agent
    std::uint64_t deleted = 0;  // rows, by an agent
    LoamAsicUtils::TableWriter::Figures sent;
    std::uint64_t verified = 0;  // rows of chips
    std::chrono::nanoseconds time{};

    bool any() const;
    Figures& operator+=(Figures const& other);
  };

  // How an exact-match table was brought back in step with its shadow.
  struct Reconciliation {
    LiveTable const* table;
    bool done;              // else it has failed on its way
    std::uint64_t removed;  // stale entries
    Sluice::SendOutcome sent;
  };
  // How a FAP has come up.
  struct Start {
    Sluice::FapId fap;
    bool warm;        // the chip held something
    bool downloaded;  // from every table; else syncDone() does it
    std::vector<Reconciliation> reconciled;
  };
  // Is told of each old store before it is emptied.
  using Tell = std::function<void(FormerStore const&)>;

  // Without any FAP. The bundle must be loaded and stay so.
  ControlPlane(Dovel::Ptr<Chip::SoftwareChip> chip, Hardware::Loam::FapRevision revision);
  ControlPlane(ControlPlane const&) = delete;
  ControlPlane& operator=(ControlPlane const&) = delete;
  // An orderly end: what is left is sent, stores and chips keep what they hold.
  ~ControlPlane();

  // By ascending rank.
  std::vector<LiveTable> const& tables() const { return tables_; }
  // Null where there is no such table.
  LiveTable const* table(std::string_view name) const;
  Sluice::Fapmask const& faps() const { return faps_; }
  Hardware::Loam::FapRevision revision() const { return revision_; }
  Chip::SoftwareChip& chip() { return *chip_; }
  DmaMemPoolManager::LocalMemPool& pool() { return *pool_; }
  Sluice::Channel& channel() { return *channel_; }
  LoamAsicUtils::TableWriter& writer() { return *writer_; }
  LoamAsicUtils::TableWriter const& writer() const { return *writer_; }

  // Whether a FAP came up with a chip that was in use: its tables wait for what the agents will write again.
  bool awaitsSync() const { return awaitsSync_; }

  // Brings the FAPs up, one after the other. A chip that is blank is downloaded to at once, by rank. One that
  // has been in use is left alone until syncDone(), as its new shadows hold nothing yet; but tables whose
  // shared shadow is in service are downloaded to it. Throws what a store throws that can't be had.
  std::vector<Start> start(Sluice::Fapmask const& faps, Tell const& tell);
  Start fapAdd(Sluice::FapId fap, Tell const& tell);
  // Clears the FAP's chip by descending rank, and forgets the FAP.
  void fapDel(Sluice::FapId fap);
  // The agents have written all that they want to stand: it gets to every FAP, and nothing else stays in the
  // tables. Direct tables are downloaded, exact-match tables are reconciled.
  std::vector<Reconciliation> syncDone();
  // Ends in order and builds everything but the chips again. Returns the FAPs that were up: start() them.
  Sluice::Fapmask restart();

  // The shadows of a table that an agent means: the shared one, or that of the FAP, or every FAP's for the
  // null FAP. Throws InputError for a FAP that isn't up, or where a shared table is asked for by FAP.
  std::vector<LoamAsicUtils::HwShadowKey> shadows(LiveTable const& table, Sluice::FapId fap) const;

  void setEntry(LiveTable const& table, LoamAsicUtils::HwShadowKey shadow, LoamAsicUtils::KeyImage const& key,
                LoamAsicUtils::RowImage const& row);
  void deleteEntry(LiveTable const& table, LoamAsicUtils::HwShadowKey shadow,
                   LoamAsicUtils::KeyImage const& key);
  // To the FAPs of the mask that are up.
  Sluice::SendOutcome download(LiveTable const& table, Sluice::Fapmask const& faps);
  // An exact-match table, on the FAPs of the mask that are up.
  Reconciliation reconcile(LiveTable const& table, Sluice::Fapmask const& faps);
  // Empties the shadow and clears its chips.
  Sluice::SendOutcome clear(LiveTable const& table, LoamAsicUtils::HwShadowKey shadow);
  void verified(LiveTable const& table, std::uint64_t rows, std::chrono::nanoseconds time);

  Figures figures(LiveTable const& table) const;

 private:
  void build();
  void makeTables();
  void addShadow(LiveTable const& table, Sluice::FapId fap, bool warm, Tell const& tell);
  void end() noexcept;
  void bringInStep(LiveTable const& table, Sluice::Fapmask const& faps,
                   std::vector<Reconciliation>& reconciled);
  LoamAsicUtils::HwShadowKey shadowOf(LiveTable const& table, Sluice::FapId fap) const;

  Dovel::Ptr<Chip::SoftwareChip> chip_;
  Hardware::Loam::FapRevision revision_;
  Sluice::Fapmask faps_;
  bool awaitsSync_ = false;
  std::map<std::string_view, Figures> figures_;

  // These are built again by a restart.
  Dovel::Ptr<DmaMemPoolManager::LocalMemPool> pool_;
  Dovel::Ptr<Chip::SchanChannel> channel_;
  Dovel::Ptr<LoamAsicUtils::TableManager> manager_;
  Dovel::Ptr<LoamAsicUtils::TableWriter> writer_;
  std::vector<LiveTable> tables_;
};

// A mask of one.
Sluice::Fapmask only(Sluice::FapId fap);

}  // namespace Host
