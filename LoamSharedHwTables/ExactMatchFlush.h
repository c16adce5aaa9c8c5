// The flush rules of an exact-match table and the objects that hold them: one holder with the table, for
// clearing, and the flush table with another, for marking and sweeping. Unit is the table's generated part.
// See FlushHelperHolder.h for the thread rule.
#pragma once

#include <algorithm>

#include "LoamSharedHwTables/MemoryTableDescriptor.h"
#include "platform/switch/LoamAsicUtils/FlushHelperHolder.h"
#include "platform/switch/TableDescription.h"
#include "runtime/Detail/CopyBits.h"
#include "runtime/Dovel/Format.h"
#include "runtime/Orlo/Entity.h"
#include "runtime/Orlo/TraceHandle.h"

namespace LoamSharedHwTables {

template <class Unit>
class ExactMatchFlushHelperHolder : public LoamAsicUtils::FlushHelperHolder {
 public:
  using TableDescriptor = MemoryTableDescriptor<Unit, LoamAsicUtils::BcmEmTableInfo>;
  using FlushCmdType = LoamAsicUtils::FlushCmdType;

  // Makes and keeps the helpers of clear, mark or sweep. Another type ends the process.
  void createFlushHelpers(FlushCmdType type);
  void createClearTableFlushHelpers() { create(FlushCmdType::flushCmdClear, false, false); }
  // Tables without a sweep bit have neither.
  void createMarkTableFlushHelpers() {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, kClass, "mark");
    if constexpr (kHasSweepBit) create(FlushCmdType::flushCmdMark, false, true);
  }
  void createSweepTableFlushHelpers() {
    DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, kClass, "sweep");
    if constexpr (kHasSweepBit) create(FlushCmdType::flushCmdSweep, true, false);
  }

  // Of the sweep bit in an action: the first bit of the payload.
  static unsigned sweepBitPosition() { return 128 - width("payload") - width("vmv"); }

 protected:
  ExactMatchFlushHelperHolder(Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                              Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus)
      : FlushHelperHolder(kFirstEngine, kRetryCount, loamStatus, mdbStatus),
        tableDescriptor_(TableDescriptor::TableDescriptorIs()) {}

 private:
  using Traits = typename Unit::Traits;
  using Entry = typename Unit::Entry;
  static constexpr char kClass[] = "FlushHelperHolder";
  static constexpr std::uint8_t kFirstEngine = 0;
  static constexpr std::uint8_t kRetryCount = 2;
  static constexpr bool kHasSweepBit = requires(Entry entry) { entry.sweepBit(); };

  static unsigned width(std::string_view field) {
    auto const fields = Traits::description().fields;
    auto const found = std::ranges::find(fields, field, &LoamAsicUtils::FieldDescription::name);
    return found->high - found->low + 1U;
  }
  template <std::size_t Bytes>
  static void imageInto(std::array<std::uint8_t, Bytes>& bits, Entry const& entry) {
    Detail::copyBits(bits.data(), Bytes, entry.dataBytes().data(), Entry::kDataBytes,
                     LoamAsicUtils::kImageBits, 0, LoamAsicUtils::kImageStart);
  }
  void create(FlushCmdType type, bool useSweepBit, bool useEntryType);

  Dovel::Ptr<TableDescriptor> tableDescriptor_;
};

template <class Unit>
void ExactMatchFlushHelperHolder<Unit>::createFlushHelpers(FlushCmdType type) {
  DOVEL_TRACE(Traits::_defaultTraceHandle(), 8, kClass, " flushCmdType: {}", type);
  switch (type) {
    case FlushCmdType::flushCmdClear:
      return createClearTableFlushHelpers();
    case FlushCmdType::flushCmdMark:
      return createMarkTableFlushHelpers();
    case FlushCmdType::flushCmdSweep:
      return createSweepTableFlushHelpers();
    default:
      Dovel::fmassert(kClass, __FILE__, __func__, __LINE__, "{}: unhandled flushCmdType: {}", "false",
                      static_cast<std::uint32_t>(type));
  }
}

