// What typed code does with the shadow of an exact-match table; see ShadowAccessor.h.
#pragma once

#include <cstdlib>

#include "LoamSharedHwTables/ExactMatchWriteCommand.h"
#include "LoamSharedHwTables/ShadowAccessor.h"
#include "platform/switch/LoamAsicUtils/EmBulkCommands.h"

namespace LoamSharedHwTables {

template <class Unit>
class ExactMatchShadow;

}  // namespace LoamSharedHwTables

namespace LoamAsicUtils {

template <class Unit>
class ShadowAccessor<LoamSharedHwTables::ExactMatchShadow<Unit> const>
    : public ShadowAccessorBase<LoamSharedHwTables::ExactMatchShadow<Unit> const> {
  using Shadow = LoamSharedHwTables::ExactMatchShadow<Unit> const;
  using Base = ShadowAccessorBase<Shadow>;
  using Base::_defaultTraceHandle;
  using Base::shadow_;
  using Base::storage;
  using Cmds = Dovel::Ptr<Sluice::SchanCmds>;
  using Buffer = Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer>;
  using Traits = typename Unit::Traits;

 public:
  explicit ShadowAccessor(Shadow* shadow) : Base(shadow) {}

  // The entry that is stored, else a fresh one of that key with its presets.
  template <class Entry, class EntryKey>
  Entry getEntry(EntryKey const& key) const {
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", "key: {}", key);
    bool found = false;
    Entry const& stored = storage().entryColl(key, found);
    return found ? stored : Entry(key);
  }

  // Calls visit(memory, core) for each place of the chip that the shadow stands for.
  template <class Visit>
  void forEachPlace(Visit&& visit) const {
    for (Dovel::Ptr<BcmRegMemInfo> const& memory : shadow_.bcmGroupAddrInfo()->memories()) {
      if (shadow_.instanceConvergentShadow()) {
        for (auto const& instance : memory->instances())
          visit(memory, Hardware::Loam::CoreInfo{instance->instanceId()});
      } else {
        visit(memory, Hardware::Loam::CoreInfo{shadow_.hwShadowKey().instanceId()});
      }
    }
  }
  static LoamMdb::PhysicalTableId physicalTableIdOf(BcmRegMemInfo const& memory) {
    return LoamMdb::PhysicalTableId{static_cast<BcmEmTableInfo const&>(memory).physicalTableId()};
  }

  // The commands that write the whole store, or delete it, in bulk; for single keys by the shadow's
  // schanCmds() where no buffer is to be had. Null where the environment asks for the way of entries.
  template <class Entry, class EntryKey, bool, int tableType>
  Cmds downloadWorkerKeyBasedFullMdbExactMatch(Hardware::Loam::FapRevision const& fapRevision,
                                               Sluice::Fapmask const& fapmask, bool isDelete) const;

  // A command for each place of the shadow, all of them with the one buffer.
  template <class Entry, int tableType>
  Cmds enqueueBulkCmd(Sluice::Fapmask const& fapmask, Buffer const& buffer, std::uint32_t entries,
                      std::uint8_t firstArray, std::uint32_t firstEntry) const;

 private:
  // A buffer that is being filled, and the next place in it.
  struct Filling {
    Buffer buffer;
    unsigned char* at = nullptr;
    std::uint32_t count = 0;
    std::uint32_t capacity = 0;
  };
  // False where no buffer is to be had.
  template <class Entry>
  bool begin(Filling& filling) const;
  template <class Entry, int tableType>
  Cmds end(Filling& filling, Sluice::Fapmask const& fapmask) const;
  template <class Entry>
  [[gnu::noinline]] void traceEntry(Entry const& entry) const;
};

template <class Unit>
template <class Entry, class EntryKey, bool, int tableType>
auto ShadowAccessor<LoamSharedHwTables::ExactMatchShadow<Unit> const>::
    downloadWorkerKeyBasedFullMdbExactMatch(Hardware::Loam::FapRevision const& fapRevision,
                                            Sluice::Fapmask const& fapmask, bool isDelete) const -> Cmds {
  if (std::getenv("SIMULATE_ENTRY_BY_ENTRY_DOWNLOAD") != nullptr) {
    shadow_.reportBulkDownloadFailure(shadow_.hwShadowKey());
    return nullptr;
  }
  Cmds result = Sluice::schanCmdsFactory();
  DOVEL_TRACE(_defaultTraceHandle(), 3, "ShadowAccessor", " Processing all keys in shadow: {}",
              shadow_.hwShadowKey());
  std::uint32_t const command = isDelete ? emCommandDelete : emCommandWrite;
  bool const tracing = _defaultTraceHandle().isOn(8) || Traits::_defaultTraceHandle().isOn(9);
  Filling filling;
  storage().entryCollForEach([&](Entry const& stored) {
    Entry entry = stored;
    entry.commandIs(command);
    if (tracing) [[unlikely]]
      traceEntry(entry);
    if (filling.buffer == nullptr && !begin<Entry>(filling)) [[unlikely]] {
      result->cmdsEnq(
          *shadow_.schanCmds(fapmask, fapRevision, EntryKey(entry.entryKey()), isDelete, nullptr));
      return;
    }
    std::memcpy(filling.at, entry.dataBytes().data(), Entry::kDataBytes);
    filling.at += Entry::kDataBytes;
    if (++filling.count < filling.capacity) return;
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", " shadowKey: {} queued {} in bulk",
                shadow_.hwShadowKey(), filling.count);
    result->cmdsEnq(*end<Entry, tableType>(filling, fapmask));
  });
  if (filling.count != 0) {
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", " shadowKey: {} enqueued {} in bulk",
                shadow_.hwShadowKey(), filling.count);
    result->cmdsEnq(*end<Entry, tableType>(filling, fapmask));
  }
  return result;
}

