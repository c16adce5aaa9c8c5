// The flush rules of a table, made once and kept, from which the commands of a flush are formed. Built in the
// thread of whoever makes it and not changed afterwards; any thread may then read it.
#pragma once

#include <cstddef>
#include <vector>

#include "platform/switch/Hardware/Status.h"
#include "platform/switch/LoamAsicUtils/FlushTypes.h"
#include "platform/switch/LoamAsicUtils/HwTableKey.h"
#include "platform/switch/LoamAsicUtils/Types.h"
#include "platform/switch/LoamMdb/Types.h"

namespace LoamAsicUtils {

// By which a holder finds a rule.
struct FlushHelperKey {
  std::uint32_t physicalTableId = 0;
  FlushCmdType command = FlushCmdType::flushCmdClear;
  std::uint32_t keep = 0;  // 1 where the entries stay in their place
  std::uint32_t reserved = 0;

  friend bool operator==(FlushHelperKey const&, FlushHelperKey const&) = default;
};
static_assert(sizeof(FlushHelperKey) == 16);

struct FlushHelper {
  FlushHelperKey key;
  LoamMdb::EmEntryType entryType{};
  std::uint32_t tid = 0;  // the table's id in the databases of its physical table
  FlushRuleEntryType rule;
  FlushCmdPayloadType action;
};

// Writes the low bits of the value into a bit array of that many bytes, which must have room for them.
void setBufValue(std::uint8_t* buffer, std::size_t bytes, std::uint64_t value, unsigned bitCount,
                 unsigned bitPosition);

class FlushHelperHolder : public Dovel::Node {
 public:
  // Which of the chip's flush engines a pass is given to first, and how often one that fails is tried again.
  std::uint8_t firstEngine() const { return firstEngine_; }
  std::uint8_t retryCount() const { return retryCount_; }
  Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus() const { return loamStatus_; }
  Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus() const { return mdbStatus_; }

  // In the order in which they were made.
  std::vector<FlushHelper> const& helpers() const { return helpers_; }
  // Null where there is none of that table and command.
  FlushHelper const* helper(LoamMdb::PhysicalTableId physicalTableId, FlushCmdType command) const;

 protected:
  FlushHelperHolder(std::uint8_t firstEngine, std::uint8_t retryCount,
                    Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                    Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus)
      : firstEngine_(firstEngine), retryCount_(retryCount), loamStatus_(loamStatus), mdbStatus_(mdbStatus) {}

  // Of the helpers that are made from now on.
  void tidIs(std::uint32_t tid) { tid_ = tid; }
  // Keeps one helper, in the place of an earlier one of its key.
  void createWriteFlushHelper(FlushHelperKey const& key, LoamMdb::EmEntryType entryType,
                              FlushRuleEntryType const& rule, FlushCmdPayloadType const& action);

 private:
  std::uint8_t firstEngine_;
  std::uint8_t retryCount_;
  Dovel::Ptr<Hardware::Loam::Status const> loamStatus_;
  Dovel::Ptr<Hardware::Loam::MdbStatus const> mdbStatus_;
  std::uint32_t tid_ = 0;
  std::vector<FlushHelper> helpers_;
};

// The part of an exact-match table that belongs to whoever reconciles it: the rules that mark and sweep.
class MarkSweepTableBase : public Dovel::Node {
 public:
  HwTableKey const& hwTableKey() const { return hwTableKey_; }
  Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus() const { return loamStatus_; }
  Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus() const { return mdbStatus_; }
  virtual FlushHelperHolder const& flushHelperHolder() const = 0;

 protected:
  MarkSweepTableBase(HwTableKey const& hwTableKey, Dovel::Ptr<Hardware::Loam::Status const> const& loamStatus,
                     Dovel::Ptr<Hardware::Loam::MdbStatus const> const& mdbStatus)
      : hwTableKey_(hwTableKey), loamStatus_(loamStatus), mdbStatus_(mdbStatus) {}

 private:
  HwTableKey hwTableKey_;
  Dovel::Ptr<Hardware::Loam::Status const> loamStatus_;
  Dovel::Ptr<Hardware::Loam::MdbStatus const> mdbStatus_;
};

}  // namespace LoamAsicUtils
