// Brings the chips in line with the stores of the tables: the only party between the two. It watches every
// shadow of its manager's tables, keeps the keys that were published and not yet sent, and turns each into
// commands made from what the store holds by then, so that an entry which was written often costs one write.
//
// Keys are sent when there are kFlushKeys of them, before every operation that touches the chips, and when
// flush() is called, as it should be when an agent pauses. Writes go to tables of lower rank first, so that
// nothing on the chip ever refers to what isn't there; then deletes, the other way round. Reconciliations
// that were asked for (HwEmTableBase::scheduleMarkAndSweep) are run at the end of a flush.
//
// Belongs to the thread of the tables' agent.
#pragma once

#include <chrono>
#include <memory>
#include <unordered_map>

#include "platform/switch/LoamAsicUtils/HwEmTableBase.h"
#include "platform/switch/LoamAsicUtils/KeyList.h"
#include "platform/switch/LoamAsicUtils/TableManager.h"
#include "platform/switch/Sluice/Channel.h"

namespace LoamAsicUtils {

class TableWriter final : public Dovel::Tracked<TableWriter>, public ShadowWatcher {
 public:
  static constexpr std::size_t kFlushKeys = 1024;

  // What was sent for a table.
  struct Figures {
    std::uint64_t writes = 0;   // keys
    std::uint64_t deletes = 0;  // keys
    std::uint64_t commands = 0;
    std::uint64_t refused = 0;     // of the commands
    std::uint64_t unanswered = 0;  // of the commands
    std::uint64_t downloadCommands = 0;
    std::uint64_t downloadBytes = 0;
    std::uint64_t flushPasses = 0;    // of the chips' flush machines, run to their end
    std::uint64_t flushed = 0;        // entries that passes have removed
    std::uint64_t staleDeleted = 0;   // keys that a table without marks was found to have too many
    std::chrono::nanoseconds time{};  // in which commands were made and sent

    Figures& operator+=(Figures const& other);
  };
  // What the chip last answered for a key, where that was an error.
  struct Refusal {
    Sluice::SchanStatus status;
    Sluice::Fapmask fapmask;  // the FAPs that gave it, or another one
    bool onlyFull;            // none of them had another reason than a full bucket
  };
  using Refusals = std::unordered_map<KeyImage, Refusal, KeyImageHash>;

  // Watches the manager's shadows from now on; those that are there already are not seen.
  TableWriter(Dovel::Ptr<TableManager> const& manager, Dovel::Ptr<Sluice::Channel> const& channel);
  // Closes.
  ~TableWriter() override;

  // Sends what is left and watches no longer; stores and chips stay as they are.
  void close();

  // Sends all keys. Without effect in the middle of a flush.
  void flush();
  std::size_t dirtyKeys() const { return dirtyKeys_; }
  // What the shadow has published so far is not sent: its chip is in use, and a download will come.
  void dirtyKeysDel(HwShadowBase const& shadow);

  // Each of these sends all keys first.

  // Writes the table's shadows to the chips of the mask. Keys of an exact-match table that didn't get there
  // in bulk are sent once more, each by itself.
  Sluice::SendOutcome download(HwCommonShadowTableBase& table, Sluice::Fapmask const& fapmask);
  // Empties the shadows of the key's FAPs and clears those chips.
  Sluice::SendOutcome clear(HwCommonShadowTableBase& table, HwShadowKey key);
  // Clears the table on the chips of the mask; the shadows keep their entries.
  Sluice::SendOutcome clearFaps(HwCommonShadowTableBase& table, Sluice::Fapmask const& fapmask);
  // Has the flush machines of the mask run over the table; a pass that fails is tried again as often as the
  // table's rules say.
  Sluice::SendOutcome flushPasses(HwEmTableBase& table, Sluice::Fapmask const& fapmask, FlushCmdType type);
  // Reads the table from the chips of the mask and deletes from them, key by key, what the shadows don't
  // hold.
  Sluice::SendOutcome deleteStale(HwEmTableBase& table, Sluice::Fapmask const& fapmask);
  // Brings the table on the chips of the mask back in step with its shadows, with no good entry missing at
  // any time, and waits for the end. The table's markSweepTableSm() tells how it went.
  Sluice::SendOutcome reconcile(HwEmTableBase& table, Sluice::Fapmask const& fapmask);
  // Runs one step of the reconciliation that is under way, if any, and adds what was sent. False when no
  // further step is left.
  bool reconcileStep(HwEmTableBase& table, Sluice::SendOutcome& outcome);

  Figures figures(HwCommonTableBase const& table) const;
  // Of a shadow that is watched; empty for others.
  Refusals const& refusals(HwShadowBase const& shadow) const;
  // The keys of a partly written table that were sent: the rows of the chip that are the table's.
  std::vector<KeyImage> const& touchedKeys(HwShadowBase const& shadow) const;

  void shadowComes(HwCommonShadowTableBase& table, HwShadowBase& shadow) override;
  void shadowGoes(HwCommonShadowTableBase& table, HwShadowBase& shadow) override;
  void markAndSweepDue(HwCommonTableBase& table) override;

 private:
  class Watch;
  class Ignoring;

  // Null for a shadow that isn't watched.
  Watch* watchOf(HwShadowBase const& shadow) const;
  void keyIsDirty();
  void sendWrites(Watch& watch);
  void sendDeletes(Watch& watch);
  Sluice::SendOutcome sendKey(Watch& watch, KeyImage const& key);
  void sendAllKeys();
  Sluice::SendOutcome downloaded(HwEmTableBase& table, Sluice::Fapmask const& fapmask);
  bool deleteStale(Watch& watch, Sluice::FapId fap, Sluice::SendOutcome& outcome);
  bool runStep(HwEmTableBase& table, Sluice::SendOutcome& outcome);
  // Whether no key of the table is missing on the FAPs for another reason than a full bucket.
  bool onlyFullMissing(HwCommonTableBase const& table, Sluice::Fapmask const& fapmask) const;
  void allKeysAreDirty(HwCommonTableBase const& table, Sluice::Fapmask const& fapmask);
  void runDue();
  // The entries of a buffer are to be sent one by one.
  void bulkFailed(Watch& watch, BulkDownloadFailure const& failure);
  // The figures are those of the table.
  Sluice::SendOutcome send(HwCommonTableBase const& table, Figures& figures,
                           Dovel::Ptr<Sluice::SchanCmds> const& cmds);

  Dovel::Ptr<TableManager> manager_;
  Dovel::Ptr<Sluice::Channel> channel_;
  std::vector<std::unique_ptr<Watch>> watches_;  // by ascending rank of their tables
  std::unordered_map<HwTableKey, Figures, HwTableKeyHash> figures_;
  std::vector<Dovel::Ptr<HwEmTableBase>> due_;  // reconciliations that were asked for
  std::size_t dirtyKeys_ = 0;
  std::uint64_t bulkFailures_ = 0;
  bool flushing_ = false;
  bool reconciling_ = false;
  // How often each FAP of a table's run had been reset when the run began.
  struct Run {
    std::uint64_t number = 0;
    std::vector<std::uint64_t> resets;
  };
  std::unordered_map<HwTableKey, Run, HwTableKeyHash> runs_;
};

}  // namespace LoamAsicUtils
