// The chips of a machine that has none: models that keep what a chip would and answer as it would, and show
// its faults when asked to. docs/chip.md tells what they do. One thread; exact-match keys may be looked up
// from any other.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/chip/ChipAccess.h"
#include "platform/chip/ChipFaults.h"
#include "platform/chip/ChipModel.h"
#include "platform/memory/LockFile.h"
#include "platform/switch/DmaMemPoolManager/DmaMemPool.h"

namespace Chip {

// What a FAP was given since the object was made.
struct ChipCounters {
  std::uint64_t messages = 0;
  std::uint64_t bulkTransfers = 0;
  std::uint64_t passes = 0;
  std::uint64_t bytes = 0;    // of rows and entries that were read or written
  std::uint64_t refused = 0;  // answered with another status than ok
};

class SoftwareChip : public Dovel::Tracked<SoftwareChip, ChipAccess> {
 public:
  static constexpr unsigned kMaxFaps = Sluice::FapId::null().value();

  struct Options {
    // The FAPs 0 to faps - 1.
    unsigned faps = 1;
    // Where each FAP's state is kept, in the file fap-<n>.chip; made where it isn't there. Empty: in private
    // memory.
    Dovel::String directory;
    // That each physical table of exact-match databases has room for, a multiple of 4 up to kMaxEntries.
    std::uint32_t exactMatchEntries = 262144;
    // In how many of its two buckets a new key may be put.
    unsigned candidates = 2;
  };
  static constexpr std::uint32_t kMaxEntries = 1U << 24;

  // Throws Dovel::RangeException for options out of range, Dovel::NoPermissionException where another
  // SoftwareChip has the directory, and what ChipState throws.
  explicit SoftwareChip(Options const& options);
  ~SoftwareChip() override;

  bool present(Sluice::FapId fap) const override { return fap.value() < faps_.size(); }
  void message(Sluice::FapId fap, Sluice::schan_xmsg_user_ const& message,
               Sluice::SchanResponse& response) override;
  void bulk(Sluice::FapId fap, Sluice::BulkTransfer const& transfer,
            Sluice::SchanResponse& response) override;
  void flush(Sluice::FapId fap, Sluice::FlushPass const& pass, Sluice::SchanResponse& response) override;
  bool programmed(Sluice::FapId fap) const override;
  void reset(Sluice::FapId fap) override;
  std::uint64_t resets(Sluice::FapId fap) const override;
  void forget(Sluice::FapId fap) override;

  // The only host memory that the chips can see; null, as at first, for none. The latest call counts: a
  // control plane that is started anew has a pool of its own.
  void dmaPoolIs(Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> const& pool) { pool_ = pool; }

  ChipFaults& faults() { return faults_; }
  // Stays the caller's; null, as at first, for none.
  void observerIs(ChipObserver* observer);
  // All zero for a FAP that isn't there.
  ChipCounters counters(Sluice::FapId fap) const;
  // For tests. False where there is no such FAP or row, or the row isn't of that size.
  bool rowRead(Sluice::FapId fap, std::uint32_t block, std::uint32_t row, std::span<std::byte> out) const;

  using EntryBytes = std::array<std::byte, ExactMatchEntry::kBytes>;
  // The entry that the database has for the key of that entry, as its writer gave it but for the chip's own
  // fields, which are zero. From any thread, whatever the chip does meanwhile: a key that it holds throughout
  // is found.
  std::optional<EntryBytes> lookUp(Sluice::FapId fap, std::uint32_t physicalTable, std::uint32_t tid,
                                   std::span<std::byte const, ExactMatchEntry::kBytes> entry) const;
  // For tests and dumps: all entries of the database, in the order of their places. `visit` gives the chip
  // nothing to do.
  using Visit = std::function<void(std::span<std::byte const, ExactMatchEntry::kBytes>)>;
  void forEachEntry(Sluice::FapId fap, std::uint32_t physicalTable, std::uint32_t tid,
                    Visit const& visit) const;

 private:
  struct LateAnswer {
    Sluice::SchanResponse* response;
    Sluice::SchanResponse answer;
    std::uint64_t commandsLeft;
  };
  struct Fap {
    template <class... Args>
    explicit Fap(Args const&... args) : model(args...) {}

    ChipModel model;
    ChipCounters counters;
    std::uint64_t resets = 0;
    std::vector<LateAnswer> late;
  };

  Fap* fapAt(Sluice::FapId fap) const { return present(fap) ? faps_[fap.value()].get() : nullptr; }
  ChipFaults::Met met(ChipFaults::Command const& command);
  ChipFaults const* keyFaults() const { return faults_.refusesKeys() ? &faults_ : nullptr; }
  std::byte* buffer(std::uint64_t dmaAddress, std::size_t bytes) const;
  Sluice::SchanStatus moved(Fap& fap, Sluice::BulkTransfer const& transfer, ChipFaults::Met const& met,
                            Sluice::SchanResponse& answer);
  Sluice::SchanStatus rowsMoved(Fap& fap, Sluice::BulkTransfer const& transfer, ChipFaults::Met const& met);
  Sluice::SchanStatus entriesTaken(Fap& fap, Sluice::BulkTransfer const& transfer, ChipFaults::Met const& met,
                                   Sluice::SchanResponse& answer);
  Sluice::SchanStatus flushed(Fap& fap, Sluice::FlushPass const& pass, PassFault const& fault,
                              Sluice::SchanResponse& answer);
  static void resetFap(Fap& fap);
  static void end(Fap& fap, Sluice::SchanResponse* response, Sluice::SchanResponse const& answer,
                  ChipFaults::Met const& met);
  static void answerLate(Fap& fap);

  Mem::LockFile lock_;
  std::vector<std::unique_ptr<Fap>> faps_;
  Dovel::Ptr<DmaMemPoolManager::DmaMemPoolManager> pool_;
  ChipFaults faults_;
};

}  // namespace Chip