template <class Unit>
void ExactMatchFlushHelperHolder<Unit>::create(FlushCmdType type, bool useSweepBit, bool useEntryType) {
  for (auto const& memory : tableDescriptor_->memories()) {
    auto const table = Dovel::ptrDynamicCast<LoamAsicUtils::BcmEmTableInfo>(memory);
    Entry mask;
    Entry value;
    value.doInit();
    auto const entryType = LoamMdb::EmEntryType{value.entryType().value()};
    this->tidIs(value.tid().value());
    value = Entry();
    mask.formEntryForFlush(true, useSweepBit, useEntryType, false);
    value.formEntryForFlush(false, useSweepBit, useEntryType, false);
    LoamAsicUtils::FlushRuleEntryType rule;
    imageInto(rule.value, value);
    imageInto(rule.mask, mask);
    LoamAsicUtils::FlushCmdPayloadType action;
    bool const keeps = type == FlushCmdType::flushCmdMark;
    if (keeps) {
      LoamAsicUtils::setBufValue(action.value.data(), action.value.size(), 1, 1, sweepBitPosition());
      LoamAsicUtils::setBufValue(action.mask.data(), action.mask.size(), 1, 1, sweepBitPosition());
    }
    this->createWriteFlushHelper({table->physicalTableId(), type, keeps ? 1U : 0U, 0}, entryType, rule,
                                 action);
  }
}

// Held by the table.
template <class Unit>
class HwWriterFlushHelperHolder final
    : public Dovel::Tracked<HwWriterFlushHelperHolder<Unit>, ExactMatchFlushHelperHolder<Unit>> {
 public:
  HwWriterFlushHelperHolder(Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                            Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus)
      : Dovel::Tracked<HwWriterFlushHelperHolder, ExactMatchFlushHelperHolder<Unit>>(loamStatus, mdbStatus) {
    this->createFlushHelpers(LoamAsicUtils::FlushCmdType::flushCmdClear);
  }
  ~HwWriterFlushHelperHolder() override { this->markBeingDestroyed(); }
};

// Held by the flush table.
template <class Unit>
class MarkSweepFlushHelperHolder final
    : public Dovel::Tracked<MarkSweepFlushHelperHolder<Unit>, ExactMatchFlushHelperHolder<Unit>> {
 public:
  MarkSweepFlushHelperHolder(Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                             Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus)
      : Dovel::Tracked<MarkSweepFlushHelperHolder, ExactMatchFlushHelperHolder<Unit>>(loamStatus, mdbStatus) {
    this->createMarkTableFlushHelpers();
    this->createSweepTableFlushHelpers();
  }
  ~MarkSweepFlushHelperHolder() override { this->markBeingDestroyed(); }
};

// T is the concrete class.
template <class T, class Unit>
class ExactMatchFlushTable : public Dovel::Tracked<T, LoamAsicUtils::MarkSweepTableBase> {
 public:
  using MarkSweepFlushHelperHolder = LoamSharedHwTables::MarkSweepFlushHelperHolder<Unit>;

  static Dovel::String tableName() { return Unit::Traits::tableName; }
  static Dovel::String pluginName() {
    return Dovel::String(Unit::Traits::tableTypeName).append("FlushPlugin");
  }
  static Dovel::Ptr<LoamAsicUtils::MarkSweepTableBase> factory(
      Hardware::Loam::FapRevision const& fapRevision,
      Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
      Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus) {
    DOVEL_TRACE(Unit::Traits::_defaultTraceHandle(), 8, "FlushTable", " fapRevision {}", fapRevision);
    return Dovel::ptrIsImpl<T>(LoamAsicUtils::HwTableKey(tableName(), fapRevision), loamStatus, mdbStatus);
  }

  ExactMatchFlushTable(LoamAsicUtils::HwTableKey const& hwTableKey,
                       Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                       Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus)
      : Dovel::Tracked<T, LoamAsicUtils::MarkSweepTableBase>(hwTableKey, loamStatus, mdbStatus),
        holder_(Dovel::ptrIsImpl<MarkSweepFlushHelperHolder>(loamStatus, mdbStatus)) {}
  ~ExactMatchFlushTable() override { this->markBeingDestroyed(); }

  MarkSweepFlushHelperHolder const& flushHelperHolder() const override { return *holder_; }

 private:
  Dovel::Ptr<MarkSweepFlushHelperHolder> holder_;
};

// A name and nothing else, for who makes entities by their type's name.
template <class T>
class ExactMatchFlushEntity : public Dovel::Tracked<T, Orlo::Entity> {
 public:
  explicit ExactMatchFlushEntity(Dovel::String const& name) : Dovel::Tracked<T, Orlo::Entity>(name) {}
  ~ExactMatchFlushEntity() override { this->markBeingDestroyed(); }
};

}  // namespace LoamSharedHwTables
