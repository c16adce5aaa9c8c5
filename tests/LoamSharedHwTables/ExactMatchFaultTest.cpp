// Whatever goes wrong on the way to the chips, one reconciliation after it makes them right again.
#include <random>

#include "tests/LoamSharedHwTables/ExactMatchRig.h"

namespace {

using namespace bcm88490_a0;
using LoamAsicUtils::MarkSweepState;
using Sluice::SchanStatus;
using TestSupport::maskOf;
using TestSupport::numberedEntry;
using TestSupport::numberedKey;
using TestSupport::ShadowKey;
using TestSupport::shadowKeyOf;
using TestSupport::TableRig;

constexpr unsigned kFaps = 2;
constexpr std::uint32_t kKeys = 40;

// One bring-up for many seeds. The chips are so small that buckets are full every now and then.
class FaultRuns {
 public:
  // A digest of all that the chips hold at the end and of what they have refused.
  std::uint64_t run(std::uint64_t seed) {
    reset();
    random_.seed(seed);
    faults(seed);
    for (unsigned number = 0; number < 30; ++number) operation();
    rig_.chip->faults().faultsDel();
    rig_.pool->failNthIs(0);
    digest_ = 0;
    settle(mpls_);
    settle(srv6_);
    settle(vlan_);
    settle(fodo_);
    compare(mpls_, 64);
    compare(srv6_, 64);
    compare(vlan_, 65);
    compare(fodo_, 37);
    return digest_;
  }
  std::uint64_t full() const { return full_; }
  std::uint64_t failedRuns() const { return failedRuns_; }
  std::uint64_t unanswered() const { return rig_.channel->noResponse(); }