template <class Unit>
template <class Entry>
void ShadowAccessor<LoamSharedHwTables::ExactMatchShadow<Unit> const>::traceEntry(Entry const& entry) const {
  DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", " shadowKey: {} entryKey: {}",
              shadow_.hwShadowKey(), entry.entryKey());
  LoamSharedHwTables::traceImage<Traits>("ShadowAccessor", entry);
  for (std::uint8_t const byte : entry.dataBytes())
    DOVEL_TRACE(_defaultTraceHandle(), 9, "ShadowAccessor", "data at i {} ", byte);
}

template <class Unit>
template <class Entry>
bool ShadowAccessor<LoamSharedHwTables::ExactMatchShadow<Unit> const>::begin(Filling& filling) const {
  Buffer const fresh = DmaMemPoolManager::dmaMemPoolBufferFactory(shadow_.dmaMemPoolManager());
  if (!fresh->valid() || fresh->bufSize() < Entry::kDataBytes) return false;
  DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", "dmaMemPoolBuffer: {}, dmaAddrInfo: {}",
              fresh->name(), fresh->dmaAddrInfo());
  filling = {.buffer = fresh,
             .at = fresh->vaCursor(),
             .count = 0,
             .capacity = static_cast<std::uint32_t>(fresh->bufSize() / Entry::kDataBytes)};
  return true;
}

// The buffer is the command's from then on.
template <class Unit>
template <class Entry, int tableType>
auto ShadowAccessor<LoamSharedHwTables::ExactMatchShadow<Unit> const>::end(
    Filling& filling, Sluice::Fapmask const& fapmask) const -> Cmds {
  filling.buffer->incVaCursor(std::uint64_t{filling.count} * Entry::kDataBytes);
  Cmds cmds = enqueueBulkCmd<Entry, tableType>(fapmask, filling.buffer, filling.count, 0, 0);
  filling = {};
  return cmds;
}

template <class Unit>
template <class Entry, int tableType>
auto ShadowAccessor<LoamSharedHwTables::ExactMatchShadow<Unit> const>::enqueueBulkCmd(
    Sluice::Fapmask const& fapmask, Buffer const& buffer, std::uint32_t entries, std::uint8_t /*firstArray*/,
    std::uint32_t /*firstEntry*/) const -> Cmds {
  if (buffer == nullptr) {
    Dovel::fmassert("ShadowAccessor", __FILE__, __func__, __LINE__, "{}: {}", "dmaMemPoolBuffer",
                    "Invalid dmaMemPoolBuffer");
  }
  Cmds cmds = Sluice::schanCmdsFactory();
  forEachPlace([&](Dovel::Ptr<BcmRegMemInfo> const& memory, Hardware::Loam::CoreInfo core) {
    cmds->cmdEnq(emGenericBulkWriteCommandFactory(fapmask, shadow_.loamStatus(), physicalTableIdOf(*memory),
                                                  core, Entry::kDataBytes / sizeof(std::uint32_t), memory,
                                                  entries, buffer, shadow_.hwShadowKey(),
                                                  shadow_.errReporter(), Dovel::String(Traits::tableName)));
  });
  return cmds;
}

}  // namespace LoamAsicUtils
