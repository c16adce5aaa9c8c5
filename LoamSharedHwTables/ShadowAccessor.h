// The one template through which typed shadow code runs: entries with their defaults, the commands of a key,
// bulk downloads, mounts. A value that points to a shadow, made on the stack for a call: of const shadows for
// reads and commands, of others for changes. Its traces have a channel of their own a shadow class, so that
// they can be switched alone.
//
// A shadow gives it Entry, EntryKey, EntryStorage, the members of its base, tableTypeName() and
// entryStorage(). The thread rule is the shadow's. This one is for direct tables; ExactMatchAccessor.h has
// that of exact-match tables.
#pragma once

#include "LoamSharedHwTables/RowPosition.h"
#include "LoamSharedHwTables/ShadowAccessorBase.h"
#include "platform/switch/Asic/LogEntryWrapperBase.h"
#include "platform/switch/LoamAsicUtils/DirectShadowBase.h"
#include "platform/switch/LoamAsicUtils/MemoryCommands.h"

namespace LoamAsicUtils {

template <class Shadow>
class ShadowAccessor : public ShadowAccessorBase<Shadow> {
  using Base = ShadowAccessorBase<Shadow>;
  using Base::_defaultTraceHandle;
  using Base::isApplicable;
  using Base::shadow_;
  using Base::storage;
  using Cmds = Dovel::Ptr<Sluice::SchanCmds>;
  using Buffer = Dovel::Ptr<DmaMemPoolManager::DmaMemPoolBuffer>;

 public:
  explicit ShadowAccessor(Shadow* shadow) : Base(shadow) {}

  // The entry that is stored, else one of that key with the default payload.
  template <class Entry, class EntryKey, ShadowType shadowType, TableType tableType>
  Entry getEntry(EntryKey const& key) const {
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", "key: {}", key);
    bool found = false;
    Entry const& stored = storage().entryColl(key, found);
    if (found) return stored;
    Entry absent(key);
    absent.dataBytesIs(shadow_.defaultEntry());
    return absent;
  }

  template <class Entry, class EntryKey, ShadowType shadowType>
  void deleteEntry(EntryKey const& key) const {
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", " shadowKey: {} entryKey: {}",
                shadow_.hwShadowKey(), key);
    bool found = false;
    storage().entryColl(key, found);
    if (found) storage().entryCollDel(key);
  }

  // The commands that write the key's row on those FAPs of the mask that the shadow serves: what is stored,
  // or the default where nothing is or isDelete asks for it. Null where it serves none of them.
  template <class EntryKey, ShadowType shadowType>
  Cmds schanCmds(Sluice::Fapmask const& fapmask, Hardware::Loam::FapRevision const& fapRevision,
                 EntryKey const& key, bool isDelete,
                 Dovel::Ptr<Asic::LogEntryWrapperBase> const& /*logEntry*/) const {
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", "key: {}", key);
    Sluice::Fapmask const applicable = shadow_.applicableFapmask(fapmask);
    if (!isApplicable(applicable, fapmask)) return nullptr;
    auto const position = LoamSharedHwTables::positionOf(key, shadow_.bcmGroupAddrInfo()->firstMemory());
    return shadow_.schanCmdsWorker(applicable, fapRevision, position.array, position.entry,
                                   payload(key, isDelete));
  }

