// What it takes to run tables: a root for stores, a manager, chips, the way to them and the writer.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <span>
#include <vector>

#include "LoamSharedHwTables/RowPosition.h"
#include "platform/chip/SchanChannel.h"
#include "platform/chip/SoftwareChip.h"
#include "platform/switch/DmaMemPoolManager/LocalMemPool.h"
#include "platform/switch/LoamAsicUtils/TableWriter.h"
#include "tests/LoamSharedHwTables/AllTables.h"
#include "tests/support/TestStore.h"

namespace TestSupport {

inline constexpr Hardware::Loam::FapRevision kRevision(Hardware::Loam::FapRevMajor::majorQumran3aA0);
inline constexpr Hardware::Loam::FapRevision kAiRevision(Hardware::Loam::FapRevMajor::majorQumran3aA0,
                                                         Hardware::Loam::FapRevMinor::minorAi);
using Row = std::vector<std::uint8_t>;
using ShadowKey = LoamAsicUtils::HwShadowKey;

inline Sluice::Fapmask maskOf(std::initializer_list<unsigned> faps) {
  Sluice::Fapmask mask;
  for (unsigned const fap : faps) mask.fapIdIs(fap, true);
  return mask;
}

template <class Entry>
Row dataOf(Entry const& entry) {
  return {entry.dataBytes().begin(), entry.dataBytes().end()};
}

// A row of the table that no other key and content has.
template <class Entry, class Key>
Entry entryOf(Key const& key, std::uint8_t content) {
  Row data(Entry::kDataBytes);
  for (std::size_t at = 0; at < data.size(); ++at) data[at] = static_cast<std::uint8_t>(content + at * 3);
  Entry entry(key);
  entry.dataBytesIs(data.data());
  return entry;
}

struct RigOptions {
  unsigned faps = 2;
  std::size_t bufSize = 4096;
  std::size_t buffers = 64;
  bool writing = true;  // with a table writer
  std::uint32_t exactMatchEntries = 262144;
  unsigned candidates = 2;
};

class TableRig {
 public:
  using Options = RigOptions;

  explicit TableRig(Options const& options = {}) {
    ::setenv("HWTABLES_ROOT", root.path().c_str(), 1);
    pool = Dovel::ptrIsImpl<DmaMemPoolManager::LocalMemPool>("test", options.bufSize, options.buffers,
                                                             std::uint64_t{0x10000});
    chip = Dovel::ptrIsImpl<Chip::SoftwareChip>(
        Chip::SoftwareChip::Options{options.faps, "", options.exactMatchEntries, options.candidates});
    chip->dmaPoolIs(pool);
    channel = Dovel::ptrIsImpl<Chip::SchanChannel>(chip);
    manager = Dovel::ptrIsImpl<LoamAsicUtils::TableManager>(
        nullptr, nullptr, Dovel::ptrIsImpl<Statebase::EntityManager>(Dovel::String(root.path()), false),
        pool);
    if (options.writing) writer = Dovel::ptrIsImpl<LoamAsicUtils::TableWriter>(manager, channel);
  }
  ~TableRig() {
    writer = nullptr;
    while (!manager->tableColl().empty()) {
      auto const table = manager->tableColl().begin()->second;
      auto& shadowed = static_cast<LoamAsicUtils::HwCommonShadowTableBase&>(*table);
      while (!shadowed.hwShadowColl().empty()) shadowed.delShadow(shadowed.hwShadowColl().begin()->first);
      manager->tableDel(table->hwTableKey());
    }
    ::unsetenv("HWTABLES_ROOT");
  }
  TableRig(TableRig const&) = delete;
  TableRig& operator=(TableRig const&) = delete;

  // A table in the manager, without shadows.
  template <class T>
  T& make(Hardware::Loam::FapRevision const& revision = kRevision) {
    LoamAsicUtils::HwTableKey const key(T::tableName(), revision);
    auto const table = T::Traits::description().access->make(key, manager);
    manager->tableIs(key, table);
    return static_cast<T&>(*table);
  }
  // The same with all FAPs of the rig.
  template <class T>
  T& makeWithFaps(Hardware::Loam::FapRevision const& revision = kRevision, unsigned faps = 2) {
    T& table = make<T>(revision);
    for (unsigned fap = 0; fap < faps; ++fap) addFap(table, fap);
    return table;
  }
  void addFap(LoamAsicUtils::HwCommonShadowTableBase& table, unsigned fap) const {
    table.processFapIdAdd(
        Dovel::ptrIsImpl<Hardware::Loam::FapControlData>(fap, table.hwTableKey().fapRevision()));
  }

  // A row of a memory of the chip as the table's descriptor places it.
  template <class T, class Key>
  Row chipRow(T const& table, unsigned fap, Key const& key, LoamAsicUtils::MemoryId id = 0) const {
    auto const memory = table.bcmGroupAddrInfo()->memory(id);
    auto const position = LoamSharedHwTables::positionOf(key, *memory);
    auto const& instance = *memory->instances().front();
    Row row(memory->entrySize());
    EXPECT_TRUE(chip->rowRead(fap, instance.block(),
                              memory->rowAddress(instance, position.array, position.entry),
                              std::as_writable_bytes(std::span(row))));
    return row;
  }

  StoreDir root;
  Dovel::Ptr<DmaMemPoolManager::LocalMemPool> pool;
  Dovel::Ptr<Chip::SoftwareChip> chip;
  Dovel::Ptr<Chip::SchanChannel> channel;
  Dovel::Ptr<LoamAsicUtils::TableManager> manager;
  Dovel::Ptr<LoamAsicUtils::TableWriter> writer;
};

// The shadow that a write for the FAP goes to.
inline ShadowKey shadowKeyOf(LoamAsicUtils::HwCommonShadowTableBase const& table, unsigned fap) {
  return {table.sharedShadow() ? Sluice::FapId::null() : Sluice::FapId(fap), 0};
}

// A key of the table's row, counted through all arrays from 0.
template <class T>
typename T::EntryKey keyOfRow(T const& table, std::uint32_t row) {
  auto const& memory = table.bcmGroupAddrInfo()->firstMemory();
  return LoamSharedHwTables::keyAt<typename T::EntryKey>(
      static_cast<std::uint8_t>(memory.firstArray() + row / memory.entryCount()), row % memory.entryCount());
}

// The keys that a shadow's storage publishes.
template <class Shadow>
class KeyListener final : public Orlo::NotifieeConst {
 public:
  explicit KeyListener(Shadow& shadow) : Orlo::NotifieeConst(shadow.entryStorage()->publisher()) {}
  void onChange(std::uint32_t attribute, void const* key) override {
    if (attribute == OrloVault::Entity::kEntryColl)
      keys.push_back(*static_cast<typename Shadow::EntryKey const*>(key));
  }
  std::vector<typename Shadow::EntryKey> keys;
};

// The rows that one command writes, and where.
struct Written {
  std::uint32_t block;
  std::uint32_t row;
  std::uint32_t rows;
};
inline std::vector<Written> bulkOf(Dovel::Ptr<Sluice::SchanCmds> const& cmds) {
  std::vector<Written> written;
  while (auto const cmd = cmds->cmdDeq()) {
    for (unsigned number = 0; number < cmd->bulkTransferCount(); ++number) {
      auto const transfer = cmd->bulkTransfer(number);
      written.push_back({transfer.block, transfer.row, transfer.rows});
    }
  }
  return written;
}

}  // namespace TestSupport