 private:
  std::uint32_t pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_() % below); }

  template <class T>
  void emptied(T& table) {
    for (auto const& [key, shadow] : table.hwShadowColl()) {
      auto& typed = static_cast<typename T::Shadow&>(*shadow);
      // The store's order depends on how far it has grown.
      for (std::uint32_t number = 0; number < kKeys; ++number) typed.setEntry(numberedEntry<T>(number, 0));
      typed.collCleanup();
      rig_.writer->dirtyKeysDel(typed);
      rig_.writer->clear(table, key);
    }
  }
  void reset() {
    emptied(mpls_);
    emptied(srv6_);
    emptied(vlan_);
    emptied(fodo_);
    for (unsigned fap = 0; fap < kFaps; ++fap) rig_.chip->reset(fap);
  }

  void faults(std::uint64_t seed) {
    static constexpr SchanStatus kStatuses[] = {SchanStatus::bucketFull, SchanStatus::badAddress,
                                                SchanStatus::badDatabase};
    auto& faults = rig_.chip->faults();
    faults.randomRefusalIs(seed, pick(20) * 0.01, kStatuses[pick(3)]);
    faults.randomLossIs(seed + 1, pick(10) * 0.01);
    faults.randomLateIs(seed + 2, pick(10) * 0.01, 5);
    for (unsigned fap = 0; fap < kFaps; ++fap) {
      faults.faultIs({.kind = Chip::ChipFault::Kind::failPass,
                      .fap = fap,
                      .nth = pick(6),
                      .status = pick(2) == 0 ? SchanStatus::noResponse : SchanStatus::badDatabase});
      faults.faultIs({.kind = Chip::ChipFault::Kind::resetInTransfer, .fap = fap, .nth = pick(6)});
    }
    rig_.pool->failNthIs(pick(8));
  }

  void operation() {
    switch (pick(4)) {
      case 0:
        return operation(mpls_);
      case 1:
        return operation(srv6_);
      case 2:
        return operation(vlan_);
      default:
        return operation(fodo_);
    }
  }
  template <class T>
  void operation(T& table) {
    unsigned const fap = pick(kFaps);
    ShadowKey const at = shadowKeyOf(table, fap);
    switch (pick(16)) {
      case 0:
        rig_.writer->download(table, maskOf({fap}));
        return;
      case 1:
        rig_.writer->reconcile(table, maskOf({0, 1}));
        if (table.markSweepTableSm()->state() == MarkSweepState::failed) ++failedRuns_;
        return;
      case 2:
        rig_.writer->clear(table, at);
        return;
      case 3:
        rig_.chip->reset(fap);
        return;
      case 4:
        rig_.writer->flush();
        return;
      case 5:
      case 6:
        table.deleteEntry(at, numberedKey<typename T::EntryKey>(pick(kKeys)));
        return;
      default:
        for (unsigned number = 0; number < 4; ++number)
          table.setEntry(at, numberedEntry<T>(pick(kKeys), pick(1000)));
    }
  }

  template <class T>
  void settle(T& table) {
    rig_.writer->reconcile(table, maskOf({0, 1}));
    EXPECT_EQ(table.markSweepTableSm()->state(), MarkSweepState::done) << T::tableName();
  }

  template <class T>
  void compare(T& table, std::uint32_t physicalTable) {
    for (unsigned fap = 0; fap < kFaps; ++fap) {
      auto& shadow = *table.shadow(shadowKeyOf(table, fap));
      std::map<typename T::EntryKey, typename T::Entry> onChip;
      rig_.chip->forEachEntry(fap, physicalTable, typename T::Entry(typename T::EntryKey()).tid().value(),
                              [&](auto bytes) {
                                typename T::Entry entry;
                                entry.dataBytesIs(reinterpret_cast<std::uint8_t const*>(bytes.data()));
                                entry.commandIs(0);
                                entry.setKeyFromBuffer();
                                onChip.emplace(entry.entryKey(), entry);
                                for (std::uint8_t const byte : entry.dataBytes())
                                  digest_ = digest_ * 0x100000001b3 + byte + 1;
                              });
      shadow.entryStorage()->entryCollForEach([&](typename T::Entry const& stored) {
        auto const found = onChip.extract(stored.entryKey());
        if (!found.empty()) {
          EXPECT_EQ(found.mapped(), stored) << T::tableName() << " FAP " << fap;
          return;
        }
        bool const wasFull = isFull(shadow, stored.entryKey(), fap);
        EXPECT_TRUE(wasFull) << T::tableName() << " FAP " << fap << " lacks "
                             << valueToStrep(stored.entryKey());
        ++full_;
        ++digest_;
      });
      EXPECT_TRUE(onChip.empty()) << T::tableName() << " FAP " << fap << " has " << onChip.size()
                                  << " too many";
    }
  }
  template <class Shadow, class Key>
  bool isFull(Shadow const& shadow, Key const& key, unsigned fap) const {
    LoamAsicUtils::KeyImage image;
    std::memcpy(image.words.data(), &key, sizeof key);
    auto const& refusals = rig_.writer->refusals(shadow);
    auto const found = refusals.find(image);
    return found != refusals.end() && found->second.onlyFull && found->second.fapmask.fapId(fap);
  }

  TableRig rig_{{.faps = kFaps, .bufSize = 24 * 16, .buffers = 8, .exactMatchEntries = 64, .candidates = 1}};
  MplsIsemHwEm& mpls_ = rig_.makeWithFaps<MplsIsemHwEm>();
  Srv6LocalSidIsemHwEm& srv6_ = rig_.makeWithFaps<Srv6LocalSidIsemHwEm>();
  InAcSVlanHwEm& vlan_ = rig_.makeWithFaps<InAcSVlanHwEm>();
  EsemFodoPortCvidEm& fodo_ = rig_.makeWithFaps<EsemFodoPortCvidEm>();
  std::mt19937_64 random_;
  std::uint64_t digest_ = 0;
  std::uint64_t full_ = 0;
  std::uint64_t failedRuns_ = 0;
};

class ExactMatchFaults : public testing::TestWithParam<unsigned> {};

TEST_P(ExactMatchFaults, AreMadeGoodByOneReconciliationTheSameWayEachTime) {
  constexpr std::uint64_t kSeeds = 2500;
  FaultRuns runs;
  for (std::uint64_t seed = GetParam() * kSeeds; seed < (GetParam() + 1) * kSeeds && !HasFailure(); ++seed) {
    std::uint64_t const first = runs.run(seed);
    EXPECT_EQ(runs.run(seed), first);
    if (HasFailure()) ADD_FAILURE() << "seed " << seed;
  }
  // The faults did meet something.
  EXPECT_GT(runs.full(), kSeeds / 10);
  EXPECT_GT(runs.failedRuns(), kSeeds / 10);
  EXPECT_GT(runs.unanswered(), kSeeds);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ExactMatchFaults, testing::Range(0U, 4U));

}  // namespace