  // The commands of a whole table for the FAPs of the mask that the shadow serves; null where it serves none.
  template <class Entry, class EntryKey, ShadowType shadowType, TableType tableType>
  Cmds download(Dovel::String const& fapType, Hardware::Loam::FapRevision const& fapRevision,
                Sluice::Fapmask const& fapmask) const {
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor",
                " fapType: {} fapRevision: {} downloadFapmask: {}", fapType, fapRevision, fapmask);
    Sluice::Fapmask const applicable = shadow_.applicableFapmask(fapmask);
    if (!isApplicable(applicable, fapmask)) return nullptr;
    return downloadWorker<Entry, EntryKey, shadowType, tableType>(fapRevision, applicable, false);
  }

  // The commands of a whole table: for the full shadow type every row, through buffers; for the partial one
  // what is stored. With isDelete they write defaults.
  template <class Entry, class EntryKey, ShadowType shadowType, TableType tableType>
  Cmds downloadWorker(Hardware::Loam::FapRevision const& fapRevision, Sluice::Fapmask const& fapmask,
                      bool isDelete) const {
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor",
                "fapRevision: {}, downloadFapmask: {}, isDelete: {}", fapRevision, fapmask, isDelete);
    Sluice::Fapmask const applicable = shadow_.applicableFapmask(fapmask);
    if (!isApplicable(applicable, fapmask)) return nullptr;
    if constexpr (shadowType == ShadowType::keyBasedPartial) {
      return downloadWorkerKeyBasedPartial<Entry, EntryKey>(fapRevision, applicable, isDelete);
    } else {
      return downloadWorkerKeyBasedFullBcmDirect<Entry, EntryKey, tableType>(fapRevision, applicable,
                                                                             isDelete);
    }
  }

  template <class Entry, class EntryKey, TableType tableType>
  Cmds downloadWorkerKeyBasedFullBcmDirect(Hardware::Loam::FapRevision const& fapRevision,
                                           Sluice::Fapmask const& fapmask, bool isDelete) const {
    BcmRegMemInfo const& memory = shadow_.bcmGroupAddrInfo()->firstMemory();
    Cmds result = Sluice::schanCmdsFactory();
    DOVEL_TRACE(_defaultTraceHandle(), 3, "ShadowAccessor", " Processing all keys in shadow: {}",
                shadow_.hwShadowKey());
    Buffer buffer;
    std::uint32_t queued = 0;
    std::uint32_t capacity = 0;
    std::uint8_t firstArray = 0;
    std::uint32_t firstEntry = 0;
    std::uint32_t const entrySize = Entry::kDataBytes;
    for (std::uint32_t array = 0; array < memory.arrayCount(); ++array) {
      for (std::uint32_t entry = 0; entry < memory.entryCount(); ++entry) {
        Entry const row(LoamSharedHwTables::keyAt<EntryKey>(
            static_cast<std::uint8_t>(memory.firstArray() + array), memory.firstEntry() + entry));
        buffer =
            dmaEnqueueWorker<Entry, tableType>(fapmask, fapRevision, row, isDelete, result, std::move(buffer),
                                               queued, capacity, firstArray, firstEntry, entrySize);
      }
    }
    if (queued != 0)
      result->cmdsEnq(*enqueueBulkCmd<Entry, tableType>(fapmask, buffer, queued, firstArray, firstEntry));
    return result;
  }

  // Adds one row to the buffer, or sends it alone where no buffer is to be had. Returns the buffer to go on
  // with: null where it was sent, the invalid one where there was none.
  template <class Entry, TableType tableType>
  Buffer dmaEnqueueWorker(Sluice::Fapmask const& fapmask, Hardware::Loam::FapRevision const& fapRevision,
                          Entry const& entry, bool isDelete, Cmds const& result, Buffer buffer,
                          std::uint32_t& queued, std::uint32_t& capacity, std::uint8_t& firstArray,
                          std::uint32_t& firstEntry, std::uint32_t entrySize) const {
    auto const& key = entry.entryKey();
    if (buffer == nullptr || !buffer->valid()) {
      buffer = DmaMemPoolManager::dmaMemPoolBufferFactory(shadow_.dmaMemPoolManager());
      if (!buffer->valid() || buffer->bufSize() < entrySize) {
        Cmds const alone = schanCmds<std::decay_t<decltype(key)>, Shadow::kShadowType>(
            fapmask, fapRevision, key, isDelete, nullptr);
        if (alone != nullptr) result->cmdsEnq(*alone);
        return buffer->valid() ? nullptr : buffer;
      }
      DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor", "dmaMemPoolBuffer: {}, dmaAddrInfo: {}",
                  buffer->name(), buffer->dmaAddrInfo());
      capacity = static_cast<std::uint32_t>(buffer->bufSize() / entrySize);
      queued = 0;
      auto const position = LoamSharedHwTables::positionOf(key, shadow_.bcmGroupAddrInfo()->firstMemory());
      firstArray = position.array;
      firstEntry = position.entry;
    }
    std::memcpy(buffer->vaCursor(), payload(key, isDelete), Entry::kDataBytes);
    buffer->incVaCursor(entrySize);
    if (++queued >= capacity) {
      DOVEL_TRACE(_defaultTraceHandle(), 3, "ShadowAccessor", " shadowKey: {} queued {} in bulk",
                  shadow_.hwShadowKey(), queued);
      result->cmdsEnq(*enqueueBulkCmd<Entry, tableType>(fapmask, buffer, queued, firstArray, firstEntry));
      queued = 0;
      return nullptr;
    }
    return buffer;
  }

  // One command a memory: the rows stand in the buffer once, and are written to each.
  template <class Entry, TableType tableType>
  Cmds enqueueBulkCmd(Sluice::Fapmask const& fapmask, Buffer const& buffer, std::uint32_t queued,
                      std::uint8_t firstArray, std::uint32_t firstEntry) const {
    Cmds cmds = Sluice::schanCmdsFactory();
    if (buffer == nullptr) {
      Dovel::fmassert("ShadowAccessor", __FILE__, __func__, __LINE__, "{}: {}",
                      "\"dmaMemPoolBuffer\" == nullptr", "Invalid dmaMemPoolBuffer");
    }
    for (Dovel::Ptr<BcmRegMemInfo> const& memory : shadow_.bcmGroupAddrInfo()->memories()) {
      InstanceId first = shadow_.hwShadowKey().instanceId();
      InstanceId last = first;
      if (shadow_.instanceConvergentShadow()) {
        first = memory->instances().front()->instanceId();
        last = static_cast<InstanceId>(first + memory->instances().size() - 1);
      }
      cmds->cmdEnq(memoryWriteDmamemPoolBulkCmdFactory(
          fapmask, shadow_.loamCmdletRequiredStatus(), firstArray, firstEntry, memory->entrySize(),
          buffer->dmaAddrInfo().dmaAddress, memory, first, last, queued, buffer));
    }
    return cmds;
  }

  template <class Entry, class EntryKey>
  Cmds downloadWorkerKeyBasedPartial(Hardware::Loam::FapRevision const& fapRevision,
                                     Sluice::Fapmask const& fapmask, bool isDelete) const {
    DOVEL_TRACE(_defaultTraceHandle(), 8, "ShadowAccessor",
                "fapRevision: {}, downloadFapmask: {}, isDelete: {}", fapRevision, fapmask, isDelete);
    Sluice::Fapmask const applicable = shadow_.applicableFapmask(fapmask);
    if (applicable == Sluice::Fapmask()) return nullptr;
    Cmds result = Sluice::schanCmdsFactory();
    storage().entryCollForEach([&](Entry const& entry) {
      Cmds const row = schanCmds<EntryKey, Shadow::kShadowType>(applicable, fapRevision, entry.entryKey(),
                                                                isDelete, nullptr);
      if (row != nullptr) result->cmdsEnq(*row);
    });
    return result;
  }

 private:
  // The bytes of the key's row; until the next look into the store.
  template <class EntryKey>
  unsigned char const* payload(EntryKey const& key, bool isDelete) const {
    if (isDelete) return shadow_.defaultEntry();
    bool found = false;
    auto const& stored = storage().entryColl(key, found);
    return found ? stored.dataBytes().data() : shadow_.defaultEntry();
  }
};

}  // namespace LoamAsicUtils
