// No good key is missing at any moment of a reconciliation: looked up from another thread throughout, and
// told by the chip at every change.
#include <atomic>
#include <set>
#include <thread>

#include "tests/LoamSharedHwTables/ExactMatchRig.h"

namespace {

using namespace bcm88490_a0;
using LoamAsicUtils::MarkSweepState;
using TestSupport::maskOf;
using TestSupport::numberedEntry;
using TestSupport::numberedKey;
using TestSupport::resultsOnChip;
using TestSupport::shadowKeyOf;
using TestSupport::TableRig;

constexpr std::uint32_t kStale = 300;
constexpr std::uint32_t kAll = 1000;

template <class T>
Chip::SoftwareChip::EntryBytes bytesOf(typename T::Entry const& entry) {
  Chip::SoftwareChip::EntryBytes bytes;
  std::memcpy(bytes.data(), entry.dataBytes().data(), bytes.size());
  return bytes;
}

// Counts good keys that the chip lets go of, and what it does to entries in all.
template <class T>
class LossWatch final : public Chip::ChipObserver {
 public:
  void rowWritten(Sluice::FapId, std::uint32_t, std::uint32_t, std::span<std::byte const>,
                  std::span<std::byte const>) override {}
  void wasReset(Sluice::FapId) override { ++lost; }
  void entryWritten(Sluice::FapId, std::uint32_t, std::uint32_t, std::span<std::byte const> before,
                    std::span<std::byte const> after) override {
    if (before.empty()) {
      ++inserted;
    } else if (!after.empty()) {
      ++changed;
      if (keyOf(before) != keyOf(after)) ++lost;
    } else {
      ++removed;
      if (good.contains(keyOf(before))) ++lost;
    }
  }

  std::set<typename T::EntryKey> good;
  unsigned lost = 0;
  unsigned inserted = 0;
  unsigned changed = 0;
  unsigned removed = 0;

 private:
  static typename T::EntryKey keyOf(std::span<std::byte const> bytes) {
    typename T::Entry entry;
    entry.dataBytesIs(reinterpret_cast<std::uint8_t const*>(bytes.data()));
    entry.setKeyFromBuffer();
    return entry.entryKey();
  }
};

// Looks all good keys up, again and again.
template <class T>
class LookUps {
 public:
  LookUps(Chip::SoftwareChip const& chip, std::uint32_t physicalTable)
      : chip_(chip), physicalTable_(physicalTable) {
    for (std::uint32_t number = kStale; number < kAll; ++number)
      good_.push_back(bytesOf<T>(numberedEntry<T>(number, 0)));
    tid_ = numberedEntry<T>(0, 0).tid().value();
    thread_ = std::thread([this] {
      while (!ending_) {
        for (auto const& key : good_)
          if (!chip_.lookUp(0, physicalTable_, tid_, key)) ++missing_;
        ++rounds_;
      }
    });
  }
  LookUps(LookUps const&) = delete;
  LookUps& operator=(LookUps const&) = delete;
  ~LookUps() { end(); }

  void end() {
    ending_ = true;
    if (thread_.joinable()) thread_.join();
  }
  unsigned rounds() const { return rounds_; }
  unsigned missing() const { return missing_; }

 private:
  Chip::SoftwareChip const& chip_;
  std::uint32_t physicalTable_;
  std::uint32_t tid_;
  std::vector<Chip::SoftwareChip::EntryBytes> good_;
  std::atomic<bool> ending_ = false;
  std::atomic<unsigned> rounds_ = 0;
  std::atomic<unsigned> missing_ = 0;
  std::thread thread_;
};

template <class T>
struct ReconcileWatch : testing::Test {
  // Entries of all numbers are on the chip, and the shadow knows those from kStale on.
  ReconcileWatch() {
    auto const key = shadowKeyOf(table, 0);
    for (std::uint32_t number = 0; number < kAll; ++number)
      table.setEntry(key, numberedEntry<T>(number, number));
    rig.writer->flush();
    typename T::Shadow& shadow = *table.shadow(key);
    shadow.collCleanup();
    for (std::uint32_t number = kStale; number < kAll; ++number) {
      shadow.setEntry(numberedEntry<T>(number, number));
      observer.good.insert(numberedKey<typename T::EntryKey>(number));
    }
    rig.writer->dirtyKeysDel(shadow);
    rig.chip->observerIs(&observer);
    for (unsigned nth = 1; nth <= 4; ++nth)
      rig.chip->faults().faultIs(
          {.kind = Chip::ChipFault::Kind::slowPass, .nth = nth, .after = 2000, .every = 50});
  }
  ~ReconcileWatch() override { rig.chip->observerIs(nullptr); }

  std::uint32_t physicalTable() const {
    return Dovel::ptrDynamicCast<LoamAsicUtils::BcmEmTableInfo>(table.bcmGroupAddrInfo()->memories().front())
        ->physicalTableId();
  }

  TableRig rig{{.faps = 1}};
  T& table = rig.makeWithFaps<T>(TestSupport::kRevision, 1);
  LossWatch<T> observer;
};

using Watched = testing::Types<MplsIsemHwEm, Ip4UdpTtMpIsemHwEm, VsiToVniEsemHwEm, EsemFodoPortCvidEm>;
TYPED_TEST_SUITE(ReconcileWatch, Watched);

TYPED_TEST(ReconcileWatch, NoGoodKeyIsMissingAtAnyMoment) {
  LookUps<TypeParam> lookUps(*this->rig.chip, this->physicalTable());
  Sluice::SendOutcome outcome;
  this->table.scheduleMarkAndSweep(maskOf({0}));
  bool more = true;
  while (more) {
    // Each step is seen by a whole round at least.
    unsigned const before = lookUps.rounds();
    more = this->rig.writer->reconcileStep(this->table, outcome);
    while (lookUps.rounds() < before + 2) std::this_thread::yield();
  }
  lookUps.end();
  EXPECT_EQ(this->table.markSweepTableSm()->state(), MarkSweepState::done);
  EXPECT_EQ(lookUps.missing(), 0U);
  EXPECT_EQ(this->observer.lost, 0U);
  EXPECT_EQ(this->observer.inserted, 0U);
  EXPECT_EQ(this->observer.removed, kStale);
  EXPECT_EQ(resultsOnChip(this->rig, this->table, 0).size(), kAll - kStale);
}

TYPED_TEST(ReconcileWatch, EveryEntryIsMarkedAndEveryGoodOneWrittenAgainBeforeAnyGoes) {
  Sluice::SendOutcome outcome;
  this->table.scheduleMarkAndSweep(maskOf({0}));
  this->rig.writer->reconcileStep(this->table, outcome);
  bool const marks = this->table.hasMarkSweep();
  EXPECT_EQ(this->observer.changed, marks ? kAll : 0);
  // A table without marks has lost its stale entries by now.
  EXPECT_EQ(this->observer.removed, marks ? 0 : kStale);
  this->observer.changed = 0;
  this->rig.writer->reconcileStep(this->table, outcome);
  EXPECT_EQ(this->observer.changed, kAll - kStale);
  EXPECT_EQ(this->observer.removed, marks ? 0 : kStale);
  this->rig.writer->reconcileStep(this->table, outcome);
  EXPECT_EQ(this->observer.removed, kStale);
  EXPECT_EQ(this->observer.lost, 0U);
}

}  // namespace
